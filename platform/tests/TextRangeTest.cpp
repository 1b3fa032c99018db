#include "platform/chipstate/BrixL3IntfTypes.h"
#include "platform/chipstate/BrixTypes.h"
#include "platform/chipstate/FendoTypes.h"
#include "platform/chipstate/ZandorCentralTypes.h"
#include "platform/nuv/Text.h"

#include <gmock/gmock.h>

namespace Nuv {
namespace {

using testing::HasSubstr;

template <class V>
Pelm::String
errorOf(Pelm::StringView text) {
   try {
      valueFromText<V>(text);
   } catch (RangeException const& error) {
      return error.what();
   }
   return "(read)";
}

TEST(TextRangeTest, ReadsNumbersUpToTheirTypesEnd) {
   EXPECT_EQ(valueFromText<std::uint8_t>("255"), 255);
   EXPECT_EQ(valueFromText<std::uint8_t>("000255"), 255);
   EXPECT_EQ(valueFromText<std::uint16_t>("65535"), 65535);
   EXPECT_EQ(valueFromText<std::uint32_t>("4294967295"), 4294967295u);
   EXPECT_EQ(valueFromText<unsigned long long>("18446744073709551615"), ~0ull);
   EXPECT_THAT(errorOf<std::uint8_t>("256"), HasSubstr("a number of at most 255"));
   EXPECT_THAT(errorOf<std::uint32_t>("4294967296"), HasSubstr("at most 4294967295"));
   EXPECT_THAT(errorOf<unsigned long long>("18446744073709551616"), HasSubstr("at most"));
   EXPECT_THAT(errorOf<std::uint8_t>(Pelm::String(100000, '9')), HasSubstr("at most 255"));
}

TEST(TextRangeTest, RefusesWhatIsNoNumber) {
   for (auto const* text : {"", "-1", "+1", " 1", "0x1", "1 ", "1.0", "one"}) {
      EXPECT_NE(errorOf<std::uint32_t>(text), "(read)") << text;
   }
}

TEST(TextRangeTest, SmallBoundsDoNotWrapAround) {
   TextRange range("7");
   EXPECT_THROW(range.number(5), RangeException);
   EXPECT_EQ(range.rest(), "7");
   EXPECT_EQ(range.number(7), 7u);
}

TEST(TextRangeTest, ReadsBooleans) {
   EXPECT_TRUE(valueFromText<bool>("True"));
   EXPECT_FALSE(valueFromText<bool>("False"));
   EXPECT_EQ(errorOf<bool>("true"), "expected True or False, found \"true\"");
   EXPECT_EQ(errorOf<bool>(""), "expected True or False at the end");
}

TEST(TextRangeTest, ErrorsShowLittleAndOnlyWhatCanBeShown) {
   auto error = errorOf<bool>(Pelm::String("\0\n\xff", 3) + Pelm::String(1000, 'x'));
   EXPECT_EQ(error, "expected True or False, found \"???xxxxxxxxxxxxxxxxxxxxx\"");
}

TEST(TextRangeTest, ReadsAddressesInEitherCase) {
   Fendo::EthAddr const address{{0x02, 0xab, 0, 0, 0, 0xff}};
   EXPECT_EQ(valueFromText<Fendo::EthAddr>("02:ab:00:00:00:ff"), address);
   EXPECT_EQ(valueFromText<Fendo::EthAddr>("02:AB:00:00:00:Ff"), address);
   for (auto const* text : {"", "02", "02:ab:00:00:00", "02:ab:00:00:00:f", "02:ab:00:00:00:fg",
                            "02:ab:00:00:00:ff:", "02-ab-00-00-00-ff", "2:ab:0:0:0:ff"}) {
      EXPECT_NE(errorOf<Fendo::EthAddr>(text), "(read)") << text;
   }
}

TEST(TextRangeTest, ReadsNextHopTypesByNameAndByNumber) {
   for (unsigned number = 0; number < 256; ++number) {
      auto type = Brix::NextHopEntryType(number);
      EXPECT_EQ(valueFromText<Brix::NextHopEntryType>(text(type)), type);
      EXPECT_EQ(valueFromText<Brix::NextHopEntryType>(text(number)), type);
   }
   EXPECT_NE(errorOf<Brix::NextHopEntryType>("256"), "(read)");
   EXPECT_NE(errorOf<Brix::NextHopEntryType>("unicasts"), "(read)");
}

TEST(TextRangeTest, ReadsInterfaceAndPortNumbers) {
   EXPECT_EQ(valueFromText<BrixL3Intf::L3Id>("7").value, 7);
   EXPECT_EQ(valueFromText<ZandorCentral::VirtualPort>("65535"), ZandorCentral::VirtualPort());
   EXPECT_NE(errorOf<ZandorCentral::VirtualPort>("65536"), "(read)");
}

} // namespace
} // namespace Nuv
