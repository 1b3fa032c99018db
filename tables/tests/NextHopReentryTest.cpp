#include "tables/testing/NextHopTest.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Observers of next hops that lead back to the table, and the end of the table while it is at work.
class NextHopReentryTest : public NextHopTest {
 protected:
   using Notifiee = Asic::SwTableBase::EntryHandle::Notifiee;

   struct LetGo final : Notifiee {
      explicit LetGo(Nuv::Ptr<L3NextHop2Table>& of) : table(of) {}
      void handleSwTable() override { table = nullptr; }
      Nuv::Ptr<L3NextHop2Table>& table;
   };

   struct AtIndex final : Notifiee {
      void handleHwEntryIndex() override { onIndex(); }
      std::function<void()> onIndex;
   };

   NextHopReentryTest() {
      interface(1);
      rowsSince();
   }
};

TEST_F(NextHopReentryTest, TheTableMayLoseItsLastHolderWhileItIsTakenDown) {
   auto handle = write(7, 1, 1);
   auto other = write(8, 2, 1);
   LetGo letGo(nextHops);
   handle->notifieeIs(letGo);
   nextHops->cleanup();
   EXPECT_FALSE(nextHops);
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 1u);
   EXPECT_EQ(other->references(), 1u);
}

TEST_F(NextHopReentryTest, TheTableMayLoseItsLastHolderWhileItsCommitsAreGivenBack) {
   for (std::uint16_t port : {7, 8, 9}) {
      nextHops->entryCommit(keyOf(port), ing(port), egr(1));
   }
   nextHops->entryMapToKey(keyOf(10), keyOf(8), Asic::needsExplicitRemove());
   LetGo letGo(nextHops);
   (*nextHops->handles().iterator())->notifieeIs(letGo);
   nextHops->entryRemoveAll();
   EXPECT_FALSE(nextHops);
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(NextHopReentryTest, ATableThatWasSilencedLeavesItsRowsToTheNext) {
   auto held = write(7, 1, 1);
   rowsSince();
   nextHops->hasNotificationActiveIs(false);
   nextHops->cleanup();
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_EQ(rowsPresent(), 3u);
   EXPECT_FALSE(held->isHwIndexValid());
   nextHops = l3NextHop2TableFactory();
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   held = write(7, 1, 1);
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_EQ(held->entryState(), State::success);
   held = nullptr;
   expectNothingLeft();
}

TEST_F(NextHopReentryTest, SwitchedOnAgainItWritesRows) {
   nextHops->hasNotificationActiveIs(false);
   auto held = write(7, 1, 1);
   EXPECT_THAT(rowsSince(), IsEmpty());
   held = nullptr;
   nextHops->hasNotificationActiveIs(true);
   held = write(8, 2, 1);
   EXPECT_EQ(rowsSince().size(), 2u);
   EXPECT_EQ(held->entryState(), State::success);
}

TEST_F(NextHopReentryTest, WhoHearsOfTheIndexMayResolveThePairItself) {
   auto handle = write(7, 1, 1);
   loop.runUntilIdle();
   auto const pair = nextHops->mergedEntry(keyOf(7)); // keeps the halves, and so the index
   nextHops->mergedEntryDel(keyOf(7));
   ASSERT_EQ(handle->hwEntryIndex(), Asic::invalidIndex);
   AtIndex watch;
   unsigned nested = 0;
   watch.onIndex = [&] {
      if (auto const waiting = nextHops->unresolvedMergedEntry(keyOf(7))) {
         ++nested;
         waiting->doResolve();
      }
   };
   handle->notifieeIs(watch);
   write(7, 1, 1);
   EXPECT_EQ(nested, 1u);
   EXPECT_EQ(nextHops->mergedEntry(keyOf(7)), pair);
   EXPECT_EQ(handle->entryState(), State::success);
   write(7, 2, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(7)), ing(2));
}

TEST_F(NextHopReentryTest, APairThatWaitsForNothingYetDoesNotResolve) {
   auto handle = write(7, 1, 1);
   loop.runUntilIdle();
   nextHops->mergedEntryDel(keyOf(7));
   auto const waiting = nextHops->unresolvedMergedEntryIs(keyOf(7));
   waiting->doResolve();
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_FALSE(nextHops->mergedEntryHas(keyOf(7)));
   EXPECT_EQ(nextHops->unresolvedMergedEntry(keyOf(7)), waiting);
}

TEST_F(NextHopReentryTest, AFullTablesFailureIsNotToldOfAWriteThatMadeRoom) {
   std::vector<Handle> handles;
   for (std::uint16_t port = 1; port < rows; ++port) {
      handles.push_back(write(port, 1, 1));
   }
   loop.runUntilIdle();
   auto const refused = write(rows, 1, 1);
   ASSERT_EQ(refused->entryState(), State::failed);
   ModelChip::StateWatch watch(*refused);
   watch.onState = [&] {
      watch.onState = {};
      handles.pop_back();
      write(rows, 1, 1);
   };
   write(rows, 1, 1);
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress));
   loop.runUntilIdle();
   EXPECT_EQ(refused->entryState(), State::success);
}

TEST_F(NextHopReentryTest, WhatAnObserverThrowsAtTheEndLeavesThroughTheRemoval) {
   struct Thrower final : Notifiee {
      void handleSwTable() override { throw std::runtime_error("observer"); }
   };
   nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   nextHops->entryCommit(keyOf(8), ing(8), egr(1));
   nextHops->entryMapToKey(keyOf(9), keyOf(8), Asic::needsExplicitRemove());
   nextHops->entryRemove(keyOf(8));
   loop.runUntilIdle();
   Thrower ofCommitted;
   Thrower ofMapped;
   nextHops->entryHandle(keyOf(7))->notifieeIs(ofCommitted);
   nextHops->entryHandle(keyOf(9))->notifieeIs(ofMapped);
   EXPECT_THROW(nextHops->entryRemove(keyOf(7)), std::runtime_error);
   EXPECT_THROW(nextHops->entryRemove(keyOf(9)), std::runtime_error);
   expectNothingLeft();
}

TEST_F(NextHopReentryTest, TheDeallocatorSaysNothingOfAnIndexThatNoKeyHolds) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto stranger = nextHops->ingL3NextHop2Table()->entryRef(5, ing(1));
   stranger = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("index still used"), 0u);
   EXPECT_EQ(trace.count("freeing index"), 0u);
}

} // namespace
} // namespace ZandorL3Tunnel
