#include "agent/views/TextTable.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

TEST(TextTableTest, AlignsColumnsAndSaysWhenItIsEmpty) {
   TextTable table("TITLE", {"a", "long head", "c"});
   EXPECT_EQ(table.text(), "TITLE\n  (none)\n");
   table.rowIs({"wide cell", "b", "c", "beyond"});
   table.rowIs({"x"});
   table.rowIs({"x", "", "z"});
   EXPECT_EQ(table.text(), "TITLE\n"
                           "  a          long head  c\n"
                           "  wide cell  b          c\n"
                           "  x\n"
                           "  x                     z\n");
}

TEST(TextTableTest, ColourTakesNoRoom) {
   TextTable table("TITLE", {"a", "b"});
   table.rowIs({{"bad", Style::bad}, "x"});
   table.rowIs({"plain", "y"});
   EXPECT_EQ(table.text(Paint(true)), "\x1b[1mTITLE\x1b[0m\n"
                                      "  \x1b[2ma\x1b[0m      \x1b[2mb\x1b[0m\n"
                                      "  \x1b[31mbad\x1b[0m    x\n"
                                      "  plain  y\n");
}

TEST(PaintTest, WhatIsNotPrintableAsciiIsShownByItsBytes) {
   EXPECT_EQ(printable("swp1.100@x"), "swp1.100@x");
   EXPECT_EQ(printable(std::string_view("a\x1b[31m\n\0\xff", 9)), "a\\x1b[31m\\x0a\\x00\\xff");
}

TEST(PaintTest, CountsAgreeWithTheirNouns) {
   EXPECT_EQ(counted(0, "via", "vias"), "0 vias");
   EXPECT_EQ(counted(1, "via", "vias"), "1 via");
   EXPECT_EQ(counted(2, "via", "vias"), "2 vias");
}

} // namespace
} // namespace L3TunnelAgent
