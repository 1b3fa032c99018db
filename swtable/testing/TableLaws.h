#pragma once

#include "chip/model/Faults.h"
#include "chip/model/Memory.h"
#include "chip/model/testing/ChipTest.h"
#include "swtable/testing/EndingOrders.h"
#include "swtable/testing/TableDriver.h"

#include <algorithm>
#include <numeric>

namespace ZandorL3Tunnel {

/// What holds for every software table with rows of its own: one suite, which each table instantiates with a
/// `TableDriverFactory`. When a test ends, all handles are dropped, all entries are removed, all answers
/// come, and nothing may be left.
class TableLaws : public ModelChip::ChipTest, public testing::WithParamInterface<TableDriverFactory> {
 protected:
   using Type = TableDriver::EntryType;
   using Watch = ModelChip::StateWatch;

   TableLaws() { chip->faultsIs(faults); }

   void TearDown() override {
      faults->stop();
      if (table->table()) {
         table->removeAll();
         loop.runUntilIdle();
         EXPECT_EQ(table->handles(), 0u);
         EXPECT_EQ(hardware().unanswered(), 0u);
      }
      loop.runUntilIdle();
      EXPECT_EQ(hardware().rowsPresent(), 0u);
   }

   ModelChip::Table& hardware() const { return *chip->table(hardwareName); }

   /// The words that the chip has for the entry of a handle.
   std::vector<std::uint32_t> rowOf(Handle const& handle) const {
      auto row = hardware().row(handle->hwEntryIndex());
      return {row.begin(), row.end()};
   }

   /// Whether the row of `handle` is that of `value`: compared with a row that was written for that.
   bool hasRowOf(Handle const& handle, unsigned value) {
      return hardware().hasRow(handle->hwEntryIndex()) && rowOf(handle) == words(value);
   }

   std::vector<std::uint32_t> words(unsigned value) {
      constexpr unsigned spareKey = 9;
      auto before = hardware().rowsPresent();
      auto spare = table->ref(spareKey, value);
      loop.runUntilIdle();
      auto found = rowOf(spare);
      spare = nullptr;
      loop.runUntilIdle();
      EXPECT_EQ(hardware().rowsPresent(), before);
      return found;
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   std::unique_ptr<TableDriver> table = GetParam().make(*chip, stateDatabase);
   Pelm::String const hardwareName = table->hwTableName();
};

TEST_P(TableLaws, AHandleCountsOneForItsTableAndOneForEachUser) {
   auto handle = table->ref(1, 1);
   EXPECT_EQ(table->entryType(1), Type::referenceOnly);
   EXPECT_EQ(handle->references(), 1u);
   auto second = table->ref(1, 1);
   EXPECT_EQ(second, handle);
   EXPECT_EQ(handle->references(), 2u);
   table->commit(1, 1);
   EXPECT_EQ(table->entryType(1), Type::committed);
   EXPECT_EQ(handle->references(), 3u);
   table->commit(1, 2);
   table->ref(1, 3);
   EXPECT_EQ(table->entryType(1), Type::committed);
   EXPECT_EQ(handle->references(), 3u);
   second = nullptr;
   table->remove(1);
   EXPECT_EQ(table->entryType(1), Type::referenceOnly);
   EXPECT_EQ(handle->references(), 1u);
}

TEST_P(TableLaws, DifferentKeysHaveDifferentRows) {
   auto first = table->ref(1, 1);
   auto second = table->ref(2, 1);
   EXPECT_NE(first, second);
   EXPECT_NE(first->hwEntryIndex(), second->hwEntryIndex());
   loop.runUntilIdle();
   EXPECT_EQ(hardware().rowsPresent(), 2u);
   EXPECT_EQ(rowOf(first), rowOf(second));
}

TEST_P(TableLaws, ObserversAndHandlersHearProgressThenSuccess) {
   std::vector<State> heard;
   auto handle = table->ref(1, 1);
   loop.runUntilIdle();
   Watch watch(*handle);
   table->commit(1, 2, [&](State state) { heard.push_back(state); });
   EXPECT_EQ(handle->entryState(), State::inProgress) << "the commit has issued the row when it returns";
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::ElementsAre(State::unresolved, State::inProgress, State::success));
   EXPECT_THAT(heard, testing::ElementsAre(State::inProgress, State::success));
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_TRUE(hasRowOf(handle, 2));
}

TEST_P(TableLaws, AnEqualWriteWritesNothingAndTellsNobody) {
   auto handle = table->commit(1, 1);
   loop.runUntilIdle();
   auto commands = hardware().commandsIssued();
   Watch watch(*handle);
   table->commit(1, 1);
   table->ref(1, 1);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::IsEmpty());
   EXPECT_EQ(hardware().commandsIssued(), commands);
}

TEST_P(TableLaws, AChangedWriteWritesOneRowInPlace) {
   auto handle = table->commit(1, 1);
   loop.runUntilIdle();
   auto index = handle->hwEntryIndex();
   auto commands = hardware().commandsIssued();
   table->commit(1, 2);
   EXPECT_TRUE(handle->isHwIndexValid()) << "the old row is in force";
   loop.runUntilIdle();
   EXPECT_EQ(handle->hwEntryIndex(), index);
   EXPECT_EQ(hardware().commandsIssued(), commands + 1);
   EXPECT_TRUE(table->isEntry(1, 2));
   EXPECT_TRUE(table->isResolvedEntry(1, 2));
}

TEST_P(TableLaws, RemovingWhatIsNotCommittedDoesNothing) {
   auto handle = table->ref(1, 1);
   loop.runUntilIdle();
   table->remove(1);
   table->remove(2);
   EXPECT_EQ(handle->references(), 1u);
   EXPECT_TRUE(table->hasEntry(1));
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_P(TableLaws, TheLastHolderTakesTheEntryAlong) {
   auto handle = table->commit(1, 1);
   loop.runUntilIdle();
   table->remove(1);
   EXPECT_TRUE(table->hasEntry(1));
   handle = nullptr;
   EXPECT_FALSE(table->hasEntry(1));
   loop.runUntilIdle();
   EXPECT_FALSE(table->handle(1));
   EXPECT_EQ(hardware().rowsPresent(), 0u);
}

TEST_P(TableLaws, AnEntryInDeletionIsTakenBackIntoUse) {
   for (bool isCommit : {true, false}) {
      for (unsigned value : {1u, 2u}) {
         table->ref(1, 1);
         table->commit(1, 1);
         loop.runUntilIdle();
         table->remove(1);
         ASSERT_EQ(table->entryType(1), Type::inDeletion);
         auto handle = isCommit ? table->commit(1, value) : table->ref(1, value);
         loop.runUntilIdle();
         EXPECT_EQ(handle->entryState(), State::success);
         EXPECT_TRUE(handle->isHwIndexValid());
         EXPECT_TRUE(hasRowOf(handle, value));
         handle = nullptr;
         table->remove(1);
         loop.runUntilIdle();
         EXPECT_FALSE(table->handle(1));
      }
   }
}

TEST_P(TableLaws, ARefusedEntryFailsAndMayBeRemovedAndWrittenAnew) {
   faults->refuse({hardwareName, {}, true}, 1);
   std::vector<State> heard;
   auto handle = table->commit(1, 1, [&](State state) { heard.push_back(state); });
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failed);
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_EQ(hardware().rowsPresent(), 0u);
   table->commit(1, 1, [&](State state) { heard.push_back(state); });
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failed) << "an equal write changes nothing";
   table->remove(1);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_FALSE(table->handle(1));
   handle = table->commit(1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_THAT(heard, testing::ElementsAre(State::inProgress, State::failed));
}

TEST_P(TableLaws, ARefusedRewriteFailsAndLeavesTheOldRow) {
   auto handle = table->commit(1, 1);
   loop.runUntilIdle();
   faults->refuse({hardwareName, {}, true}, 1);
   table->commit(1, 2);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failed);
   EXPECT_TRUE(handle->isHwIndexValid());
   auto commands = hardware().commandsIssued();
   table->commit(1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(hardware().commandsIssued(), commands) << "the old row never went";
   EXPECT_TRUE(hasRowOf(handle, 1));
}

TEST_P(TableLaws, ARefusedDeleteIsRepeatedUntilTheRowIsGone) {
   table->commit(1, 1);
   loop.runUntilIdle();
   faults->refuse({hardwareName, {}, false}, 3);
   table->remove(1);
   loop.runUntilIdle();
   EXPECT_FALSE(table->handle(1));
   EXPECT_EQ(hardware().rowsPresent(), 0u);
   EXPECT_EQ(faults->counts().refused, 3u);
}

TEST_P(TableLaws, ALostAnswerLeavesTheEntryInProgressUntilALaterOne) {
   faults->lose({hardwareName, {}, {}}, 1);
   auto handle = table->commit(1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::inProgress);
   table->commit(1, 2);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(hardware().unanswered(), 0u);
}

TEST_P(TableLaws, ARepeatedAnswerChangesNothing) {
   faults->repeat({hardwareName, {}, {}});
   auto handle = table->commit(1, 1);
   Watch watch(*handle);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, testing::ElementsAre(State::success));
}

// Up to four writes wait for their answers, on one key or on four.
TEST_P(TableLaws, AnswersMayComeInAnyOrder) {
   for (unsigned keys : {1u, 2u, 4u}) {
      for (std::uint32_t writes = 1; writes <= 4; ++writes) {
         std::vector<std::uint32_t> order(writes);
         std::iota(order.begin(), order.end(), 0u);
         do {
            faults->holdAnswers();
            std::vector<Handle> handles(keys);
            for (unsigned write = 0; write < writes; ++write) {
               handles[write % keys] = table->ref(write % keys, write + 1);
            }
            loop.runUntilIdle();
            for (auto answer : order) {
               EXPECT_TRUE(faults->releaseAnswer(answer));
               loop.runUntilIdle();
            }
            faults->stop();
            for (unsigned key = 0; key < std::min<unsigned>(keys, writes); ++key) {
               EXPECT_EQ(handles[key]->entryState(), State::success);
               unsigned last = (writes - 1 - key) / keys * keys + key;
               EXPECT_TRUE(hasRowOf(handles[key], last + 1));
            }
            handles.clear();
            loop.runUntilIdle();
            ASSERT_EQ(table->handles(), 0u);
            ASSERT_EQ(hardware().unanswered(), 0u);
         } while (std::next_permutation(order.begin(), order.end()));
      }
   }
}

TEST_P(TableLaws, ATableTakenDownClearsItsRowsAndLeavesHandlesInert) {
   auto held = table->ref(1, 1);
   table->commit(2, 2);
   loop.runUntilIdle();
   table->table()->cleanup();
   EXPECT_EQ(table->handles(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(hardware().rowsPresent(), 0u);
   EXPECT_EQ(held->references(), 1u);
   EXPECT_FALSE(held->isHwIndexValid());
   EXPECT_FALSE(table->ref(1, 1));
}

TEST_P(TableLaws, ATableThatWasSilencedLeavesItsRowsToTheNext) {
   auto held = table->ref(1, 1);
   loop.runUntilIdle();
   auto row = rowOf(held);
   auto index = held->hwEntryIndex();
   table->table()->hasNotificationActiveIs(false);
   table->table()->cleanup();
   loop.runUntilIdle();
   EXPECT_TRUE(hardware().hasRow(index));
   auto successor = GetParam().make(*chip, stateDatabase);
   auto commands = hardware().commandsIssued();
   auto handle = successor->ref(1, 1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(hardware().commandsIssued(), commands);
   handle = nullptr;
   loop.runUntilIdle();
}

/// What holds beside for tables whose key says which row it is.
class RestartLaws : public TableLaws {};

TEST_P(RestartLaws, RowsThatOutliveTheirTableAreKnownAgainAndPurged) {
   ASSERT_TRUE(table->supportsStaleEntryPurge());
   auto memory = Nuv::make<ModelChip::Memory>();
   auto database = Nuv::make<Kallo::EntityManager>();
   auto before = Nuv::make<ModelChip::Chip>(loop, ModelChip::Chip::Sizes(), memory);
   before->publish(*database, unit);
   auto own = GetParam().make(*before, database);
   for (unsigned key : {1u, 2u, 3u}) {
      own->commit(key, key);
   }
   loop.runUntilIdle();
   own->table()->hasNotificationActiveIs(false);
   own = nullptr;
   before = nullptr;
   auto after = Nuv::make<ModelChip::Chip>(loop, ModelChip::Chip::Sizes(), memory);
   after->publish(*database, unit);
   auto& rows = *after->table(hardwareName);
   ASSERT_EQ(rows.rowsPresent(), 3u);
   own = GetParam().make(*after, database);
   own->syncEntries();
   EXPECT_EQ(own->handles(), 0u) << "rows are known, entries are not invented";
   auto equal = own->ref(1, 1);
   auto changed = own->ref(2, 5);
   loop.runUntilIdle();
   EXPECT_EQ(equal->entryState(), State::success);
   EXPECT_EQ(changed->entryState(), State::success);
   EXPECT_EQ(rows.commandsIssued(), 1u);
   EXPECT_EQ(rows.purge(), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(rows.rowsPresent(), 2u);
   equal = changed = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rows.rowsPresent(), 0u);
}

/// A table on a chip and a loop of its own, and a handle of an entry that has come as far as `progress`.
struct TableToEnd {
   enum Part { aChip, aHandle, aLoop, aTable, parts };
   enum Progress { written, applied, answered, rewritten, inDeletion, refused, progresses };

   TableToEnd(TableDriverFactory const& factory, int progress) {
      auto stateDatabase = Nuv::make<Kallo::EntityManager>();
      auto faults = Nuv::make<ModelChip::Faults>();
      chip->publish(*stateDatabase, 0);
      chip->faultsIs(faults);
      table = factory.make(*chip, stateDatabase);
      handle = table->ref(1, 1);
      table->commit(2, 2);
      if (progress == applied) {
         loop->runOne();
      } else if (progress != written) {
         loop->runUntilIdle();
      }
      if (progress == refused) {
         faults->refuse({table->hwTableName(), {}, {}});
      }
      if (progress == rewritten || progress == refused) {
         table->ref(1, 3);
      }
      if (progress == inDeletion || progress == refused) {
         table->remove(2);
      }
   }

   void end(unsigned part) {
      switch (part) {
      case aChip:
         chip = nullptr;
         break;
      case aHandle:
         handle = nullptr;
         break;
      case aLoop:
         loop = nullptr;
         break;
      default:
         table = nullptr;
         break;
      }
   }

   void turn() const {
      if (loop) {
         loop->runOne();
      }
   }

   std::unique_ptr<Nuv::ReactionLoop> loop = std::make_unique<Nuv::ReactionLoop>();
   Nuv::Ptr<ModelChip::Chip> chip = Nuv::make<ModelChip::Chip>(*loop);
   std::unique_ptr<TableDriver> table;
   TableDriver::Handle handle;
};

// The table is let go last of all by whatever holds it; that nothing is left is for the sanitizers to see.
TEST_P(TableLaws, HandleTableChipAndLoopMayEndInAnyOrder) {
   for (int progress = 0; progress < TableToEnd::progresses; ++progress) {
      endInEveryOrder(TableToEnd::parts, [&] { return std::make_unique<TableToEnd>(GetParam(), progress); });
   }
}

} // namespace ZandorL3Tunnel
