#include "agent/Report.h"
#include "agent/MessageReader.h"
#include "agent/TextTable.h"
#include "agent/tests/Expected.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using testing::HasSubstr;

TEST(TextTableTest, AlignsColumnsAndSaysWhenItIsEmpty) {
   TextTable table("TITLE", {"a", "long head", "c"});
   EXPECT_EQ(table.text(), "TITLE\n  (none)\n");
   table.rowIs({"wide cell", "b", "c", "beyond"});
   table.rowIs({"x"});
   EXPECT_EQ(table.text(), "TITLE\n"
                           "  a          long head  c\n"
                           "  wide cell  b          c\n"
                           "  x\n");
}

class ReportTest : public testing::Test {
 protected:
   ReportTest() {
      fabric.program(state, destinations(state));
      fabric.settle();
   }

   KernelState const state = recordedState(recordedFile("mixed", "dump.rnl.gz"));
   Fabric fabric;
   Report report{fabric, state};
};

TEST_F(ReportTest, SummaryCountsDestinationsByState) {
   auto text = report.summary();
   EXPECT_THAT(text, HasSubstr("54 tunnel destinations over 198 vias"));
   EXPECT_THAT(text, HasSubstr("  no route                4\n"));
   EXPECT_THAT(text, HasSubstr("  success                50\n"));
   EXPECT_THAT(text, HasSubstr("EgrL3Oif2                         7 of   8192"));
   EXPECT_THAT(text, HasSubstr("with a weight in the kernel, where the chip's members are equal: 1."));
}

TEST_F(ReportTest, TablesLeadFromDestinationToInterface) {
   auto text = report.tables();
   EXPECT_THAT(text, HasSubstr("10.255.99.16  no route"));
   EXPECT_THAT(text, HasSubstr("[br0.300 to cpu (neighbour unresolved: no entry)]"));
   EXPECT_THAT(text, HasSubstr("br0.300 to cpu (fdb-miss)"));
   EXPECT_THAT(text, HasSubstr("drop (blackhole)"));
   for (auto const* title : {"DESTINATIONS", "GROUPS", "BLOCKS", "NEXT HOPS", "INTERFACES"}) {
      EXPECT_THAT(text, HasSubstr(title));
   }
   // The one interface of the SVI that leaves tagged.
   EXPECT_THAT(text, HasSubstr("02:22:04:00:01:00  300\n"));
}

} // namespace
} // namespace L3TunnelAgent
