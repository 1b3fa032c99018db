#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"

namespace ZandorL3Tunnel {
namespace {

// What only a fault of the table's own code or of the platform could bring about stops the process. The tests
// reach for the handle as the platform does.
class AccessorAssertionDeathTest : public ModelChip::ChipTest {
 protected:
   AccessorAssertionDeathTest() { table->doInit(unit, stateDatabase, chip->chipInfo()); }

   EgrL3Oif2::EntryHandle& handleAt(Asic::Index key) {
      return const_cast<EgrL3Oif2::EntryHandle&>(*table->entryHandle(key));
   }

   void entryInDeletion() {
      table->entryCommit(3, {});
      loop.runUntilIdle();
      table->entryRemove(3);
      ASSERT_EQ(handleAt(3).entryType(), EgrL3Oif2::EntryHandle::inDeletion());
   }

   Nuv::Ptr<EgrL3Oif2> table = egrL3Oif2Factory("EgrL3Oif2");
};

TEST_F(AccessorAssertionDeathTest, AnEntryInDeletionDoesNotFailOrPause) {
   entryInDeletion();
   for (auto state : {State::suspended, State::failedNeededEntry, State::failed}) {
      EXPECT_DEATH(handleAt(3).entryStateIs(state),
                   "SwTableAccessor:[0-9]+: .*entryHandle->entryType\\(\\) != EntryHandle::inDeletion\\(\\)");
   }
}

TEST_F(AccessorAssertionDeathTest, ThereIsNoStateAboveFailed) {
   auto handle = table->entryCommit(3, {});
   EXPECT_DEATH(handleAt(3).entryStateIs(State(6)), "SwTableAccessor:[0-9]+: ");
   EXPECT_DEATH(handleAt(3).entryStateIs(State(255)), "SwTableAccessor:[0-9]+: ");
}

TEST_F(AccessorAssertionDeathTest, ADeletionOnlySucceeds) {
   entryInDeletion();
   EXPECT_DEATH(handleAt(3).resolvedEntryStateIs(State::failed),
                "SwTableAccessor:[0-9]+: .*resolvedEntryState == success\\(\\)");
}

TEST_F(AccessorAssertionDeathTest, ARowThatNobodyWaitsForOnlySucceeds) {
   auto handle = table->entryCommit(3, {});
   loop.runUntilIdle();
   EXPECT_DEATH(handleAt(3).resolvedEntryStateIs(State::failed),
                "SwTableAccessor:[0-9]+: .*resolvedEntryState == success\\(\\)");
}

TEST_F(AccessorAssertionDeathTest, APausedEntryHearsNothingOfItsRow) {
   auto handle = table->entryCommit(3, {});
   handleAt(3).entryStateIs(State::suspended);
   EXPECT_DEATH(handleAt(3).resolvedEntryStateIs(State::success),
                "SwTableAccessor:[0-9]+: .*entryHandle->entryState\\(\\) == unresolved\\(\\) \\|\\| "
                "entryHandle->entryState\\(\\) == failedNeededEntry\\(\\) \\|\\| "
                "entryHandle->entryState\\(\\) == success\\(\\)");
}

TEST_F(AccessorAssertionDeathTest, ACommittedHandleDoesNotEnd) {
   table->entryCommit(3, {});
   EXPECT_DEATH(
         handleAt(3).referenceDel(),
         "SwTableAccessor:[0-9]+: .*eh->entryType\\(\\) == EntryHandle::referenceOnly\\(\\).*unexpected "
         "entryType");
}

TEST_F(AccessorAssertionDeathTest, ATableSyncsBeforeItsFirstEntry) {
   table->entryCommit(3, {});
   EXPECT_DEATH(table->syncEntries(), "SwTableAccessor:[0-9]+: .*!swTable_->resolvedEntrys\\(\\)");
}

TEST_F(AccessorAssertionDeathTest, ATableSyncsWithItsHardware) {
   EXPECT_DEATH(egrL3Oif2Factory("plain")->syncEntries(), "SwTableAccessor:[0-9]+: .*hwTable\\(\\)");
}

using PendingEntryTest = AccessorAssertionDeathTest;

TEST_F(PendingEntryTest, AreQueuedUntilTheRowIsAnswered) {
   auto handle = table->entryCommit(3, {});
   auto& pending = handleAt(3);
   EgrL3Oif2::Entry first;
   first.tnlVlanTag = 1;
   EgrL3Oif2::Entry second;
   second.tnlVlanTag = 2;
   EXPECT_EQ(pending.pendingEntries(), 0u);
   pending.pendingEntryEnq(first);
   pending.pendingEntryEnq(second);
   pending.pendingEntryEnq(first);
   EXPECT_EQ(pending.pendingEntries(), 3u);
   EXPECT_EQ(pending.pendingEntryFront(), first);
   EXPECT_EQ(pending.pendingEntryDeq(), first);
   EXPECT_EQ(pending.pendingEntryFront(), second);
   EXPECT_EQ(pending.pendingEntryBack(), first);
   pending.pendingEntryDel();
   EXPECT_EQ(pending.pendingEntries(), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(pending.pendingEntries(), 0u);
}

TEST_F(PendingEntryTest, TheFrontMustBeThere) {
   auto handle = table->entryCommit(3, {});
   EXPECT_DEATH(handleAt(3).pendingEntryDeq(), "pendingEntries\\(\\) != 0");
}

using TableCollectionsTest = AccessorAssertionDeathTest;

TEST_F(TableCollectionsTest, ResolvedEntriesAreTakenBackAndWrittenAgain) {
   auto handle = table->entryCommit(3, {});
   loop.runUntilIdle();
   table->resolvedEntryDelAll();
   EXPECT_FALSE(table->resolvedEntry(3));
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_FALSE(handle->isHwIndexValid());
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   table->entryCommit(3, {});
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(TableCollectionsTest, RowsAreClearedAndProgrammedAgain) {
   auto handle = table->entryCommit(3, {});
   loop.runUntilIdle();
   table->hwTableEntryDelAll();
   EXPECT_TRUE(table->resolvedEntry(3));
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   table->handleEntry(3);
   table->handleEntry(4);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(TableCollectionsTest, HandlesAreLetGo) {
   auto handle = table->entryCommit(3, {});
   loop.runUntilIdle();
   table->entryHandleDelAll();
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_FALSE(table->entryHas(3));
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 0u);
   EXPECT_TRUE(table->entryCommit(3, {}));
}

TEST_F(TableCollectionsTest, TellWhatKindOfTableItIs) {
   EXPECT_FALSE(EgrL3Oif2::isExternalKeyType());
   EXPECT_FALSE(EgrL3Oif2::isOwnedByMergeTable());
   EXPECT_TRUE(EgrL3Oif2::supportsStaleEntryPurge());
   EXPECT_EQ(EgrL3Oif2::numDependentFields(), 0u);
   EXPECT_FALSE(EgrL3Oif2::getBlockSizeDefinedByUser());
   EXPECT_TRUE(EgrL3Oif2::responseNeeded());
   EXPECT_TRUE(table->responseEnabled());
   EXPECT_EQ(EgrL3Oif2::Entry::getBlockSize(), 1u);
   auto handle = table->entryCommit(3, {});
   EXPECT_EQ(table->util()->getHwIndex(handleAt(3)), 3u);
   EXPECT_TRUE(table->util()->isExclusivelyOwnedTable());
   EXPECT_EQ(handle->hwIndexForDependentField(), 3u);
   EXPECT_EQ(table->hwIndexOnlyForCrossAgentCommunication(3), 3u);
   EXPECT_EQ(table->hwIndexOnlyForCrossAgentCommunication(4), Asic::invalidIndex);
   EXPECT_EQ(EgrL3Oif2::EgrL3Oif2Is("other")->tblName(), "other");
}

} // namespace
} // namespace ZandorL3Tunnel
