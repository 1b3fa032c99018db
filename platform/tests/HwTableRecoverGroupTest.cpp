#include "platform/asic/HwTableRecoverGroup.h"
#include "platform/asic/testing/MemoryHwTable.h"
#include "platform/asic/testing/TinyTable.h"

#include <gmock/gmock.h>

namespace Asic {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Words = std::vector<std::uint32_t>;

class HwTableRecoverGroupTest : public testing::Test {
 protected:
   ~HwTableRecoverGroupTest() override { loop.runUntilIdle(); }

   Nuv::Ptr<MemoryHwTable> newTable(char const* name, MemoryHwTable::Rows& rows) {
      return Nuv::make<MemoryHwTable>(HwTable::Shape{name, "words", 0, 8, 1}, rows, loop);
   }

   void write(HwTable& table, Index index, std::uint32_t word) {
      table.rowIs(index, Words{word}, *owner, nullptr);
   }

   Nuv::ReactionLoop loop;
   MemoryHwTable::Rows firstRows{{1, {11}}, {2, {12}}};
   MemoryHwTable::Rows secondRows{{3, {23}}};
   Nuv::Ptr<MemoryHwTable> first = newTable("first", firstRows);
   Nuv::Ptr<MemoryHwTable> second = newTable("second", secondRows);
   Nuv::Ptr<TinyHandle> owner = Nuv::make<TinyHandle>(nullptr);
   Nuv::Ptr<HwTableRecoverGroup> group = Nuv::make<HwTableRecoverGroup>();
};

TEST_F(HwTableRecoverGroupTest, TakesRowsOverThatAnEarlierRunLeft) {
   group->hwTableIs(first);
   group->hwTableIs(second);
   group->recover();
   write(*first, 1, 11);
   write(*second, 3, 23);
   EXPECT_EQ(first->commandsIssued() + second->commandsIssued(), 0u);
   write(*first, 2, 99);
   EXPECT_EQ(first->commandsIssued(), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(group->purge(), 0u);
   EXPECT_THAT(firstRows, ElementsAre(Pair(1, Words{11}), Pair(2, Words{99})));
   EXPECT_THAT(secondRows, ElementsAre(Pair(3, Words{23})));
}

TEST_F(HwTableRecoverGroupTest, ClearsWhatNobodyWroteAgain) {
   group->hwTableIs(first);
   group->hwTableIs(second);
   group->recover();
   write(*first, 1, 11);
   write(*first, 5, 15);
   loop.runUntilIdle();
   EXPECT_EQ(group->purge(), 2u);
   EXPECT_THAT(firstRows, ElementsAre(Pair(1, Words{11}), Pair(5, Words{15})));
   EXPECT_THAT(secondRows, IsEmpty());
}

TEST_F(HwTableRecoverGroupTest, DoesEachOnceForEachTable) {
   group->hwTableIs(first);
   group->hwTableIs(first);
   EXPECT_EQ(group->hwTables(), 1u);
   group->recover();
   EXPECT_EQ(group->purge(), 2u);
   loop.runUntilIdle();

   // What comes behind the table's back is not taken over again.
   firstRows[4] = {14};
   group->recover();
   EXPECT_EQ(group->purge(), 0u);
   EXPECT_THAT(firstRows, ElementsAre(Pair(4, Words{14})));
   EXPECT_EQ(first->commandsIssued(), 2u);
}

TEST_F(HwTableRecoverGroupTest, DoesNotClearATableThatItDidNotRecover) {
   group->hwTableIs(first);
   EXPECT_EQ(group->purge(), 0u);
   group->recover();
   group->hwTableIs(second);
   EXPECT_EQ(group->purge(), 2u);
   EXPECT_THAT(secondRows, ElementsAre(Pair(3, Words{23})));
   group->recover();
   EXPECT_EQ(group->purge(), 1u);
   EXPECT_THAT(secondRows, IsEmpty());
}

TEST_F(HwTableRecoverGroupTest, ClearsTheLastTableFirst) {
   class OrderTable final : public HwTable {
    public:
      OrderTable(char const* name, std::vector<Pelm::String>& cleared, Nuv::ReactionLoop& loop)
          : HwTable({name, "words", 0, 1, 1}, loop), cleared_(cleared) {}

    private:
      void issue(Command, Index, std::span<std::uint32_t const>) override {
         cleared_.push_back(shape().name);
      }
      bool chipRow(Index, std::span<std::uint32_t>) const override { return true; }

      std::vector<Pelm::String>& cleared_;
   };
   std::vector<Pelm::String> cleared;
   for (auto const* name : {"interfaces", "next hops", "members"}) {
      group->hwTableIs(Nuv::make<OrderTable>(name, cleared, loop));
   }
   group->recover();
   EXPECT_EQ(group->purge(), 3u);
   EXPECT_THAT(cleared, ElementsAre("members", "next hops", "interfaces"));
}

TEST_F(HwTableRecoverGroupTest, HoldsItsTables) {
   group->hwTableIs(first);
   EXPECT_EQ(first->references(), 2u);
   group = nullptr;
   EXPECT_EQ(first->references(), 1u);
}

} // namespace
} // namespace Asic
