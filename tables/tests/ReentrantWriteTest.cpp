#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "tables/testing/NextHopTest.h"

#include <gmock/gmock.h>
#include <stdexcept>

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;

// Writes and ends that happen while another one is being told.

/// Does something once when a handle ends.
struct AtEnd final : Asic::SwTableBase::EntryHandle::Notifiee {
   std::function<void()> end;
   void handleSwTable() override {
      if (auto once = std::exchange(end, {})) {
         once();
      }
   }
};

struct ThrowsAtEnd final : Asic::SwTableBase::EntryHandle::Notifiee {
   void handleSwTable() override { throw std::runtime_error("observer"); }
};

class ReentrantWriteTest : public NextHopTest {
 protected:
   ReentrantWriteTest() : NextHopTest(64, 64) {
      one = interface(1);
      two = interface(2);
      loop.runUntilIdle();
      egress->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
   }

   static EgrL3NextHop2::Entry over(Handle const& interface, std::uint8_t mac) {
      EgrL3NextHop2::Entry entry;
      entry.l3Oif2Handle = interface;
      entry.dstMacAddress = {{4, 0, 0, 0, 0, mac}};
      return entry;
   }

   /// An interface that is not in the chip yet, so that what needs it waits.
   Handle pending(Asic::Index index) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = std::uint16_t(index);
      return interfaces->entryCommit(index, entry);
   }

   std::uint64_t macInRow(Asic::Index index) const {
      return ModelChip::EgrL3NextHop2::dstMac.unpack(chip->table("EgrL3NextHop2")->row(index)) & 0xff;
   }
   bool hasRow(Asic::Index index) const { return chip->table("EgrL3NextHop2")->hasRow(index); }

   static L3UnderlayEcmpMember1Table::EntryBlock blockOf(Handle const& nextHop) {
      L3UnderlayEcmpMember1Table::Entry member;
      member.underlayEcmpNextHopIndexHandle = nextHop;
      L3UnderlayEcmpMember1Table::EntryBlock block;
      block.entryIs(0, member);
      return block;
   }

   static constexpr Asic::Index at = 60;

   Handle one;
   Handle two;
   Nuv::Ptr<EgrL3NextHop2> egress = egrL3NextHop2Factory("egress");
   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks = l3UnderlayEcmpMember1TableFactory();
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("groups");
};

TEST_F(ReentrantWriteTest, BlockAskedForAndDroppedByAnObserverOfItsEndLeavesNothing) {
   auto hop = write(7, 1, 1);
   auto other = write(8, 2, 1);
   loop.runUntilIdle();
   auto const block = blockOf(hop);
   auto held = blocks->entryBlockRef(block);
   loop.runUntilIdle();
   auto const base = blocks->hwIndexOnlyForCrossAgentCommunication(block);
   AtEnd watch;
   watch.end = [&] { blocks->entryBlockRef(block); };
   held->notifieeIs(watch);
   held = nullptr;
   loop.runUntilIdle();
   EXPECT_FALSE(chip->table("L3UnderlayEcmpMember1Table")->hasRow(base));
   EXPECT_EQ(blocks->handles().size(), 0u);
   EXPECT_EQ(blocks->indexAllocator()->holders(), 0u);
   // The run is another's now, and its row nobody's but his.
   auto next = blocks->entryBlockRef(blockOf(other));
   loop.runUntilIdle();
   EXPECT_EQ(next->entryState(), State::success);
   EXPECT_EQ(blocks->hwIndexOnlyForCrossAgentCommunication(blockOf(other)), base);
}

TEST_F(ReentrantWriteTest, BlockAskedForAndKeptByAnObserverOfItsEndHasTheRun) {
   auto hop = write(7, 1, 1);
   auto const block = blockOf(hop);
   auto held = blocks->entryBlockRef(block);
   loop.runUntilIdle();
   Handle again;
   AtEnd watch;
   watch.end = [&] { again = blocks->entryBlockRef(block); };
   held->notifieeIs(watch);
   held = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(again->entryState(), State::success);
   EXPECT_TRUE(chip->table("L3UnderlayEcmpMember1Table")
                     ->hasRow(blocks->hwIndexOnlyForCrossAgentCommunication(block)));
   EXPECT_EQ(blocks->indexAllocator()->holders(), 1u);
}

TEST_F(ReentrantWriteTest, GroupWithoutAnswersWrittenAndDroppedByAnObserverOfItsEndLeavesNothing) {
   groups->responseEnabledIs(false);
   ZandorL3Common::L3AdjIdKey key;
   key.id = 3;
   L3EcmpGroup0Table::Entry entry;
   auto held = groups->entryRef(key, entry);
   loop.runUntilIdle();
   AtEnd watch;
   watch.end = [&] { groups->entryRef(key, entry); };
   held->notifieeIs(watch);
   auto const index = held->hwEntryIndex();
   held = nullptr;
   loop.runUntilIdle();
   EXPECT_FALSE(chip->table("L3EcmpGroup0Table")->hasRow(index));
   EXPECT_EQ(groups->handles().size(), 0u);
   EXPECT_EQ(groups->indexAllocator()->holders(), 0u);
}

TEST_F(ReentrantWriteTest, HandlerMayCommitTheSameOnceMoreWhileItResolves) {
   auto held = egress->entryCommit(at, over(one, 1));
   loop.runUntilIdle();
   ASSERT_EQ(held->entryState(), State::success);
   auto const late = pending(6);
   std::vector<State> first;
   std::vector<State> second;
   egress->entryCommitWithResponseHandler(at, over(late, 2), [&](State state) {
      first.push_back(state);
      if (state == State::inProgress) {
         egress->entryCommitWithResponseHandler(at, over(late, 2), [&](State s) { second.push_back(s); });
      }
   });
   loop.runUntilIdle();
   EXPECT_EQ(macInRow(at), 2u);
   EXPECT_EQ(held->entryState(), State::success);
   EXPECT_FALSE(egress->unresolvedEntryHas(at));
   EXPECT_THAT(first, ElementsAre(State::inProgress));
   EXPECT_THAT(second, ElementsAre(State::success));
}

TEST_F(ReentrantWriteTest, ObserverMayWriteTheSameOnceMoreWhileItResolves) {
   auto const late = pending(6);
   auto held = egress->entryRef(at, over(late, 2));
   ModelChip::StateWatch watch(*held);
   watch.onState = [&] {
      if (held->entryState() == State::inProgress) {
         egress->entryRef(at, over(late, 2));
      }
   };
   loop.runUntilIdle();
   EXPECT_EQ(held->entryState(), State::success);
   EXPECT_TRUE(hasRow(at));
}

TEST_F(ReentrantWriteTest, WhatIsResolvingIsNotDroppedAsWaiting) {
   for (bool all : {false, true}) {
      auto const late = pending(all ? 7 : 6);
      auto held = egress->entryRef(at, over(late, 2));
      ModelChip::StateWatch watch(*held);
      watch.onState = [&] {
         if (held->entryState() == State::inProgress) {
            all ? egress->unresolvedEntryDelAll() : egress->unresolvedEntryDel(at);
         }
      };
      loop.runUntilIdle();
      EXPECT_EQ(held->entryState(), State::success);
      EXPECT_TRUE(hasRow(at));
   }
}

TEST_F(ReentrantWriteTest, BlockMayBeTriedAgainByWhoHearsThatItWasRefused) {
   auto hop = write(7, 1, 1);
   loop.runUntilIdle();
   faults->refuse({"L3UnderlayEcmpMember1Table", {}, true}, 1);
   auto const block = blockOf(hop);
   auto held = blocks->entryBlockRef(block);
   ModelChip::StateWatch watch(*held);
   watch.onState = [&] {
      if (held->entryState() == State::inProgress) {
         watch.onState = {};
         blocks->handleEntryBlock(block);
      }
   };
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::inProgress, State::success));
   EXPECT_TRUE(held->isHwIndexValid());
}

TEST_F(ReentrantWriteTest, ValueWhoseRowWasClearedIsNotInForceAgainWhenTheNewerOneIsDropped) {
   for (bool rewritten : {false, true}) {
      auto held = egress->entryCommit(at, over(one, 1));
      egress->handleEntry(at);
      loop.runUntilIdle();
      ASSERT_EQ(held->entryState(), State::success);
      egress->entryCommit(at, over(pending(rewritten ? 7 : 6), 2));
      egress->hwTableEntryDelAll();
      if (rewritten) {
         egress->entryCommit(at, over(one, 1));
      } else {
         egress->unresolvedEntryDel(at);
      }
      loop.runUntilIdle();
      EXPECT_FALSE(hasRow(at));
      EXPECT_EQ(held->entryState(), State::unresolved);
      egress->handleEntry(at);
      loop.runUntilIdle();
      EXPECT_EQ(held->entryState(), State::success);
      EXPECT_TRUE(hasRow(at));
   }
}

TEST_F(ReentrantWriteTest, TableLeavesItsAllocatorAlthoughAnObserverThrows) {
   auto const type = ZandorL3Common::L3EcmpMember1SharedAllocator::staticFwkType();
   auto held = blocks->entryBlockRef({});
   ThrowsAtEnd watch;
   held->notifieeIs(watch);
   ASSERT_EQ(chip->chipInfo().sharedAllocators->sharers(type), 1u);
   EXPECT_THROW(blocks->cleanup(), std::runtime_error);
   EXPECT_FALSE(blocks->indexAllocator());
   EXPECT_EQ(chip->chipInfo().sharedAllocators->sharers(type), 0u);
}

TEST_F(ReentrantWriteTest, RemovingAllNextHopsGoesOnWhenAnObserverThrows) {
   ThrowsAtEnd watch;
   auto held = write(7, 1, 1);
   nextHops->entryMapToKey(keyOf(20), keyOf(7), Asic::needsExplicitRemove());
   nextHops->entryCommit(keyOf(8), ing(2), egr(2));
   nextHops->entryMapToKey(keyOf(21), keyOf(8), Asic::needsExplicitRemove());
   held->notifieeIs(watch);
   held = nullptr;
   loop.runUntilIdle();
   EXPECT_THROW(nextHops->entryRemoveAll(), std::runtime_error);
   EXPECT_EQ(nextHops->handles().size(), 0u);
   EXPECT_EQ(nextHops->mappedEntryHandles(), 0u);
}

TEST_F(ReentrantWriteTest, NextHopThatEndsUnheardGivesItsIndexBack) {
   nextHops->hasNotificationActiveIs(false);
   auto held = write(7, 1, 1);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
   held = nullptr;
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

TEST_F(ReentrantWriteTest, PairThatIsDroppedWhileItWaitsTakesItsIndexAlong) {
   auto held = write(7, 1, 1);
   ASSERT_NE(held->hwEntryIndex(), Asic::invalidIndex);
   nextHops->unresolvedMergedEntryDel(keyOf(7));
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
   EXPECT_EQ(nextHops->hwIndexOnlyForCrossAgentCommunication(keyOf(7)), Asic::invalidIndex);
   auto other = write(9, 3, 1);
   loop.runUntilIdle();
   held = write(7, 1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(held->entryState(), State::success);
   EXPECT_NE(held->hwEntryIndex(), other->hwEntryIndex());
}

TEST_F(ReentrantWriteTest, RowThatWasRefusedIsTriedAgainWhenItIsTheEntrysAgain) {
   auto second = egrL3Oif2Factory("second");
   second->doInit(unit, stateDatabase, chip->chipInfo());
   EgrL3Oif2::Entry entry;
   entry.tnlVlanTag = 5;
   faults->refuse({"EgrL3Oif2", {}, true}, 1);
   auto refused = interfaces->entryRef(40, entry);
   loop.runUntilIdle();
   ASSERT_EQ(refused->entryState(), State::failed);
   entry.tnlVlanTag = 6;
   auto over = second->entryRef(40, entry);
   loop.runUntilIdle();
   over = nullptr;
   loop.runUntilIdle();
   EXPECT_TRUE(chip->table("EgrL3Oif2")->hasRow(40));
   EXPECT_EQ(refused->entryState(), State::success);
   EXPECT_TRUE(refused->isHwIndexValid());
}

} // namespace
} // namespace ZandorL3Tunnel
