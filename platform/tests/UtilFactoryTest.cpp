#include "platform/asic/UtilFactory.h"

#include <gtest/gtest.h>

#include <memory>

namespace Asic {
namespace {

class PlainTable final : public HwTable {
 public:
   PlainTable(Nuv::ReactionLoop& loop, char const* layout) : HwTable({"Plain", layout, 0, 1, 1}, loop) {}

 private:
   void issue(Command, Index, std::span<std::uint32_t const>) override {}
};

class PlainUtil final : public SwTable::Util {
 public:
   explicit PlainUtil(Nuv::Ptr<HwTable> const& table) : Util(table) {}
};

Nuv::Ptr<SwTable::Util>
newUtil(Nuv::Ptr<HwTable> const& table) {
   return Nuv::make<PlainUtil>(table);
}

class UtilFactoryTest : public testing::Test {
 protected:
   Nuv::Ptr<SwTable::Util> utilFor(char const* tableType) { return UtilFactory::utilFor(tableType, table); }

   Nuv::ReactionLoop loop;
   Nuv::Ptr<HwTable> table = Nuv::make<PlainTable>(loop, "plain");
};

TEST_F(UtilFactoryTest, MakesAUtilForItsTypeOfTableAndItsLayout) {
   UtilFactory const factory("Test::Table", "plain", newUtil);
   auto util = utilFor("Test::Table");
   ASSERT_TRUE(util);
   EXPECT_EQ(&util->hwTable(), table.get());
   EXPECT_FALSE(utilFor("Test::Other"));
   table = Nuv::make<PlainTable>(loop, "other");
   EXPECT_FALSE(utilFor("Test::Table"));
}

TEST_F(UtilFactoryTest, ThereIsNoneOfAFactoryThatHasGone) {
   { UtilFactory const factory("Test::Table", "plain", newUtil); }
   EXPECT_FALSE(utilFor("Test::Table"));
}

TEST_F(UtilFactoryTest, MakingOneMayMakeAndEndFactories) {
   std::unique_ptr<UtilFactory> second;
   std::unique_ptr<UtilFactory> first;
   first = std::make_unique<UtilFactory>("Test::First", "plain", [&](Nuv::Ptr<HwTable> const& given) {
      second = std::make_unique<UtilFactory>("Test::Second", "plain", newUtil);
      first = nullptr;
      return UtilFactory::utilFor("Test::Second", given);
   });
   EXPECT_TRUE(utilFor("Test::First"));
   EXPECT_FALSE(utilFor("Test::First"));
   EXPECT_TRUE(utilFor("Test::Second"));
}

} // namespace
} // namespace Asic
