#pragma once

#include "platform/asic/testing/TinyTable.h"
#include "swtable/testing/TableLaws.h"

namespace ZandorL3Tunnel {

/// What holds beside for tables whose entries need one of another table. What they need here is told by the
/// test itself how far it has come. When a test ends, it is needed by nobody.
class WaitingLaws : public TableLaws {
 protected:
   using Needed = Nuv::Ptr<Asic::TinyHandle>;

   WaitingLaws() { table->neededIs(first); }

   void TearDown() override {
      table->neededIs(nullptr);
      TableLaws::TearDown();
      EXPECT_EQ(first->references(), 1u);
      EXPECT_EQ(second->references(), 1u);
   }

   // It is at index 0, behind which the chip looks for no row.
   void isThere(Needed const& needed) {
      needed->hwEntryIndexIs(0);
      needed->hwIndexValidIs(true);
      needed->entryStateIs(State::success);
   }

   /// The entry of key 1 with value 1, in hardware over the first needed one.
   Handle inForce() {
      isThere(first);
      auto handle = table->ref(1, 1);
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success);
      rowsApplied.clear();
      return handle;
   }

   Nuv::Ptr<Asic::TinyTable> neededTable = Nuv::make<Asic::TinyTable>();
   Needed first = Nuv::make<Asic::TinyHandle>(neededTable.get());
   Needed second = Nuv::make<Asic::TinyHandle>(neededTable.get());
};

TEST_P(WaitingLaws, AnEntryWaitsForTheRowThatItNeeds) {
   auto handle = table->ref(1, 1);
   for (auto state : {State::inProgress, State::success, State::inProgress}) {
      EXPECT_EQ(handle->entryState(), State::unresolved);
      EXPECT_EQ(handle->hwEntryIndex(), Asic::invalidIndex);
      EXPECT_TRUE(table->isEntry(1, 1));
      EXPECT_FALSE(table->isResolvedEntry(1, 1));
      first->entryStateIs(state);
   }
   first->hwEntryIndexIs(0);
   EXPECT_EQ(handle->entryState(), State::unresolved) << "the chip has not confirmed it";
   EXPECT_EQ(hardware().commandsIssued(), 0u);
   first->hwIndexValidIs(true);
   EXPECT_EQ(handle->entryState(), State::inProgress);
   EXPECT_TRUE(table->isResolvedEntry(1, 1));
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

// Also by a reference, and also one that has nothing to wait for: who observes it sees every new value begin.
TEST_P(WaitingLaws, EveryNewValuePassesThroughUnresolved) {
   auto handle = inForce();
   Watch watch(*handle);
   table->ref(1, 2);
   EXPECT_EQ(handle->entryState(), State::inProgress) << "its row is issued when the call returns";
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::ElementsAre(State::unresolved, State::inProgress, State::success));
}

TEST_P(WaitingLaws, FailsRecoversAndFailsAgainWithWhatItNeeds) {
   std::vector<State> heard;
   auto handle = table->commit(1, 1, [&](State state) { heard.push_back(state); });
   for (auto failure : {State::failed, State::failedNeededEntry}) {
      first->entryStateIs(failure);
      EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
      first->entryStateIs(State::inProgress);
      EXPECT_EQ(handle->entryState(), State::unresolved);
   }
   isThere(first);
   loop.runUntilIdle();
   EXPECT_THAT(heard, testing::ElementsAre(State::failedNeededEntry, State::failedNeededEntry,
                                           State::inProgress, State::success));
}

TEST_P(WaitingLaws, FailsAtOnceOverWhatHasFailedAlsoWithARowInForce) {
   auto handle = inForce();
   auto words = rowOf(handle);
   second->hwIndexValidIs(true);
   second->entryStateIs(State::failed);
   table->neededIs(second);
   table->ref(1, 2);
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   EXPECT_TRUE(handle->isHwIndexValid()) << "the old row is in force";
   loop.runUntilIdle();
   EXPECT_EQ(rowOf(handle), words);
   isThere(second);
   EXPECT_EQ(handle->entryState(), State::inProgress);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_NE(rowOf(handle), words);
}

TEST_P(WaitingLaws, AWrittenEntryKeepsItsStateWhenWhatItNeedsFails) {
   auto handle = inForce();
   Watch watch(*handle);
   first->entryStateIs(State::failed);
   first->hwIndexValidIs(false);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::IsEmpty());
   EXPECT_EQ(hardware().rowsPresent(), 1u);
}

TEST_P(WaitingLaws, TheOldRowStaysAndHoldsWhatItNeedsUntilTheChipHasTheNewOne) {
   auto handle = inForce();
   auto held = first->references();
   table->neededIs(second);
   table->ref(1, 2);
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_TRUE(table->isEntry(1, 2));
   EXPECT_FALSE(table->isResolvedEntry(1, 2));
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, testing::IsEmpty());
   isThere(second);
   EXPECT_GT(first->references(), 1u) << "its row is in force still";
   EXPECT_LT(first->references(), held);
   loop.runUntilIdle();
   EXPECT_EQ(first->references(), 1u);
   EXPECT_EQ(handle->entryState(), State::success);
   table->neededIs(nullptr);
   handle = nullptr;
   EXPECT_GT(second->references(), 1u) << "the row is not gone yet";
   loop.runUntilIdle();
   EXPECT_EQ(second->references(), 1u);
}

TEST_P(WaitingLaws, WritingWhatIsInForceDropsWhatWaitsAndRestoresTheRowsState) {
   for (bool isAnswered : {true, false}) {
      if (!isAnswered) {
         faults->holdAnswers();
      }
      isThere(first);
      table->neededIs(first);
      auto handle = table->ref(1, 1);
      loop.runUntilIdle();
      auto state = handle->entryState();
      EXPECT_EQ(state, isAnswered ? State::success : State::inProgress);
      table->neededIs(second);
      table->ref(1, 2);
      EXPECT_EQ(handle->entryState(), State::unresolved);
      auto commands = hardware().commandsIssued();
      table->neededIs(first);
      table->ref(1, 1);
      EXPECT_EQ(handle->entryState(), state);
      EXPECT_EQ(second->references(), 1u);
      EXPECT_TRUE(table->isEntry(1, 1));
      faults->stop();
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_EQ(hardware().commandsIssued(), commands);
      handle = nullptr;
      loop.runUntilIdle();
   }
}

TEST_P(WaitingLaws, WritingWhatWaitsChangesNothingAndANewerValueReplacesIt) {
   auto handle = table->ref(1, 1);
   Watch watch(*handle);
   table->ref(1, 1);
   table->neededIs(second);
   table->ref(1, 2);
   EXPECT_EQ(first->references(), 1u) << "nobody waits for it any more";
   isThere(first);
   EXPECT_THAT(watch.states, testing::IsEmpty());
   isThere(second);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::ElementsAre(State::inProgress, State::success));
   EXPECT_EQ(hardware().commandsIssued(), 1u);
   EXPECT_TRUE(hasRowOf(handle, 2));
}

TEST_P(WaitingLaws, DroppedWhileItWaitsItLeavesNothing) {
   auto handle = table->ref(1, 1);
   table->commit(2, 2);
   handle = nullptr;
   table->remove(2);
   EXPECT_EQ(table->handles(), 0u);
   table->neededIs(nullptr);
   EXPECT_EQ(first->references(), 1u);
   isThere(first);
   EXPECT_EQ(hardware().commandsIssued(), 0u);
}

TEST_P(WaitingLaws, AnEntryInDeletionThatIsTakenBackMayWaitAndBeDroppedAgain) {
   for (bool isDropped : {true, false}) {
      table->neededIs(first);
      auto handle = inForce();
      handle = nullptr;
      ASSERT_EQ(table->entryType(1), Type::inDeletion);
      table->neededIs(second);
      handle = table->ref(1, 2);
      EXPECT_EQ(handle->entryState(), State::unresolved);
      EXPECT_EQ(handle->hwEntryIndex(), Asic::invalidIndex) << "it has no row until it is written";
      if (isDropped) {
         handle = nullptr;
         loop.runUntilIdle();
         EXPECT_EQ(table->handles(), 0u);
      } else {
         loop.runUntilIdle();
         EXPECT_EQ(hardware().rowsPresent(), 0u);
         isThere(second);
         loop.runUntilIdle();
         EXPECT_EQ(handle->entryState(), State::success);
      }
   }
}

TEST_P(WaitingLaws, WhatLeavesItsTableFailsWhoWaitsForIt) {
   auto handle = table->ref(1, 1);
   first->swTableDel();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   EXPECT_EQ(table->ref(2, 1)->entryState(), State::failedNeededEntry) << "nobody waits for it in vain";
   table->neededIs(second);
   isThere(second);
   table->ref(1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_P(WaitingLaws, ThoseWhoWaitAreWokenOnceInTheOrderInWhichTheyBegan) {
   std::vector<unsigned> told;
   std::vector<Handle> handles;
   for (unsigned key : {3u, 1u, 2u}) {
      handles.push_back(table->commit(key, key, [&told, key](State) { told.push_back(key); }));
   }
   first->entryStateIs(State::failed);
   EXPECT_THAT(told, testing::ElementsAre(3, 1, 2));
   first->entryStateIs(State::failedNeededEntry);
   EXPECT_EQ(told.size(), 3u) << "they have failed already";
   told.clear();
   isThere(first);
   EXPECT_THAT(told, testing::ElementsAre(3, 1, 2));
   loop.runUntilIdle();
   EXPECT_THAT(told, testing::ElementsAre(3, 1, 2, 3, 1, 2));
   EXPECT_EQ(hardware().commandsIssued(), 3u);
}

} // namespace ZandorL3Tunnel
