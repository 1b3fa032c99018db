#include "platform/nuv/Text.h"

#include "platform/chipstate/BrixL3IntfTypes.h"
#include "platform/chipstate/BrixTypes.h"
#include "platform/chipstate/FendoTypes.h"
#include "platform/chipstate/ZandorCentralTypes.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <sstream>

namespace {

using Fendo::EthAddr;
using Nuv::text;

TEST(Text, BoolsAreWords) {
   EXPECT_EQ(text(true), "True");
   EXPECT_EQ(text(false), "False");
}

TEST(Text, IntegersAreDecimalWhateverTheirWidth) {
   EXPECT_EQ(text(std::uint8_t(65)), "65");
   EXPECT_EQ(text(std::int8_t(-1)), "-1");
   EXPECT_EQ(text(std::uint16_t(65535)), "65535");
   EXPECT_EQ(text(0u), "0");
   EXPECT_EQ(text(-7), "-7");
   EXPECT_EQ(text(-7l), "-7");
   EXPECT_EQ(text(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
   EXPECT_EQ(text(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(Text, TextStaysAsItIs) {
   EXPECT_EQ(text("literal"), "literal");
   EXPECT_EQ(text(Pelm::String("string")), "string");
   EXPECT_EQ(text(Pelm::StringView("view of", 4)), "view");
   EXPECT_EQ(text(""), "");
}

TEST(Text, PointersAreAddresses) {
   EXPECT_EQ(text(static_cast<void const*>(nullptr)), "0x0");
   int here = 0;
   std::ostringstream address;
   address << static_cast<void const*>(&here);
   EXPECT_EQ(text(static_cast<void const*>(&here)), address.str());
}

TEST(Text, ValuesStandOneAfterTheOther) {
   EXPECT_EQ(text(), "");
   EXPECT_EQ(text("row ", 7u, " is ", true, Pelm::String("!")), "row 7 is True!");
}

TEST(Text, AReferenceToAValueIsItsTextWhenItIsPrinted) {
   unsigned number = 1;
   Nuv::TextRef ref(number);
   number = 2;
   EXPECT_EQ(text("<", ref, ">"), "<2>");
}

TEST(Text, GoesToStreams) {
   std::ostringstream stream;
   Nuv::writeText(stream, "one") << ", two";
   EXPECT_EQ(stream.str(), "one, two");
}

TEST(EthAddrText, IsLowerCaseHexWithColons) {
   EXPECT_EQ(text(EthAddr()), "00:00:00:00:00:00");
   EXPECT_EQ(text(EthAddr{{0x02, 0xAB, 0x0C, 0xFF, 0x10, 0x01}}), "02:ab:0c:ff:10:01");
}

TEST(EthAddr, IsANumberOf48Bits) {
   EthAddr address{{0x01, 0x02, 0x03, 0x04, 0x05, 0xF6}};
   EXPECT_EQ(address.value(), 0x0102030405F6u);
   EXPECT_EQ(EthAddr::fromValue(0x0102030405F6), address);
   std::mt19937_64 random(1);
   for (int count = 0; count < 100; ++count) {
      auto number = random() & 0xFFFFFFFFFFFF;
      EXPECT_EQ(EthAddr::fromValue(number).value(), number);
   }
   EXPECT_EQ(EthAddr::fromValue(~std::uint64_t(0)).value(), 0xFFFFFFFFFFFFu);
}

TEST(EthAddr, IsOrderedAsItsBytesAre) {
   EthAddr low{{0, 0, 0, 0, 0, 0xFF}};
   EthAddr high{{1, 0, 0, 0, 0, 0}};
   EXPECT_LT(low, high);
   EXPECT_NE(low.hash(1), high.hash(1));
}

TEST(NextHopEntryTypeText, IsItsNameOrElseItsNumber) {
   using Brix::NextHopEntryType;
   EXPECT_EQ(text(NextHopEntryType::receive), "receive");
   EXPECT_EQ(text(NextHopEntryType::unicast), "unicast");
   EXPECT_EQ(text(NextHopEntryType::drop), "drop");
   EXPECT_EQ(text(NextHopEntryType::glean), "glean");
   EXPECT_EQ(text(NextHopEntryType::tunnelUnicast), "tunnelUnicast");
   EXPECT_EQ(text(NextHopEntryType(1)), "1");
   EXPECT_EQ(text(NextHopEntryType(255)), "255");
}

TEST(VirtualPortText, IsItsNumber) {
   EXPECT_EQ(text(ZandorCentral::VirtualPort{101}), "101");
   EXPECT_EQ(text(ZandorCentral::VirtualPort()), "65535");
}

TEST(VirtualPort, IsNoPortUntilItHasANumber) {
   EXPECT_FALSE(ZandorCentral::VirtualPort().isValid());
   EXPECT_TRUE(ZandorCentral::VirtualPort{0}.isValid());
   EXPECT_NE(ZandorCentral::VirtualPort{1}.hash(1), ZandorCentral::VirtualPort{256}.hash(1));
}

TEST(L3IdText, IsItsNumber) {
   EXPECT_EQ(text(BrixL3Intf::L3Id()), "0");
   EXPECT_EQ(text(BrixL3Intf::L3Id{65535}), "65535");
}

} // namespace
