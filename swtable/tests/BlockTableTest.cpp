#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <algorithm>

namespace ZandorL3Tunnel {
namespace {

using ModelChip::StateWatch;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class BlockTableTest : public ModelChip::ChipTest {
 protected:
   using Block = L3UnderlayEcmpMember1Table::EntryBlock;
   static constexpr char const* memberTable = "L3UnderlayEcmpMember1Table";

   BlockTableTest() : ChipTest({{memberTable, 8}, {"EgrL3Oif2", 16}}) {
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      EgrL3Oif2::Entry entry;
      interface = interfaces->entryCommit(1, entry);
   }

   /// A next hop to port `port` over `over`, or over the fixture's interface.
   Handle nextHopTo(std::uint16_t port, Handle const& over = {}) {
      L3UnderlayNextHopKey key;
      key.l2If = {port};
      IngL3NextHop2Table::Entry ing;
      ing.destinationId = port;
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = over ? over : interface;
      return nextHops->entryWrite(key, ing, egr, Asic::AutoRemoveType::automatic);
   }

   Block blockOf(std::initializer_list<Handle> members) {
      Block block;
      Asic::Index position = 0;
      for (auto const& member : members) {
         memberIs(block, position++, member);
      }
      return block;
   }

   static void memberIs(Block& block, Asic::Index position, Handle const& nextHop) {
      L3UnderlayEcmpMember1Table::Entry entry;
      entry.underlayEcmpNextHopIndexHandle = nextHop;
      block.entryIs(position, entry);
   }

   std::vector<Pelm::String> memberRowsApplied() const {
      std::vector<Pelm::String> rows;
      for (auto const& row : rowsApplied) {
         if (row.starts_with(memberTable)) {
            rows.push_back(row.substr(Pelm::String(memberTable).size() + 1));
         }
      }
      return rows;
   }

   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks = l3UnderlayEcmpMember1TableFactory();
   Handle interface;
};

TEST_F(BlockTableTest, WritesItsRowsInAscendingOrderOnceTheNextHopsAreThere) {
   auto block = blocks->entryBlockRef(blockOf({nextHopTo(1), nextHopTo(2), nextHopTo(3)}));
   EXPECT_EQ(block->entryState(), State::unresolved);
   StateWatch watch(*block);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::inProgress, State::success));
   EXPECT_THAT(memberRowsApplied(), ElementsAre("written 0", "written 1", "written 2"));
   EXPECT_EQ(block->hwEntryIndex(), 0u);
}

TEST_F(BlockTableTest, ReportsSuccessWithTheWriteAndAValidIndexWithTheAnswers) {
   auto nextHop = nextHopTo(1);
   loop.runUntilIdle();
   auto block = blocks->entryBlockRef(blockOf({nextHop}));
   EXPECT_EQ(block->entryState(), State::success);
   EXPECT_FALSE(block->isHwIndexValid());
   loop.runUntilIdle();
   EXPECT_TRUE(block->isHwIndexValid());
}

TEST_F(BlockTableTest, EqualBlocksShareOneHandleAndOneRun) {
   auto a = nextHopTo(1);
   auto b = nextHopTo(2);
   auto first = blocks->entryBlockRef(blockOf({a, b}));
   EXPECT_EQ(blocks->entryBlockRef(blockOf({a, b})), first);
   loop.runUntilIdle();
   auto commands = commandsIssued();
   Trace::TraceCapture trace(_defaultTraceHandle());
   EXPECT_EQ(blocks->entryBlockRef(blockOf({a, b})), first);
   EXPECT_EQ(trace.count("entryBlockRef : Found an existing entry : None"), 1u);
   EXPECT_EQ(commandsIssued(), commands);
   auto other = blocks->entryBlockRef(blockOf({b, a}));
   EXPECT_NE(other, first);
   loop.runUntilIdle();
   EXPECT_EQ(other->hwEntryIndex(), 2u);
   EXPECT_EQ(blocks->indexAllocator()->used(), 4u);
}

TEST_F(BlockTableTest, TracesWhatWaitsAndWhatResolves) {
   auto nextHop = nextHopTo(1);
   loop.runUntilIdle();
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto block = blocks->entryBlockRef(blockOf({nextHop}));
   EXPECT_EQ(trace.count("entryBlockRef : Writing new entry : None"), 1u);
   EXPECT_EQ(
         trace.count("Initializing unresolved entry block: all needed entry handles are already resolved, "
                     "_ueb : None"),
         1u);
   EXPECT_EQ(trace.count(" UnresolvedEntry resolved at entryBlock  : None"), 1u);
}

TEST_F(BlockTableTest, HoleIsWrittenAsAnEmptyRow) {
   Block block;
   memberIs(block, 0, nextHopTo(1));
   memberIs(block, 2, nextHopTo(2));
   auto handle = blocks->entryBlockRef(block);
   loop.runUntilIdle();
   EXPECT_THAT(memberRowsApplied(), ElementsAre("written 0", "written 1", "written 2"));
   EXPECT_THAT(chip->table(memberTable)->row(1), ElementsAre(0u, 0u));
   EXPECT_TRUE(handle->isHwIndexValid());
}

TEST_F(BlockTableTest, BlocksWithHolesThatAreFilledInAnyOrderAreOne) {
   std::vector<Handle> hops{nextHopTo(1), nextHopTo(2), nextHopTo(3)};
   std::vector<std::pair<Asic::Index, std::size_t>> places{{1, 0}, {4, 1}, {6, 2}};
   auto first = blocks->entryBlockRef(Block());
   for (bool isResolved : {false, true}) {
      first = nullptr;
      do {
         Block block;
         for (auto [position, hop] : places) {
            memberIs(block, position, hops[hop]);
            memberIs(block, 2, hops[hop]);
         }
         block.entryDel(2);
         auto handle = blocks->entryBlockRef(block);
         EXPECT_TRUE(!first || handle == first);
         first = handle;
      } while (std::next_permutation(places.begin(), places.end()));
      EXPECT_EQ(first->entryState(), isResolved ? State::success : State::unresolved);
      EXPECT_EQ(blocks->handles().size(), 1u);
      loop.runUntilIdle();
   }
   EXPECT_EQ(blocks->indexAllocator()->used(), 7u);
   EXPECT_TRUE(first->isHwIndexValid());
}

TEST_F(BlockTableTest, BlocksThatDifferInAStrengthProfileHaveRunsOfTheirOwn) {
   auto plain = blockOf({nextHopTo(1), nextHopTo(2)});
   auto strong = plain;
   auto member = strong.entry(1);
   member.strengthProfile = 3;
   strong.entryIs(1, member);
   auto first = blocks->entryBlockRef(plain);
   auto second = blocks->entryBlockRef(strong);
   EXPECT_NE(first, second);
   loop.runUntilIdle();
   EXPECT_EQ(first->hwEntryIndex(), 0u);
   EXPECT_EQ(second->hwEntryIndex(), 2u);
   namespace Layout = ModelChip::L3UnderlayEcmpMember1Table;
   EXPECT_EQ(Layout::strengthProfile.unpack(chip->table(memberTable)->row(1)), 0u);
   EXPECT_EQ(Layout::strengthProfile.unpack(chip->table(memberTable)->row(3)), 3u);
}

TEST_F(BlockTableTest, ABlockWithoutARunIsTriedAgainByWhoProgramsItOnceMore) {
   auto hop = nextHopTo(1);
   loop.runUntilIdle();
   auto large = blocks->entryBlockRef(blockOf({hop, hop, hop, hop, hop, hop, hop}));
   auto block = blockOf({hop, hop});
   auto refused = blocks->entryBlockRef(block);
   EXPECT_EQ(refused->entryState(), State::failed);
   large = nullptr;
   EXPECT_EQ(refused->entryState(), State::failed);
   blocks->handleEntryBlock(block);
   loop.runUntilIdle();
   EXPECT_EQ(refused->entryState(), State::success);
   EXPECT_TRUE(refused->isHwIndexValid());
   EXPECT_EQ(refused->hwEntryIndex(), 0u);
}

TEST_F(BlockTableTest, EmptyBlockSucceedsWithoutARow) {
   auto handle = blocks->entryBlockRef(Block());
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(handle->hwEntryIndex(), 0u);
   EXPECT_EQ(blocks->indexAllocator()->used(), 0u);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(memberRowsApplied(), IsEmpty());
   EXPECT_EQ(blocks->handles().size(), 0u);
}

TEST_F(BlockTableTest, BlockLargerThan16BitsIsRefused) {
   Block block;
   memberIs(block, 65535, nextHopTo(1));
   try {
      blocks->entryBlockRef(block);
      FAIL() << "a block of 65536 was taken";
   } catch (Nuv::Exception const& refused) {
      EXPECT_STREQ(refused.what(), "Unsupported behavior: entryInternals: 0, blockSize: 65536");
   }
   EXPECT_EQ(blocks->handles().size(), 0u);
}

TEST_F(BlockTableTest, WithoutAFreeRunTheBlockFailsAndHoldsNothing) {
   auto a = nextHopTo(1);
   auto b = nextHopTo(2);
   loop.runUntilIdle();
   Block large;
   for (Asic::Index position = 0; position < 7; ++position) {
      memberIs(large, position, a);
   }
   auto first = blocks->entryBlockRef(large);
   auto refused = blocks->entryBlockRef(blockOf({a, b}));
   EXPECT_EQ(refused->entryState(), State::failed);
   loop.runUntilIdle();
   EXPECT_EQ(refused->hwEntryIndex(), Asic::invalidIndex);
   refused = nullptr;
   first = nullptr;
   auto fits = blocks->entryBlockRef(blockOf({a, b}));
   EXPECT_EQ(fits->entryState(), State::success);
   loop.runUntilIdle();
   EXPECT_TRUE(fits->isHwIndexValid());
   EXPECT_EQ(chip->table(memberTable)->rowsPresent(), 2u);
}

TEST_F(BlockTableTest, FailsWithTheNextHopThatItNeeds) {
   auto broken = interfaces->entryCommit(16, EgrL3Oif2::Entry());
   ASSERT_EQ(broken->entryState(), State::failed);
   auto nextHop = nextHopTo(1, broken);
   EXPECT_EQ(nextHop->entryState(), State::failedNeededEntry);
   auto block = blocks->entryBlockRef(blockOf({nextHopTo(2), nextHop}));
   EXPECT_EQ(block->entryState(), State::failedNeededEntry);
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), State::failedNeededEntry);
   EXPECT_THAT(memberRowsApplied(), IsEmpty());
}

TEST_F(BlockTableTest, BlockResolvesWhenItsFailedNextHopIsWrittenAnew) {
   auto broken = interfaces->entryCommit(16, EgrL3Oif2::Entry());
   auto nextHop = nextHopTo(1, broken);
   auto block = blocks->entryBlockRef(blockOf({nextHop}));
   ASSERT_EQ(block->entryState(), State::failedNeededEntry);
   nextHopTo(1, interface);
   loop.runUntilIdle();
   EXPECT_EQ(nextHop->entryState(), State::success);
   EXPECT_EQ(block->entryState(), State::success);
   EXPECT_TRUE(block->isHwIndexValid());
}

TEST_F(BlockTableTest, ReleasedBlockClearsItsRowsBeforeItsNextHops) {
   auto block = blocks->entryBlockRef(blockOf({nextHopTo(1), nextHopTo(2)}));
   loop.runUntilIdle();
   rowsApplied.clear();
   block = nullptr;
   EXPECT_EQ(blocks->indexAllocator()->used(), 0u);
   EXPECT_EQ(nextHops->handles().size(), 2u);
   loop.runUntilIdle();
   ASSERT_THAT(rowsApplied, SizeIs(6));
   EXPECT_EQ(rowsApplied[0], "L3UnderlayEcmpMember1Table cleared 0");
   EXPECT_EQ(rowsApplied[1], "L3UnderlayEcmpMember1Table cleared 1");
   EXPECT_EQ(nextHops->handles().size(), 0u);
}

TEST_F(BlockTableTest, GroupWaitsUntilEveryRowOfItsBlockIsConfirmed) {
   auto groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   groups->doInit(unit, stateDatabase, chip->chipInfo());
   auto nextHop = nextHopTo(1);
   loop.runUntilIdle();
   auto block = blocks->entryBlockRef(blockOf({nextHop}));
   L3EcmpGroup0Table::Entry entry;
   entry.ecmpBlockPtrHandle = block;
   entry.numPaths = 1;
   auto group = groups->entryCommit({}, entry);
   EXPECT_EQ(block->entryState(), State::success);
   EXPECT_EQ(group->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
}

TEST_F(BlockTableTest, GroupThatMovesKeepsItsOldBlockUntilTheChipHasTheNewRow) {
   auto groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   groups->doInit(unit, stateDatabase, chip->chipInfo());
   L3EcmpGroup0Table::Entry entry;
   entry.ecmpBlockPtrHandle = blocks->entryBlockRef(blockOf({nextHopTo(1)}));
   entry.numPaths = 1;
   groups->entryCommit({}, entry);
   loop.runUntilIdle();
   rowsApplied.clear();
   entry.ecmpBlockPtrHandle = blocks->entryBlockRef(blockOf({nextHopTo(2)}));
   auto group = groups->entryCommit({}, entry);
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_THAT(rowsApplied, ElementsAre("IngL3NextHop2Table written 2", "EgrL3NextHop2 written 2",
                                        "L3UnderlayEcmpMember1Table written 1", "L3EcmpGroup0Table written 0",
                                        "L3UnderlayEcmpMember1Table cleared 0", "EgrL3NextHop2 cleared 1",
                                        "IngL3NextHop2Table cleared 1"));
}

TEST_F(BlockTableTest, DifferentBlockAtTheSameIndexIsANewValueForAGroup) {
   auto groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   groups->doInit(unit, stateDatabase, chip->chipInfo());
   // Empty blocks of two tables are both at index 0.
   auto others = l3UnderlayEcmpMember1TableFactory();
   others->doInit(unit, stateDatabase, chip->chipInfo());
   L3EcmpGroup0Table::Entry entry;
   entry.ecmpBlockPtrHandle = blocks->entryBlockRef(Block());
   auto group = groups->entryCommit({}, entry);
   loop.runUntilIdle();
   StateWatch watch(*group);
   entry.ecmpBlockPtr = 7;
   groups->entryCommit({}, entry);
   EXPECT_THAT(watch.states, IsEmpty());
   auto block = others->entryBlockRef(Block());
   EXPECT_EQ(block->hwEntryIndex(), entry.ecmpBlockPtrHandle->hwEntryIndex());
   entry.ecmpBlockPtrHandle = block;
   groups->entryCommit({}, entry);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress, State::success));
}

TEST_F(BlockTableTest, RunStaysTakenWhileAnotherTableUsesTheSameBlock) {
   auto others = l3UnderlayEcmpMember1TableFactory();
   others->doInit(unit, stateDatabase, chip->chipInfo());
   EXPECT_EQ(others->indexAllocator(), blocks->indexAllocator());
   auto block = blockOf({nextHopTo(1), nextHopTo(2)});
   auto here = blocks->entryBlockRef(block);
   auto there = others->entryBlockRef(block);
   loop.runUntilIdle();
   EXPECT_EQ(here->hwEntryIndex(), there->hwEntryIndex());
   here = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(blocks->indexAllocator()->used(), 2u);
   EXPECT_TRUE(chip->table(memberTable)->hasRow(0));
   there = nullptr;
   EXPECT_EQ(blocks->indexAllocator()->used(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(chip->table(memberTable)->rowsPresent(), 0u);
}

using BlockTableDeathTest = BlockTableTest;

TEST_F(BlockTableDeathTest, ATableSyncsBeforeItsFirstBlockAndWithItsHardware) {
   auto block = blocks->entryBlockRef(Block());
   EXPECT_DEATH(blocks->syncEntries(), "SwTableAccessor:[0-9]+: .*!swTable_->resolvedEntryBlocks\\(\\)");
   EXPECT_DEATH(l3UnderlayEcmpMember1TableFactory()->syncEntries(),
                "SwTableAccessor:[0-9]+: .*hwTable\\(\\)");
}

TEST_F(BlockTableDeathTest, WhatWaitsDoesNotResolve) {
   auto block = blockOf({nextHopTo(1)});
   auto handle = blocks->entryBlockRef(block);
   auto waiting = blocks->unresolvedEntryBlock(block);
   ASSERT_TRUE(waiting);
   EXPECT_DEATH(waiting->doResolve(), "SwTableAccessor:[0-9]+: .*ue->neededEntryHandleSms\\(\\) == "
                                      "0.*function should not have been called");
}

TEST_F(BlockTableDeathTest, ACommittedBlockDoesNotEnd) {
   auto block = blockOf({nextHopTo(1)});
   blocks->entryBlockCommit(block);
   auto& handle = const_cast<L3UnderlayEcmpMember1Table::EntryHandle&>(*blocks->entryHandle(block));
   EXPECT_DEATH(handle.referenceDel(), "eh->entryType\\(\\) == EntryHandle::referenceOnly\\(\\).*unexpected "
                                       "entryType");
}

} // namespace
} // namespace ZandorL3Tunnel
