#include "swtable/testing/InterfaceTest.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

using ModelChip::StateWatch;
using testing::ElementsAre;
using testing::IsEmpty;
using Type = EgrL3Oif2::EntryHandle::EntryType;

ZandorL3Common::L3AdjIdKey
adjacency(std::uint32_t id) {
   ZandorL3Common::L3AdjIdKey key;
   key.id = id;
   return key;
}

class DeleteDanceTest : public InterfaceTest {
 protected:
   /// An entry in hardware that nobody holds any more, its row's delete queued.
   void entryInDeletion() {
      table->entryCommit(3, interfaceOf(7));
      loop.runUntilIdle();
      table->entryRemove(3);
      ASSERT_TRUE(table->entryHas(3));
      ASSERT_EQ(table->entryHandle(3)->entryType(), Type::inDeletion);
   }
};

TEST_F(DeleteDanceTest, HandleStaysInDeletionUntilTheChipHasClearedTheRow) {
   entryInDeletion();
   auto const* handle = table->entryHandle(3).get();
   EXPECT_EQ(handle->entryState(), State::inProgress);
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_FALSE(table->resolvedEntry(3));
   while (rowsPresent() != 0) {
      ASSERT_TRUE(loop.runOne());
   }
   EXPECT_TRUE(table->entryHas(3)) << "the row is gone, its answer is not there";
   expectNothingLeft();
}

TEST_F(DeleteDanceTest, ObserversGoBeforeAnythingIsAnnounced) {
   auto handle = table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   StateWatch watch(*handle);
   handle = nullptr;
   EXPECT_FALSE(watch.isListed());
   EXPECT_THAT(watch.states, IsEmpty());
   expectNothingLeft();
}

TEST_F(DeleteDanceTest, ACommitTakesTheHandleBackIntoUse) {
   entryInDeletion();
   auto before = table->entryHandle(3)->creationNumber();
   auto handle = table->entryCommit(3, interfaceOf(8));
   EXPECT_EQ(handle->creationNumber(), before);
   EXPECT_EQ(handle->references(), 2u);
   EXPECT_EQ(table->entryHandle(3)->entryType(), Type::committed);
   EXPECT_EQ(handle->entryState(), State::inProgress);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(macInRow(3), 8);
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 3", "EgrL3Oif2 cleared 3", "EgrL3Oif2 written 3"));
}

TEST_F(DeleteDanceTest, AReferenceTakesTheHandleBackIntoUse) {
   entryInDeletion();
   auto handle = table->entryRef(3, interfaceOf(7));
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_EQ(table->entryHandle(3)->entryType(), Type::referenceOnly);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(macInRow(3), 7);
   handle = nullptr;
   expectNothingLeft();
}

TEST_F(DeleteDanceTest, TheLaterWritesAnswerIsTheOneThatCounts) {
   entryInDeletion();
   auto handle = table->entryCommit(3, interfaceOf(8));
   StateWatch watch(*handle);
   while (rowsPresent() != 0) {
      ASSERT_TRUE(loop.runOne());
   }
   while (rowsPresent() == 0) {
      EXPECT_THAT(watch.states, IsEmpty());
      ASSERT_TRUE(loop.runOne());
   }
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::success));
}

TEST_F(DeleteDanceTest, RemovedAgainBeforeAnyAnswerItEndsOnce) {
   for (int deletions = 2; deletions <= 4; ++deletions) {
      entryInDeletion();
      for (int again = 1; again < deletions; ++again) {
         table->entryCommit(3, interfaceOf(std::uint8_t(10 + again)));
         table->entryRemove(3);
      }
      ASSERT_EQ(table->entryHandle(3)->entryType(), Type::inDeletion);
      expectNothingLeft();
   }
}

TEST_F(DeleteDanceTest, EveryDanceBeginsAndEndsInTheTrace) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   entryInDeletion();
   EXPECT_EQ(trace.count("EgrL3Oif2 begin delete dance, key :3"), 1u);
   EXPECT_EQ(trace.count("EgrL3Oif2 delete dance complete, key :3"), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("EgrL3Oif2 delete dance complete, key :3"), 1u);
}

TEST_F(DeleteDanceTest, ARowThatWasNeverWrittenNeedsNone) {
   table->entryCommit(table->maxIndex() + 1, interfaceOf(7));
   table->entryRemove(table->maxIndex() + 1);
   EXPECT_EQ(table->handles().size(), 0u);
}

TEST_F(DeleteDanceTest, ATableThatAwaitsNoAnswersNeedsNone) {
   table->responseEnabledIs(false);
   auto handle = table->entryCommit(3, interfaceOf(7));
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   handle = nullptr;
   table->entryRemove(3);
   EXPECT_EQ(table->handles().size(), 0u);
   expectNothingLeft();
}

TEST_F(DeleteDanceTest, ATableWithoutAChipNeedsNone) {
   auto plain = egrL3Oif2Factory("plain");
   plain->entryCommit(3, interfaceOf(7));
   EXPECT_EQ(plain->entryHandle(3)->entryState(), State::inProgress);
   plain->entryRemove(3);
   EXPECT_EQ(plain->handles().size(), 0u);
}

TEST_F(DeleteDanceTest, SomebodyElsesWriteAtTheRowEndsItAsWell) {
   auto successor = egrL3Oif2Factory("successor");
   successor->doInit(unit, stateDatabase, chip->chipInfo());
   entryInDeletion();
   auto handle = successor->entryCommit(3, interfaceOf(9));
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(macInRow(3), 9);
}

TEST_F(DeleteDanceTest, ATableTakenDownEndsItAtOnce) {
   entryInDeletion();
   table->cleanup();
   EXPECT_EQ(table->handles().size(), 0u);
   expectNothingLeft();
}

TEST_F(DeleteDanceTest, AChipThatGoesEndsIt) {
   entryInDeletion();
   chip = nullptr;
   EXPECT_EQ(table->handles().size(), 0u);
}

TEST_F(DeleteDanceTest, TheTableMayGoMeanwhile) {
   entryInDeletion();
   table = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
}

/// Groups, which have indices of their own.
class GroupDeleteDanceTest : public ModelChip::ChipTest {
 protected:
   GroupDeleteDanceTest() {
      members->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
      group.ecmpBlockPtrHandle = members->entryBlockRef({});
      groups->entryCommit(adjacency(1), group);
      loop.runUntilIdle();
      groups->entryRemove(adjacency(1));
      EXPECT_EQ(groups->indexAllocator()->used(), 1u);
   }

   void TearDown() override {
      loop.runUntilIdle();
      EXPECT_EQ(groups->indexAllocator()->used(), 0u);
      EXPECT_EQ(groups->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }

   Nuv::Ptr<L3UnderlayEcmpMember1Table> members = l3UnderlayEcmpMember1TableFactory();
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("groups");
   L3EcmpGroup0Table::Entry group;
};

TEST_F(GroupDeleteDanceTest, AnIndexOfTheTablesOwnGoesBackWhenTheRowIsCleared) {
   auto other = groups->entryCommit(adjacency(2), group);
   EXPECT_EQ(other->hwEntryIndex(), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(groups->indexAllocator()->used(), 1u);
   groups->entryRemove(adjacency(2));
}

TEST_F(GroupDeleteDanceTest, AnIndexIsKeptByWhoTakesTheEntryBackIntoUse) {
   auto handle = groups->entryRef(adjacency(1), group);
   EXPECT_EQ(handle->hwEntryIndex(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(GroupDeleteDanceTest, ItGoesOnWhenWhoTookTheEntryBackLeavesBeforeItHasARowAgain) {
   // A block of two whose next hop waits for nothing that comes: the group waits for it.
   L3UnderlayEcmpMember1Table::EntryBlock block;
   L3UnderlayEcmpMember1Table::Entry member;
   auto interfaces = egrL3Oif2Factory(EgrL3Oif2::typeName());
   member.underlayEcmpNextHopIndexHandle = interfaces->entryCommit(1, {});
   block.entryIs(0, member);
   auto waiting = group;
   waiting.ecmpBlockPtrHandle = members->entryBlockRef(block);
   groups->entryCommit(adjacency(1), waiting);
   groups->entryRemove(adjacency(1));
   ASSERT_TRUE(groups->entryHas(adjacency(1)));
   EXPECT_EQ(groups->entryHandle(adjacency(1))->entryType(), Type::inDeletion);
   auto other = groups->entryCommit(adjacency(2), group);
   EXPECT_EQ(other->hwEntryIndex(), 1u) << "the row at 0 is not cleared yet";
   loop.runUntilIdle();
   EXPECT_FALSE(groups->entryHas(adjacency(1)));
   groups->entryRemove(adjacency(2));
}

} // namespace
} // namespace ZandorL3Tunnel
