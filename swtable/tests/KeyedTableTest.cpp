#include "swtable/testing/InterfaceTest.h"

namespace ZandorL3Tunnel {
namespace {

using ModelChip::StateWatch;
using testing::ElementsAre;
using testing::IsEmpty;

using KeyedTableTest = InterfaceTest;

TEST_F(KeyedTableTest, ReportsSuccessOnlyWhenTheChipHasAnswered) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   EXPECT_EQ(handle->entryState(), State::inProgress);
   EXPECT_EQ(handle->hwEntryIndex(), 3u);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_THAT(rowsApplied, IsEmpty());
   while (rowsApplied.empty()) {
      ASSERT_TRUE(loop.runOne());
   }
   EXPECT_EQ(handle->entryState(), State::inProgress);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(macInRow(3), 7);
}

TEST_F(KeyedTableTest, EqualCommitChangesNothing) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   StateWatch watch(*handle);
   EXPECT_EQ(table->entryCommit(3, interfaceOf(7)), handle);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, IsEmpty());
   EXPECT_EQ(commandsIssued(), 1u);
}

TEST_F(KeyedTableTest, ChangedCommitPassesThroughUnresolved) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   StateWatch watch(*handle);
   auto changed = interfaceOf(7);
   changed.tnlVlanTag = 12;
   table->entryCommit(3, changed);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress, State::success));
   EXPECT_EQ(table->entry(3), changed);
   EXPECT_EQ(commandsIssued(), 2u);
}

TEST_F(KeyedTableTest, ReferenceTakesANewValueWithoutPassingThroughUnresolved) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   StateWatch watch(*handle);
   table->entryRef(3, interfaceOf(8));
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::inProgress, State::success));
   EXPECT_EQ(macInRow(3), 8);
}

TEST_F(KeyedTableTest, CountsOneReferenceForTheTableAndOneForEachUser) {
   auto handle = table->entryRef(3, interfaceOf(7));
   EXPECT_EQ(handle->references(), 1u);
   table->entryCommit(3, interfaceOf(7));
   EXPECT_EQ(handle->references(), 2u);
   auto second = table->entryWeakRef(3);
   EXPECT_EQ(second, handle);
   EXPECT_EQ(handle->references(), 3u);
   table->entryRemove(3);
   EXPECT_EQ(handle->references(), 2u);
}

TEST_F(KeyedTableTest, ReferenceDoesNotDemoteACommit) {
   table->entryCommit(3, interfaceOf(7));
   table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   EXPECT_TRUE(table->entryHas(3));
   EXPECT_EQ(table->entryHandle(3)->entryType(), EgrL3Oif2::EntryHandle::committed());
}

TEST_F(KeyedTableTest, LastUserOfAReferenceTakesTheRowAlong) {
   auto handle = table->entryRef(3, interfaceOf(7));
   loop.runUntilIdle();
   handle = nullptr;
   EXPECT_FALSE(table->entry(3));
   loop.runUntilIdle();
   EXPECT_FALSE(table->entryHas(3));
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3Oif2 written 3", "EgrL3Oif2 cleared 3"));
}

TEST_F(KeyedTableTest, RemovedCommitStaysUntilItsLastUserGoes) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   table->entryRemove(3);
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(table->entryHas(3));
   handle = nullptr;
   EXPECT_FALSE(table->entry(3));
   loop.runUntilIdle();
   EXPECT_FALSE(table->entryHas(3));
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(KeyedTableTest, RemoveAllGivesCommitsBackAndLeavesReferences) {
   auto reference = table->entryRef(1, interfaceOf(1));
   table->entryCommit(2, interfaceOf(2));
   table->entryCommit(3, interfaceOf(3));
   table->entryRemoveAll();
   EXPECT_TRUE(table->entry(1));
   EXPECT_FALSE(table->entry(2));
   EXPECT_FALSE(table->entry(3));
   loop.runUntilIdle();
   EXPECT_EQ(table->handles().size(), 1u);
   EXPECT_EQ(reference->entryState(), State::success);
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(KeyedTableTest, RemovingWhatIsNotCommittedOnlySaysSo) {
   auto reference = table->entryRef(1, interfaceOf(1));
   Trace::TraceCapture trace(_defaultTraceHandle());
   table->entryRemove(1);
   table->entryRemove(9);
   EXPECT_THAT(trace.lines(), ElementsAre("EgrL3Oif2 : Found no committed entry at key : 1",
                                          "EgrL3Oif2 : Found no committed entry at key : 9"));
   EXPECT_TRUE(table->entryHas(1));
}

TEST_F(KeyedTableTest, TracesAnEntryFromWriteToEnd) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   table->entryCommit(3, interfaceOf(7));
   Pelm::String const value = "Value('ZandorL3Tunnel::EgrL3Oif2::Entry', ** {'isUnderlayL2HdrTagged': False, "
                              "'srcMacAddress': 02:00:00:00:00:07, 'tnlVlanTag': 0})";
   EXPECT_EQ(trace.count("EgrL3Oif2 : Writing entry : " + value + ", at key : 3"), 1u);
   EXPECT_EQ(
         trace.count("EgrL3Oif2 : Writing new entry : " + value +
                     ", at key : 3; setting entryState to unresolved to ensure callback gets triggered by "
                     "entryState change."),
         1u);
   EXPECT_EQ(trace.count("handleEntry EgrL3Oif2 : key: 3"), 1u);
   EXPECT_EQ(trace.count("hwTableEntryIs EgrL3Oif2 : key: 3"), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("EgrL3Oif2 entryhandle state: success, key : 3"), 1u);
   trace.clear();
   table->entryRemove(3);
   EXPECT_EQ(trace.count("EgrL3Oif2 : Removing entry at key : 3, entryType:committed, refCnt:1"), 1u);
   EXPECT_EQ(trace.count("EgrL3Oif2 : entryhandle cleanup, eh : 0x"), 1u);
   EXPECT_EQ(trace.count("EgrL3Oif2 begin delete dance, key :3"), 1u);
   EXPECT_EQ(trace.count("hwTableEntryDel EgrL3Oif2 : key: 3"), 1u);
   EXPECT_EQ(trace.count("EgrL3Oif2 delete dance complete, key :3"), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("EgrL3Oif2 delete dance complete, key :3"), 1u);
}

TEST_F(KeyedTableTest, KeyOutsideTheHardwareTableFails) {
   auto handle = table->entryCommit(8192, interfaceOf(7));
   EXPECT_EQ(handle->entryState(), State::failed);
   EXPECT_EQ(handle->hwEntryIndex(), Asic::invalidIndex);
   table->entryRemove(8192);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(commandsIssued(), 0u);
   EXPECT_EQ(table->handles().size(), 0u);
}

TEST_F(KeyedTableTest, BoundsAreThoseOfTheHardwareTable) {
   EXPECT_EQ(table->minIndex(), 0u);
   EXPECT_EQ(table->maxIndex(), 8191u);
   auto unbound = egrL3Oif2Factory("unbound");
   EXPECT_EQ(unbound->minIndex(), 0u);
   EXPECT_EQ(unbound->maxIndex(), 0xFFFFFFFFu);
}

TEST_F(KeyedTableTest, WithoutAUtilEntriesStayInProgress) {
   auto unbound = egrL3Oif2Factory("unbound");
   unbound->doInit(7, stateDatabase, chip->chipInfo());
   auto handle = unbound->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::inProgress);
}

TEST_F(KeyedTableTest, PublishesTheIndexOfWhatIsThere) {
   EXPECT_EQ(table->hwIndexOnlyForCrossAgentCommunication(3), 0xFFFFFFFFu);
   table->entryCommit(3, interfaceOf(7));
   EXPECT_EQ(table->hwIndexOnlyForCrossAgentCommunication(3), 3u);
}

TEST_F(KeyedTableTest, NewestOfTwoUnansweredWritesIsTheOneThatCounts) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   table->entryCommit(3, interfaceOf(8));
   StateWatch watch(*handle);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::success));
   EXPECT_EQ(macInRow(3), 8);
}

TEST_F(KeyedTableTest, ObserverThatWritesAnewIsNotOverwritten) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   StateWatch watch(*handle);
   watch.onState = [&] {
      watch.onState = {};
      table->entryCommit(3, interfaceOf(9));
   };
   table->entryCommit(3, interfaceOf(8));
   loop.runUntilIdle();
   EXPECT_EQ(table->entry(3), interfaceOf(9));
   EXPECT_EQ(macInRow(3), 9);
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(KeyedTableTest, ObserverMayDropTheLastHandle) {
   auto handle = table->entryRef(3, interfaceOf(7));
   StateWatch watch(*handle);
   watch.onState = [&] {
      watch.leave();
      handle = nullptr;
   };
   loop.runUntilIdle();
   EXPECT_FALSE(handle);
   EXPECT_EQ(table->handles().size(), 0u);
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(KeyedTableTest, HandleOfATableThatIsTakenDownStaysReadable) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   loop.runUntilIdle();
   table = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_EQ(handle->references(), 1u);
}

TEST_F(KeyedTableTest, ReferenceKeepsItsTableAlive) {
   auto handle = table->entryRef(3, interfaceOf(7));
   table = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(rowsPresent(), 1u);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
}

TEST_F(KeyedTableTest, UnansweredWriteOutlivesItsTableAndItsChip) {
   auto handle = table->entryCommit(3, interfaceOf(7));
   table = nullptr;
   chip = nullptr;
   stateDatabase = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::inProgress);
   EXPECT_EQ(handle->references(), 1u);
}

using KeyedTableDeathTest = KeyedTableTest;

TEST_F(KeyedTableDeathTest, WeakReferenceWantsAnEntry) {
   EXPECT_DEATH(table->entryWeakRef(5), "SwTableAccessor:[0-9]+: .*expect a valid entryHandle, key: 5");
}

} // namespace
} // namespace ZandorL3Tunnel
