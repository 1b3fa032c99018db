#include "chip/model/testing/ChipTest.h"
#include "platform/asic/DontCareHandle.h"
#include "tables/EgrL3NextHop2.h"
#include "tables/EgrL3Oif2.h"

namespace ZandorL3Tunnel {
namespace {

using ModelChip::StateWatch;
using testing::ElementsAre;
using testing::IsEmpty;

class WaitingEntryTest : public ModelChip::ChipTest {
 protected:
   WaitingEntryTest() : ChipTest({{"EgrL3Oif2", 16384}}) {
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   }

   Handle interfaceIs(Asic::Index index, std::uint8_t mac = 1) {
      EgrL3Oif2::Entry entry;
      entry.srcMacAddress = {{2, 0, 0, 0, 0, mac}};
      return interfaces->entryCommit(index, entry);
   }

   static EgrL3NextHop2::Entry nextHopOver(Handle const& interface, std::uint8_t mac = 1) {
      EgrL3NextHop2::Entry entry;
      entry.l3Oif2Handle = interface;
      entry.dstMacAddress = {{4, 0, 0, 0, 0, mac}};
      return entry;
   }

   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<EgrL3NextHop2> nextHops = egrL3NextHop2Factory("EgrL3NextHop2");
};

TEST_F(WaitingEntryTest, WaitsUntilTheChipHasTheRowThatItNeeds) {
   auto interface = interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   EXPECT_EQ(nextHop->entryState(), State::unresolved);
   EXPECT_FALSE(nextHops->resolvedEntry(1));
   EXPECT_TRUE(nextHops->entry(1));
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::success);
   EXPECT_EQ(nextHops->resolvedEntry(1)->l3Oif2.value(), 5);
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 5", "EgrL3NextHop2 written 1"));
}

TEST_F(WaitingEntryTest, ResolvesAtOnceOverARowThatIsThere) {
   auto interface = interfaceIs(5);
   loop.runUntilIdle();
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   EXPECT_EQ(nextHop->entryState(), State::inProgress);
   EXPECT_EQ(trace.count(" : Writing new entry at key: 1"), 1u);
   EXPECT_EQ(trace.count(" All needed entryHandles are already resolved"), 1u);
   EXPECT_EQ(trace.count(" UnresolvedEntry resolved at key  : 1"), 1u);
}

TEST_F(WaitingEntryTest, WhatWaitsIsShownAndMayBeDropped) {
   auto interface = interfaceIs(5);
   loop.runUntilIdle();
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   loop.runUntilIdle();
   EXPECT_FALSE(nextHops->unresolvedEntryHas(1));
   auto late = interfaceIs(6);
   nextHops->entryRef(1, nextHopOver(late, 2));
   ASSERT_TRUE(nextHops->unresolvedEntry(1));
   EXPECT_EQ(nextHops->unresolvedEntry(1)->value().entry, nextHopOver(late, 2));
   EXPECT_EQ(nextHop->entryState(), State::unresolved);
   nextHops->unresolvedEntryDel(1);
   EXPECT_FALSE(nextHops->unresolvedEntryHas(1));
   EXPECT_EQ(nextHop->entryState(), State::success) << "the value before is the entry's again";
   EXPECT_EQ(nextHops->entry(1)->dstMacAddress, nextHopOver(interface).dstMacAddress);
   nextHops->unresolvedEntryDel(1);
   nextHops->unresolvedEntryDel(2);
   EXPECT_FALSE(nextHops->unresolvedEntryHas(2));
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::success);
}

TEST_F(WaitingEntryTest, WhatWaitsMayAllBeDropped) {
   auto interface = interfaceIs(5);
   auto first = nextHops->entryRef(1, nextHopOver(interface));
   auto second = nextHops->entryRef(2, nextHopOver(interface));
   nextHops->unresolvedEntryDelAll();
   EXPECT_FALSE(nextHops->unresolvedEntryHas(1) || nextHops->unresolvedEntryHas(2));
   loop.runUntilIdle();
   EXPECT_EQ(first->entryState(), State::unresolved);
   nextHops->entryRef(1, nextHopOver(interface));
   loop.runUntilIdle();
   EXPECT_EQ(first->entryState(), State::success);
   EXPECT_EQ(second->entryState(), State::unresolved);
}

TEST_F(WaitingEntryTest, AValueIsMadeToWaitAtAnEntryThatIsThere) {
   EXPECT_FALSE(nextHops->unresolvedEntryIs(1, nextHopOver(nullptr)));
   EXPECT_FALSE(nextHops->entryHas(1));
   auto interface = interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   auto const waiting = nextHops->unresolvedEntryIs(1, nextHopOver(interface, 2));
   ASSERT_TRUE(waiting);
   EXPECT_EQ(nextHops->unresolvedEntry(1), waiting);
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->resolvedEntry(1)->dstMacAddress, nextHopOver(interface, 2).dstMacAddress);
   EXPECT_FALSE(nextHops->unresolvedEntryIs(1, nextHopOver(interface, 3)))
         << "it needs nothing that is not there";
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->resolvedEntry(1)->dstMacAddress, nextHopOver(interface, 3).dstMacAddress);
}

TEST_F(WaitingEntryTest, InterfaceThatIsBeingRewrittenHoldsNobodyUp) {
   auto interface = interfaceIs(5, 1);
   loop.runUntilIdle();
   interfaceIs(5, 2);
   ASSERT_EQ(interface->entryState(), State::inProgress);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   EXPECT_EQ(nextHop->entryState(), State::inProgress);
}

TEST_F(WaitingEntryTest, DoesNotWaitForTheDontCareInterface) {
   auto nextHop = nextHops->entryRef(1, nextHopOver(SwTableWorkaround::dontCareHandle(0)));
   EXPECT_EQ(nextHop->entryState(), State::inProgress);
}

TEST_F(WaitingEntryTest, FailsWithTheInterfaceThatItNeeds) {
   auto interface = interfaceIs(16384);
   ASSERT_EQ(interface->entryState(), State::failed);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   EXPECT_EQ(nextHop->entryState(), State::failedNeededEntry);
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, IsEmpty());
}

TEST_F(WaitingEntryTest, IndexWiderThanItsFieldFailsWithoutTruncation) {
   auto fits = interfaceIs(0x1fff);
   auto wide = interfaceIs(0x2000);
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->entryRef(1, nextHopOver(fits))->entryState(), State::inProgress);
   auto nextHop = nextHops->entryRef(2, nextHopOver(wide));
   EXPECT_EQ(wide->entryState(), State::success);
   EXPECT_EQ(nextHop->entryState(), State::failed);
   EXPECT_FALSE(nextHops->resolvedEntry(2));
}

TEST_F(WaitingEntryTest, OldRowStaysUntilTheNewValueResolves) {
   auto first = interfaceIs(5);
   loop.runUntilIdle();
   auto nextHop = nextHops->entryRef(1, nextHopOver(first));
   loop.runUntilIdle();
   auto second = interfaceIs(6);
   nextHops->entryRef(1, nextHopOver(second));
   EXPECT_EQ(nextHop->entryState(), State::unresolved);
   EXPECT_EQ(nextHops->resolvedEntry(1), nextHopOver(first));
   EXPECT_EQ(nextHops->entry(1), nextHopOver(second));
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->resolvedEntry(1), nextHopOver(second));
   EXPECT_EQ(nextHop->entryState(), State::success);
}

TEST_F(WaitingEntryTest, WritingWhatIsInHardwareDropsWhatWaits) {
   auto first = interfaceIs(5);
   loop.runUntilIdle();
   auto nextHop = nextHops->entryRef(1, nextHopOver(first));
   loop.runUntilIdle();
   auto second = interfaceIs(6);
   nextHops->entryRef(1, nextHopOver(second));
   auto commands = commandsIssued();
   Trace::TraceCapture trace(_defaultTraceHandle());
   nextHops->entryRef(1, nextHopOver(first));
   EXPECT_EQ(trace.count(" : Found already existing resolved entry at key : 1"), 1u);
   EXPECT_EQ(trace.count(" : Deleting existing unresolved entry at key : 1"), 1u);
   EXPECT_EQ(nextHop->entryState(), State::success);
   loop.runUntilIdle();
   EXPECT_EQ(commandsIssued(), commands);
   EXPECT_EQ(nextHops->entry(1), nextHopOver(first));
}

TEST_F(WaitingEntryTest, WritingWhatWaitsChangesNothing) {
   auto interface = interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface));
   StateWatch watch(*nextHop);
   Trace::TraceCapture trace(_defaultTraceHandle());
   nextHops->entryRef(1, nextHopOver(interface));
   EXPECT_EQ(trace.count(" : Found existing unresolved entry at key : 1"), 1u);
   EXPECT_THAT(watch.states, IsEmpty());
}

TEST_F(WaitingEntryTest, NewerValueReplacesTheOneThatWaits) {
   auto interface = interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interface, 1));
   nextHops->entryRef(1, nextHopOver(interface, 2));
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->resolvedEntry(1), nextHopOver(interface, 2));
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 5", "EgrL3NextHop2 written 1"));
}

TEST_F(WaitingEntryTest, InterfaceStaysUntilTheRowThatNamesItIsGone) {
   interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interfaces->entryWeakRef(5)));
   loop.runUntilIdle();
   interfaces->entryRemove(5);
   EXPECT_TRUE(interfaces->entryHas(5));
   rowsApplied.clear();
   nextHop = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3NextHop2 cleared 1", "EgrL3Oif2 cleared 5"));
   EXPECT_FALSE(interfaces->entryHas(5));
}

TEST_F(WaitingEntryTest, OldInterfaceStaysUntilTheChipHasTheNewRow) {
   interfaceIs(5);
   interfaceIs(6);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interfaces->entryWeakRef(5)));
   loop.runUntilIdle();
   interfaces->entryRemove(5);
   rowsApplied.clear();
   nextHops->entryRef(1, nextHopOver(interfaces->entryWeakRef(6)));
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3NextHop2 written 1", "EgrL3Oif2 cleared 5"));
}

TEST_F(WaitingEntryTest, DroppedWhileItWaitsLeavesNothing) {
   interfaceIs(5);
   auto nextHop = nextHops->entryRef(1, nextHopOver(interfaces->entryWeakRef(5)));
   nextHop = nullptr;
   EXPECT_EQ(nextHops->handles().size(), 0u);
   interfaces->entryRemove(5);
   loop.runUntilIdle();
   EXPECT_EQ(interfaces->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(WaitingEntryTest, EntriesThatDifferOnlyInTheFilledIndexAreEqual) {
   auto entry = nextHopOver(interfaceIs(5));
   auto filled = entry;
   filled.l3Oif2 = U13(5);
   EXPECT_EQ(entry, filled);
   EXPECT_EQ(entry.hash(1), filled.hash(1));
   EXPECT_FALSE(entry < filled || filled < entry);
}

} // namespace
} // namespace ZandorL3Tunnel
