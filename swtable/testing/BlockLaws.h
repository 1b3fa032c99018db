#pragma once

#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "swtable/testing/BlockDriver.h"
#include "swtable/testing/EndingOrders.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"

#include <algorithm>
#include <numeric>

namespace ZandorL3Tunnel {

/// What holds for every block table: one suite, which each one instantiates with a `BlockDriverFactory`.
/// Blocks are made of real next hops. When a test ends, everything is let go, and nothing may be left.
class BlockLaws : public ModelChip::ChipTest, public testing::WithParamInterface<BlockDriverFactory> {
 protected:
   using Type = BlockDriver::EntryType;
   using Members = BlockDriver::Members;
   using Watch = ModelChip::StateWatch;
   static constexpr Asic::Index interfaceOutside = 16;

   BlockLaws()
       : ChipTest({{GetParam().hwTable, 8},
                   {"EgrL3Oif2", interfaceOutside},
                   {"EgrL3NextHop2", 64},
                   {"IngL3NextHop2Table", 64},
                   {"L3EcmpGroup0Table", 4}}) {
      chip->faultsIs(faults);
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->table().doInit(unit, stateDatabase, chip->chipInfo());
      interfaces->entryCommit(1, EgrL3Oif2::Entry());
      interfaces->entryCommit(interfaceOutside, EgrL3Oif2::Entry());
      loop.runUntilIdle();
   }

   void TearDown() override {
      faults->stop();
      blocks->removeAll();
      loop.runUntilIdle();
      EXPECT_EQ(blocks->handles(), 0u);
      EXPECT_EQ(hardware().rowsPresent(), 0u);
      EXPECT_EQ(hardware().unanswered(), 0u);
   }

   ModelChip::Table& hardware() const { return *chip->table(GetParam().hwTable); }

   /// The next hop of that number, over the interface that is there or over the one that never is.
   Handle nextHop(std::uint16_t number, Asic::Index interface = 1) {
      L3UnderlayNextHopKey key;
      key.l2If = {number};
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(interface);
      return nextHops->entryRef(key, {}, egr);
   }

   Members members(std::initializer_list<std::uint16_t> numbers) {
      Members found;
      for (auto number : numbers) {
         found.push_back(nextHop(number));
      }
      return found;
   }

   std::vector<Pelm::String> memberRowsApplied() const {
      std::vector<Pelm::String> rows;
      for (auto const& row : rowsApplied) {
         if (row.starts_with(GetParam().hwTable)) {
            rows.push_back(row.substr(Pelm::String(GetParam().hwTable).size() + 1));
         }
      }
      return rows;
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   std::unique_ptr<BlockDriver> blocks = GetParam().make();
};

TEST_P(BlockLaws, AHandleCountsOneForItsTableAndOneForEachUser) {
   auto block = members({1, 2});
   auto handle = blocks->ref(block);
   EXPECT_EQ(blocks->entryType(block), Type::referenceOnly);
   EXPECT_EQ(handle->references(), 1u);
   auto second = blocks->ref(members({1, 2}));
   EXPECT_EQ(second, handle);
   EXPECT_EQ(handle->references(), 2u);
   EXPECT_EQ(blocks->commit(block), handle);
   EXPECT_EQ(blocks->entryType(block), Type::committed);
   EXPECT_EQ(handle->references(), 3u);
   blocks->ref(block);
   EXPECT_EQ(blocks->entryType(block), Type::committed);
   second = nullptr;
   blocks->remove(block);
   EXPECT_EQ(blocks->entryType(block), Type::referenceOnly);
   EXPECT_EQ(handle->references(), 1u);
}

TEST_P(BlockLaws, WriteCommitsOnlyWithTheNeedForRemoval) {
   auto first = members({1});
   auto second = members({2});
   blocks->write(first, Asic::needsExplicitRemove());
   blocks->write(second, Asic::AutoRemoveType::automatic);
   EXPECT_TRUE(blocks->has(first));
   EXPECT_FALSE(blocks->has(second));
}

TEST_P(BlockLaws, RemovingAllLeavesWhatIsReferencedToItsHolders) {
   auto first = members({1});
   auto second = members({2});
   auto handle = blocks->ref(first);
   blocks->commit(second);
   blocks->removeAll();
   EXPECT_TRUE(blocks->has(first));
   EXPECT_FALSE(blocks->has(second));
   blocks->remove(first);
   EXPECT_TRUE(blocks->has(first)) << "a reference is not to be removed";
}

TEST_P(BlockLaws, AHandlerHearsProgressAndOneSuccess) {
   auto block = members({1, 2});
   std::vector<State> heard;
   auto handle = blocks->commit(block, [&](State state) { heard.push_back(state); });
   EXPECT_TRUE(blocks->isWaiting(block));
   EXPECT_FALSE(blocks->isResolved(block));
   loop.runUntilIdle();
   EXPECT_FALSE(blocks->isWaiting(block));
   EXPECT_TRUE(blocks->isResolved(block));
   EXPECT_THAT(heard, testing::ElementsAre(State::inProgress, State::success));
   blocks->commit(block, [&](State state) { heard.push_back(state); });
   loop.runUntilIdle();
   EXPECT_EQ(heard.size(), 2u) << "an equal block is there already";
}

TEST_P(BlockLaws, RowsAreWrittenAndClearedInAscendingOrder) {
   auto block = members({1, 2, 3});
   auto handle = blocks->ref(block);
   loop.runUntilIdle();
   EXPECT_THAT(memberRowsApplied(), testing::ElementsAre("written 0", "written 1", "written 2"));
   EXPECT_EQ(blocks->index(block), 0u);
   rowsApplied.clear();
   handle = nullptr;
   EXPECT_FALSE(blocks->has(block));
   EXPECT_EQ(blocks->usedIndices(), 0u);
   loop.runUntilIdle();
   EXPECT_THAT(memberRowsApplied(), testing::ElementsAre("cleared 0", "cleared 1", "cleared 2"));
}

TEST_P(BlockLaws, AHoleIsAnEmptyRowOfTheRun) {
   Members block{nextHop(1), nullptr, nextHop(3)};
   auto handle = blocks->ref(block);
   auto behind = blocks->ref(members({4}));
   loop.runUntilIdle();
   EXPECT_EQ(behind->hwIndexForDependentField(), 3u);
   EXPECT_TRUE(hardware().hasRow(1));
   EXPECT_NE(handle, blocks->ref({nextHop(1), nextHop(3)}));
   loop.runUntilIdle();
}

TEST_P(BlockLaws, EqualBlocksAreOneBeforeAndAfterResolution) {
   auto before = blocks->ref(members({1, 2}));
   loop.runUntilIdle();
   auto commands = commandsIssued();
   EXPECT_EQ(blocks->ref(members({1, 2})), before);
   EXPECT_NE(blocks->ref(members({2, 1})), before) << "positions count";
   loop.runUntilIdle();
   EXPECT_EQ(commandsIssued(), commands + 4) << "two rows come and go";
}

TEST_P(BlockLaws, TheIndexIsValidOnceEveryRowIsConfirmedInAnyOrder) {
   std::vector<std::uint32_t> order{0, 1, 2};
   auto block = members({1, 2, 3});
   loop.runUntilIdle();
   do {
      faults->holdAnswers();
      auto handle = blocks->ref(block);
      EXPECT_EQ(handle->entryState(), State::success) << "with the write";
      loop.runUntilIdle();
      for (auto answer : order) {
         EXPECT_FALSE(handle->isHwIndexValid());
         EXPECT_TRUE(faults->releaseAnswer(answer));
         loop.runUntilIdle();
      }
      EXPECT_TRUE(handle->isHwIndexValid());
      faults->stop();
      handle = nullptr;
      loop.runUntilIdle();
   } while (std::next_permutation(order.begin(), order.end()));
}

TEST_P(BlockLaws, ARowThatIsRefusedLateFailsTheBlock) {
   for (Asic::Index row : {0u, 1u, 2u}) {
      auto block = members({1, 2, 3});
      loop.runUntilIdle();
      faults->refuse({GetParam().hwTable, row, true}, 1);
      std::vector<State> heard;
      auto handle = blocks->ref(block);
      Watch watch(*handle);
      loop.runUntilIdle();
      EXPECT_THAT(watch.states, testing::ElementsAre(State::inProgress, State::failed));
      EXPECT_FALSE(handle->isHwIndexValid());
      EXPECT_EQ(blocks->ref(block), handle) << "it is not tried again";
      EXPECT_EQ(handle->entryState(), State::failed);
      handle = nullptr;
      loop.runUntilIdle();
      EXPECT_EQ(hardware().rowsPresent(), 0u);
      handle = blocks->ref(block);
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_TRUE(handle->isHwIndexValid());
   }
}

TEST_P(BlockLaws, WaitsForItsNextHopsFailsWithThemAndRecovers) {
   auto lost = nextHop(1, interfaceOutside);
   auto handle = blocks->ref({lost, nextHop(2)});
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry)
         << "one's progress does not hide another's failure";
   auto waiting = blocks->ref({nextHop(3), lost});
   EXPECT_EQ(waiting->entryState(), State::failedNeededEntry);
   nextHop(1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(waiting->entryState(), State::success);
   nextHop(1, interfaceOutside);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success) << "a written block keeps its state";
}

TEST_P(BlockLaws, FailsRecoversAndFailsAgainWhileItWaits) {
   auto first = nextHop(1, interfaceOutside);
   auto second = nextHop(2, interfaceOutside);
   std::vector<State> heard;
   auto block = Members{first, second};
   auto handle = blocks->commit(block, [&](State state) { heard.push_back(state); });
   nextHop(1);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry) << "the other has failed still";
   faults->holdAnswers();
   nextHop(2);
   EXPECT_EQ(handle->entryState(), State::unresolved) << "nobody has failed, one is on its way";
   nextHop(2, interfaceOutside);
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   faults->stop();
   loop.runUntilIdle();
   nextHop(2);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_THAT(heard, testing::ElementsAre(State::failedNeededEntry, State::failedNeededEntry,
                                           State::inProgress, State::success));
   EXPECT_THAT(memberRowsApplied(), testing::ElementsAre("written 0", "written 1"));
}

TEST_P(BlockLaws, TwoTablesTakeTheirRunsFromOneAllocator) {
   auto others = GetParam().make();
   others->table().doInit(unit, stateDatabase, chip->chipInfo());
   auto shared = members({1, 2});
   auto here = blocks->ref(shared);
   auto there = others->ref(shared);
   auto apart = others->ref(members({3, 4, 5}));
   loop.runUntilIdle();
   EXPECT_EQ(here->hwEntryIndex(), there->hwEntryIndex()) << "equal blocks are one run";
   EXPECT_EQ(apart->hwEntryIndex(), 2u);
   EXPECT_EQ(blocks->usedIndices(), 5u);
   auto refused = blocks->ref(members({1, 2, 3, 4}));
   EXPECT_EQ(refused->entryState(), State::failed) << "what another table has is taken";
   refused = nullptr;
   rowsApplied.clear();
   here = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(memberRowsApplied(), testing::IsEmpty()) << "the rows are the later writer's";
   EXPECT_EQ(blocks->usedIndices(), 5u) << "the run has another user";
   there = apart = nullptr;
   EXPECT_EQ(blocks->usedIndices(), 0u);
   loop.runUntilIdle();
   here = blocks->ref(members({1, 2, 3, 4, 5, 6, 7, 8}));
   loop.runUntilIdle();
   EXPECT_TRUE(here->isHwIndexValid());
}

TEST_P(BlockLaws, TracesACommitFromWriteToEnd) {
   auto block = members({1, 2});
   loop.runUntilIdle();
   Pelm::String const name = blocks->table().tblName();
   Trace::TraceCapture trace(_defaultTraceHandle());
   blocks->commit(block);
   for (auto const* text :
        {" entryBlockCommit : Writing new entry : None", " UnresolvedEntry resolved at entryBlock  : None"}) {
      EXPECT_EQ(trace.count(name + text), 1u) << text;
   }
   for (auto const* function : {"handleEntry ", "hwTableEntryIs "}) {
      EXPECT_EQ(trace.count(function + name + " : key: None"), 1u) << function;
   }
   EXPECT_EQ(
         trace.count("Initializing unresolved entry block: all needed entry handles are already resolved, "
                     "_ueb : None"),
         1u);
   EXPECT_EQ(trace.count(name + " entryhandle state: success, key : None"), 1u);
   trace.clear();
   blocks->commit(block);
   EXPECT_EQ(trace.count(name + " entryBlockCommit : Found an existing entry : None"), 1u);
   blocks->ref(block);
   EXPECT_EQ(trace.count(name + " entryBlockRef : Found an existing entry : None"), 1u);
   EXPECT_EQ(trace.count(" : Writing new entry : "), 0u);
   trace.clear();
   blocks->remove(block);
   EXPECT_EQ(trace.count(name + " : Removing entry at key : None, entryType:committed, refCnt:1"), 1u);
   EXPECT_EQ(trace.count(name + " : entryhandle cleanup, eh : 0x"), 1u);
   EXPECT_EQ(trace.count(", key :None"), 1u);
   EXPECT_EQ(trace.count("hwTableEntryDel " + name + " : key: None"), 1u);
   EXPECT_EQ(trace.count("delete dance"), 0u) << "blocks end at once";
   trace.clear();
   blocks->remove(block);
   EXPECT_THAT(trace.lines(), testing::ElementsAre(name + " : Found no committed entry at key : None"));
   blocks->ref(block);
   EXPECT_EQ(trace.count(name + " entryBlockRef : Writing new entry : None"), 1u);
}

TEST_P(BlockLaws, WithoutARunItFailsIsCountedAndHoldsNothing) {
   std::vector<Handle> held;
   for (std::uint16_t number = 1; number <= 4; ++number) {
      held.push_back(blocks->ref(members({number, number})));
   }
   loop.runUntilIdle();
   held[0] = held[2] = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(blocks->usedIndices(), 4u);
   auto large = members({5, 6, 7});
   loop.runUntilIdle();
   auto failures = blocks->table().hwIndexFailures();
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto refused = blocks->ref(large);
   EXPECT_EQ(refused->entryState(), State::failed);
   EXPECT_EQ(trace.count(" : No free hardware index at key : None, rows: 3"), 1u);
   EXPECT_EQ(blocks->table().hwIndexFailures(), failures + 1);
   EXPECT_EQ(blocks->usedIndices(), 4u);
   held[1] = nullptr;
   EXPECT_EQ(refused->entryState(), State::failed) << "not tried again";
   refused = nullptr;
   EXPECT_FALSE(blocks->has(large));
   refused = blocks->ref(large);
   loop.runUntilIdle();
   EXPECT_EQ(refused->entryState(), State::success);
}

TEST_P(BlockLaws, AnEmptyBlockSucceedsWithoutARowAlsoWhenAllIsTaken) {
   auto full = blocks->ref(Members(8, nextHop(1)));
   loop.runUntilIdle();
   auto empty = blocks->ref({});
   EXPECT_EQ(empty->entryState(), State::success);
   EXPECT_TRUE(empty->isHwIndexValid());
   EXPECT_EQ(blocks->index({}), 0u);
   EXPECT_EQ(hardware().rowsPresent(), 8u);
}

TEST_P(BlockLaws, ABlockThatSomebodyElseWritesIsLeftAsItIs) {
   blocks->table().modeIs(Asic::SwTable::Mode::writtenElsewhere);
   auto block = members({1, 2});
   auto handle = blocks->ref(block);
   loop.runUntilIdle();
   EXPECT_TRUE(blocks->isResolved(block));
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_EQ(hardware().rowsPresent(), 0u);
   blocks->table().modeIs(Asic::SwTable::Mode::ownRows);
   blocks->handleBlock(block);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(hardware().rowsPresent(), 2u);
}

TEST_P(BlockLaws, ProgrammingItOnceMoreCostsNoRow) {
   auto block = members({1, 2});
   auto handle = blocks->ref(block);
   loop.runUntilIdle();
   auto commands = commandsIssued();
   blocks->handleBlock(block);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(commandsIssued(), commands);
}

TEST_P(BlockLaws, ATableTakenDownClearsItsRowsAndLeavesHandlesInert) {
   auto block = members({1, 2});
   auto held = blocks->ref(block);
   blocks->commit(members({3}));
   loop.runUntilIdle();
   blocks->table().cleanup();
   EXPECT_EQ(blocks->handles(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(hardware().rowsPresent(), 0u);
   EXPECT_EQ(held->references(), 1u);
   EXPECT_FALSE(held->isHwIndexValid());
   EXPECT_FALSE(blocks->ref(block));
}

/// A block table on a chip of its own, and a handle of a block after so many steps of the loop.
struct BlockTableToEnd {
   enum Part { theBlocks, theChip, theHandle, whatItNeeds, parts };

   BlockTableToEnd(BlockDriverFactory const& factory, Nuv::ReactionLoop& on, int steps) : loop(on) {
      auto stateDatabase = Nuv::make<Kallo::EntityManager>();
      chip->publish(*stateDatabase, 0);
      interfaces->doInit(0, stateDatabase, chip->chipInfo());
      nextHops->doInit(0, stateDatabase, chip->chipInfo());
      blocks = factory.make();
      blocks->table().doInit(0, stateDatabase, chip->chipInfo());
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryCommit(1, {});
      handle = blocks->ref({nextHops->entryRef({}, {}, egr)});
      for (int step = 0; step < steps; ++step) {
         loop.runOne();
      }
   }
   ~BlockTableToEnd() { loop.runUntilIdle(); }

   void end(unsigned part) {
      switch (part) {
      case theBlocks:
         blocks = nullptr;
         break;
      case theChip:
         chip = nullptr;
         break;
      case theHandle:
         handle = nullptr;
         break;
      default:
         nextHops = nullptr;
         interfaces = nullptr;
         break;
      }
   }
   void turn() const { loop.runOne(); }

   Nuv::ReactionLoop& loop;
   Nuv::Ptr<ModelChip::Chip> chip = Nuv::make<ModelChip::Chip>(loop);
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   std::unique_ptr<BlockDriver> blocks;
   BlockDriver::Handle handle;
};

TEST_P(BlockLaws, HandleTableAndChipMayEndInAnyOrder) {
   for (int steps : {0, 1, 2, 100}) {
      endInEveryOrder(BlockTableToEnd::parts,
                      [&] { return std::make_unique<BlockTableToEnd>(GetParam(), loop, steps); });
   }
}

/// The same with as many rows as a chip has usually.
class LargeBlocks : public testing::TestWithParam<BlockDriverFactory> {};

TEST_P(LargeBlocks, OfEverySizeThatFits16BitsAreWritten) {
   Nuv::ReactionLoop loop;
   auto chip = Nuv::make<ModelChip::Chip>(loop);
   auto stateDatabase = Nuv::make<Kallo::EntityManager>();
   chip->publish(*stateDatabase, 0);
   auto nextHops = ingL3NextHop2TableFactory("IngL3NextHop2Table");
   auto blocks = GetParam().make();
   nextHops->doInit(0, stateDatabase, chip->chipInfo());
   blocks->table().doInit(0, stateDatabase, chip->chipInfo());
   auto nextHop = nextHops->entryRef(1, {});
   auto& hardware = *chip->table(GetParam().hwTable);
   for (std::size_t size : {1u, 2u, 128u, 65535u}) {
      auto handle = blocks->ref(BlockDriver::Members(size, nextHop));
      loop.runUntilIdle();
      EXPECT_TRUE(handle->isHwIndexValid());
      EXPECT_EQ(hardware.rowsPresent(), size);
      handle = nullptr;
      loop.runUntilIdle();
      EXPECT_EQ(hardware.rowsPresent(), 0u);
   }
   BlockDriver::Members tooLarge(65536, nextHop);
   EXPECT_THROW(blocks->ref(tooLarge), Nuv::Exception);
   EXPECT_THROW(blocks->commit(tooLarge), Nuv::Exception);
   EXPECT_EQ(blocks->handles(), 0u);
}

} // namespace ZandorL3Tunnel
