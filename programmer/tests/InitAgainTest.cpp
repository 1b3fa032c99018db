#include "programmer/testing/ProgrammerTest.h"

#include <algorithm>

namespace ZandorL3Tunnel {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

/// A programmer whose tables are made anew while handles of the first ones are held. Group 7 is of the first
/// tables, group 8 of the second ones.
class InitAgainTest : public ProgrammerTest {
 protected:
   InitAgainTest() {
      interfaceIs(1, 0x11);
      before = blockOf({a, b});
      groupIs(7, before, 2);
      loop.runUntilIdle();
      rowsApplied.clear();
      // Once the second group is in the chip it forwards as it was asked to, whatever happens to the first.
      afterRow = [this] {
         auto const second = after ? groups->entryHandle(adjacency(8)) : nullptr;
         if (second && chip->table("L3EcmpGroup0Table")->hasRow(second->hwEntryIndex())) {
            EXPECT_TRUE(forwards(second->hwEntryIndex())) << "after " << rowsApplied.back();
         }
      };
   }

   std::size_t tablesWithNextHops() const {
      return chip->chipInfo().sharedAllocators->sharers(L3NextHop2SharedAllocator::staticFwkType());
   }
   std::size_t tablesWithMembers() const {
      return chip->chipInfo().sharedAllocators->sharers(
            ZandorL3Common::L3EcmpMember1SharedAllocator::staticFwkType());
   }

   bool forwards(Asic::Index group) const {
      auto rows = ModelChip::followGroup(*chip, group);
      std::vector<unsigned> ports;
      for (auto const& hop : rows.hops) {
         ports.push_back(hop.interface ? hop.destinationId : 0u);
      }
      std::sort(ports.begin(), ports.end());
      return rows.problem.empty() && ports == std::vector<unsigned>{101, 102};
   }

   void releaseFirst() {
      groupDel(7);
      before = nullptr;
   }

   void requestSecond() {
      after = blockOf({b, a});
      groupIs(8, after, 2);
   }

   L3ViaEntry const a = unicastVia(1, 1, 101);
   L3ViaEntry const b = unicastVia(2, 1, 102);
   Handle before;
   Handle after;
};

TEST_F(InitAgainTest, StartsWithEmptyTablesAndTheSameInterfaces) {
   auto oldMembers = programmer->l3EcmpMemberTable().get();
   auto oldNextHops = programmer->l3EcmpNextHopTable().get();
   programmer->initTables(chip->chipInfo());
   EXPECT_NE(programmer->l3EcmpMemberTable().get(), oldMembers);
   EXPECT_NE(programmer->l3EcmpNextHopTable().get(), oldNextHops);
   EXPECT_EQ(programmer->l3EcmpMemberTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->handles().size(), 0u);
   EXPECT_EQ(programmer->egrL3Oif2(), interfaces);
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_THAT(before, ModelChip::HasState(State::success));
   EXPECT_TRUE(before->isHwIndexValid());
}

TEST_F(InitAgainTest, OldTablesVanishWithTheLastHandle) {
   EXPECT_EQ(tablesWithNextHops(), 1u);
   auto member = before;
   programmer->initTables(chip->chipInfo());
   EXPECT_EQ(tablesWithNextHops(), 2u);
   EXPECT_EQ(tablesWithMembers(), 2u);
   releaseFirst();
   loop.runUntilIdle();
   EXPECT_EQ(tablesWithMembers(), 2u) << "one handle is left";
   EXPECT_THAT(member, ModelChip::HasState(State::success));
   member = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(tablesWithNextHops(), 1u);
   EXPECT_EQ(tablesWithMembers(), 1u);
   EXPECT_EQ(rowsPresent(), 1u);
   EXPECT_EQ(programmer->l3EcmpNextHopTable()->indexAllocator()->holders(), 0u);
}

TEST_F(InitAgainTest, WithoutHandlesOldTablesVanishAtOnce) {
   releaseFirst();
   loop.runUntilIdle();
   programmer->initTables(chip->chipInfo());
   EXPECT_EQ(tablesWithNextHops(), 1u);
   EXPECT_EQ(tablesWithMembers(), 1u);
}

TEST_F(InitAgainTest, EqualNextHopsKeepTheirIndexAndCostNoRow) {
   programmer->initTables(chip->chipInfo());
   requestSecond();
   EXPECT_NE(after, before);
   auto rows = rowsSince();
   EXPECT_THAT(rows,
               testing::ElementsAre("L3UnderlayEcmpMember1Table written 2",
                                    "L3UnderlayEcmpMember1Table written 3", "L3EcmpGroup0Table written 1"));
   releaseFirst();
   EXPECT_THAT(rowsSince(),
               testing::ElementsAre("L3EcmpGroup0Table cleared 0", "L3UnderlayEcmpMember1Table cleared 0",
                                    "L3UnderlayEcmpMember1Table cleared 1"));
   EXPECT_TRUE(forwards(1));
}

/// When the old handles go, the tables are made anew, the same vias are asked for again, and how many
/// reactions run between: in every order.
class InitAgainOrderTest : public InitAgainTest, public testing::WithParamInterface<int> {};

TEST_P(InitAgainOrderTest, NeverDisturbsARowOfTheNewTables) {
   Pelm::String order = "inro";
   auto const turns = GetParam();
   do {
      bool isAgain = false;
      for (char event : order) {
         switch (event) {
         case 'i':
            programmer->initTables(chip->chipInfo());
            isAgain = true;
            break;
         case 'n':
            requestSecond();
            break;
         case 'r':
            releaseFirst();
            break;
         default:
            // Something else wants indices.
            blockOf({unicastVia(3, 1, 103), unicastVia(4, 1, 104)});
            break;
         }
         for (int turn = 0; turn < turns; ++turn) {
            loop.runOne();
         }
      }
      ASSERT_TRUE(isAgain);
      loop.runUntilIdle();
      auto group = groups->entryHandle(adjacency(8));
      EXPECT_THAT(group, ModelChip::HasState(State::success)) << order;
      EXPECT_TRUE(forwards(group->hwEntryIndex())) << order;
      EXPECT_EQ(programmer->l3EcmpMemberTable()->indexAllocator()->holders(), 1u);
      EXPECT_EQ(chip->table("L3UnderlayEcmpMember1Table")->rowsPresent(), 2u);
      // Back to one old destination.
      group = nullptr;
      after = nullptr;
      groupDel(8);
      loop.runUntilIdle();
      EXPECT_EQ(rowsPresent(), 1u) << order;
      before = blockOf({a, b});
      groupIs(7, before, 2);
      loop.runUntilIdle();
   } while (std::next_permutation(order.begin(), order.end()));
}

INSTANTIATE_TEST_SUITE_P(Turns, InitAgainOrderTest, testing::Values(0, 1, 2, 3, 5, 9, 100),
                         testing::PrintToStringParamName());

TEST_F(InitAgainTest, ADestinationMovesToTheNewTablesWithoutABreak) {
   afterRow = [this] { EXPECT_TRUE(forwards(0)) << "after " << rowsApplied.back(); };
   programmer->initTables(chip->chipInfo());
   before = blockOf({a, b});
   groupIs(7, before, 2);
   loop.runUntilIdle();
   EXPECT_EQ(tablesWithMembers(), 1u);
   EXPECT_EQ(tablesWithNextHops(), 1u);
   EXPECT_THAT(rowsApplied, SizeIs(5)) << "two members and the group, and the old members";
}

} // namespace
} // namespace ZandorL3Tunnel
