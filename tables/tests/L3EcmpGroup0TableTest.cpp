#include "tables/L3EcmpGroup0Table.h"

#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "platform/asic/DontCareHandle.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Entry = L3EcmpGroup0Table::Entry;
using Type = L3EcmpGroup0Table::EntryHandle::EntryType;

ZandorL3Common::L3AdjIdKey
adjacency(std::uint32_t id) {
   ZandorL3Common::L3AdjIdKey key;
   key.id = id;
   return key;
}

/// Groups over blocks of real next hops. Interface 16 lies outside its table: whoever needs it fails.
class L3EcmpGroup0TableTest : public ModelChip::ChipTest {
 protected:
   using Block = L3UnderlayEcmpMember1Table::EntryBlock;

   explicit L3EcmpGroup0TableTest(ModelChip::Chip::Sizes const& sizes = {{"EgrL3Oif2", 16},
                                                                         {"L3EcmpGroup0Table", 4}})
       : ChipTest(sizes) {
      chip->faultsIs(faults);
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      groups->doInit(unit, stateDatabase, chip->chipInfo());
      interfaces->entryCommit(1, {});
      interfaces->entryCommit(16, {});
      loop.runUntilIdle();
      rowsApplied.clear();
   }

   Handle nextHop(std::uint16_t port, Asic::Index over = 1) {
      L3UnderlayNextHopKey key;
      key.l2If = {port};
      IngL3NextHop2Table::Entry ing;
      ing.destinationId = port;
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(over);
      return nextHops->entryRef(key, ing, egr);
   }

   Handle blockOver(std::initializer_list<Handle> hops) {
      Block block;
      for (auto const& hop : hops) {
         L3UnderlayEcmpMember1Table::Entry member;
         member.underlayEcmpNextHopIndexHandle = hop;
         block.entryIs(block.size(), member);
      }
      return blocks->entryBlockRef(block);
   }

   static Entry groupOver(Handle const& block, std::uint16_t paths = 1) {
      Entry entry;
      entry.ecmpBlockPtrHandle = block;
      entry.numPaths = paths;
      return entry;
   }

   std::uint16_t blockInChip(Asic::Index row) const {
      auto words = chip->table("L3EcmpGroup0Table")->row(row);
      return std::uint16_t(ModelChip::L3EcmpGroup0Table::ecmpBlock.unpack(words));
   }

   std::vector<Pelm::String> rowsSince() {
      loop.runUntilIdle();
      return std::exchange(rowsApplied, {});
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks = l3UnderlayEcmpMember1TableFactory();
   Nuv::Ptr<L3EcmpGroup0Table> groups = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
};

TEST_F(L3EcmpGroup0TableTest, AnEntryIsSetWhenItDiffersFromAnEmptyOneInWhatMakesIt) {
   Entry entry;
   EXPECT_FALSE(bool(entry));
   entry.ecmpBlockPtr = 7;
   EXPECT_FALSE(bool(entry)) << "the index follows from the handle";
   entry.lbMode = 1;
   EXPECT_TRUE(bool(entry));
   entry = {};
   entry.numPaths = 1;
   EXPECT_TRUE(bool(entry));
   entry = {};
   entry.ecmpBlockPtrHandle = SwTableWorkaround::dontCareHandle(0);
   EXPECT_TRUE(bool(entry));
}

TEST_F(L3EcmpGroup0TableTest, EntriesAreEqualAndOrderedByHandleModeAndPaths) {
   // Older handles come first, whatever their addresses are.
   auto first = blockOver({nextHop(1)});
   auto second = blockOver({nextHop(2)});
   Entry const a = groupOver(first, 9);
   Entry b = groupOver(second);
   EXPECT_TRUE(a < b && !(b < a) && !(a == b));
   b = a;
   b.ecmpBlockPtr = 5;
   EXPECT_TRUE(a == b && !(a < b) && !(b < a));
   EXPECT_EQ(a.hash(1), b.hash(1));
   b.lbMode = 1;
   b.numPaths = 0;
   EXPECT_TRUE(a < b && !(b < a));
   b = a;
   b.numPaths = 10;
   EXPECT_TRUE(a < b && !(b < a));
}

TEST_F(L3EcmpGroup0TableTest, TellsWhatKindOfTableItIs) {
   EXPECT_TRUE(L3EcmpGroup0Table::responseNeeded());
   EXPECT_TRUE(L3EcmpGroup0Table::isExternalKeyType());
   EXPECT_EQ(L3EcmpGroup0Table::numDependentFields(), 1u);
   EXPECT_EQ(Entry::getBlockSize(), 1u);
   EXPECT_EQ(groups->maxIndex(), 3u);
   EXPECT_EQ(groups->indexAllocator()->numEntries(), 4u);
   auto other = l3EcmpGroup0TableFactory("other");
   EXPECT_FALSE(other->indexAllocator());
   EXPECT_EQ(other->numEntries(), Asic::invalidIndex);
}

TEST_F(L3EcmpGroup0TableTest, TakesItsIndicesFromAnAllocatorOfItsOwn) {
   auto block = blockOver({nextHop(1)});
   loop.runUntilIdle();
   for (std::uint32_t id = 10; id < 14; ++id) {
      EXPECT_EQ(groups->entryCommit(adjacency(id), groupOver(block))->hwEntryIndex(), id - 10);
      EXPECT_EQ(groups->hwIndexOnlyForCrossAgentCommunication(adjacency(id)), id - 10);
   }
   EXPECT_EQ(groups->hwIndexOnlyForCrossAgentCommunication(adjacency(9)), Asic::invalidIndex);
   auto none = groups->entryCommit(adjacency(14), groupOver(block));
   EXPECT_EQ(none->entryState(), State::failed);
   EXPECT_EQ(groups->hwIndexOnlyForCrossAgentCommunication(adjacency(14)), Asic::invalidIndex);
   loop.runUntilIdle();
   groups->entryRemove(adjacency(11));
   EXPECT_EQ(groups->indexAllocator()->free(), 0u) << "until the row is cleared";
   loop.runUntilIdle();
   EXPECT_EQ(groups->indexAllocator()->free(), 1u);
   auto after = groups->entryCommit(adjacency(15), groupOver(block));
   EXPECT_EQ(after->hwEntryIndex(), 1u);
   none = after = nullptr;
   groups->entryRemoveAll();
   loop.runUntilIdle();
   EXPECT_EQ(groups->indexAllocator()->used(), 0u);
   EXPECT_EQ(groups->handles().size(), 0u);
}

TEST_F(L3EcmpGroup0TableTest, WaitsUntilTheChipHasEveryRowOfItsBlock) {
   auto hops = {nextHop(1), nextHop(2)};
   loop.runUntilIdle();
   faults->hold({"L3UnderlayEcmpMember1Table", {}, {}});
   auto block = blockOver(hops);
   auto group = groups->entryCommit(adjacency(7), groupOver(block, 2));
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), State::success) << "complete with its write";
   EXPECT_EQ(group->entryState(), State::unresolved);
   EXPECT_TRUE(faults->releaseAnswer(1));
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::unresolved);
   faults->stop();
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_EQ(groups->resolvedEntry(adjacency(7))->ecmpBlockPtr, 0u);
}

TEST_F(L3EcmpGroup0TableTest, FailsWithItsBlockWhileItWaitsAndComesBackWithIt) {
   auto hop = nextHop(1, 16);
   auto block = blockOver({hop});
   EXPECT_EQ(block->entryState(), State::failedNeededEntry);
   std::vector<State> heard;
   auto group = groups->entryCommitWithResponseHandler(adjacency(7), groupOver(block),
                                                       [&](State state) { heard.push_back(state); });
   EXPECT_EQ(group->entryState(), State::failedNeededEntry);
   nextHop(1);
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), State::success);
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_THAT(heard, ElementsAre(State::failedNeededEntry, State::inProgress, State::success));
}

TEST_F(L3EcmpGroup0TableTest, ABlockThatFailsLaterFailsTheGroupThatWaitsForIt) {
   auto hop = nextHop(1);
   loop.runUntilIdle();
   faults->refuse({"L3UnderlayEcmpMember1Table", {}, true}, 1);
   auto block = blockOver({hop});
   auto group = groups->entryCommit(adjacency(7), groupOver(block));
   ModelChip::StateWatch watch(*group);
   EXPECT_EQ(group->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_EQ(block->entryState(), State::failed);
   EXPECT_THAT(watch.states, ElementsAre(State::failedNeededEntry));
   // A block is written again when it is asked for anew.
   group = nullptr;
   groups->entryRemove(adjacency(7));
   block = nullptr;
   loop.runUntilIdle();
   group = groups->entryCommit(adjacency(7), groupOver(blockOver({hop})));
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
}

TEST_F(L3EcmpGroup0TableTest, ABlockWithoutARunFailsItsGroupUntilThatIsGivenAnother) {
   auto hop = nextHop(1);
   Block large;
   L3UnderlayEcmpMember1Table::Entry member;
   member.underlayEcmpNextHopIndexHandle = hop;
   blocks->indexAllocator()->numEntriesIs(2);
   for (Asic::Index position = 0; position < 3; ++position) {
      large.entryIs(position, member);
   }
   auto failed = blocks->entryBlockRef(large);
   auto group = groups->entryCommit(adjacency(7), groupOver(failed, 3));
   loop.runUntilIdle();
   EXPECT_EQ(failed->entryState(), State::failed);
   EXPECT_EQ(group->entryState(), State::failedNeededEntry);
   groups->entryCommit(adjacency(7), groupOver(blockOver({hop})));
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
}

TEST_F(L3EcmpGroup0TableTest, OneThatMovesKeepsTheOldBlocksRowsUntilTheChipHasConfirmedItsOwn) {
   auto group = groups->entryCommit(adjacency(7), groupOver(blockOver({nextHop(1)})));
   rowsSince();
   faults->hold({"L3EcmpGroup0Table", {}, {}});
   groups->entryCommit(adjacency(7), groupOver(blockOver({nextHop(2)})));
   EXPECT_EQ(blocks->handles().size(), 2u) << "the old one is held by its row alone";
   EXPECT_THAT(rowsSince(),
               ElementsAre("IngL3NextHop2Table written 2", "EgrL3NextHop2 written 2",
                           "L3UnderlayEcmpMember1Table written 1", "L3EcmpGroup0Table written 0"));
   EXPECT_EQ(blockInChip(0), 1u);
   EXPECT_EQ(group->entryState(), State::inProgress);
   EXPECT_EQ(blocks->handles().size(), 2u) << "no answer, so the row before may be in force still";
   faults->stop();
   EXPECT_THAT(rowsSince(), ElementsAre("L3UnderlayEcmpMember1Table cleared 0", "EgrL3NextHop2 cleared 1",
                                        "IngL3NextHop2Table cleared 1"));
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_EQ(blocks->handles().size(), 1u);
}

TEST_F(L3EcmpGroup0TableTest, AMoveThatIsRefusedLeavesTheOldBlockInForceAndHeld) {
   auto group = groups->entryCommit(adjacency(7), groupOver(blockOver({nextHop(1)})));
   rowsSince();
   faults->refuse({"L3EcmpGroup0Table", {}, true}, 1);
   auto second = blockOver({nextHop(2)});
   groups->entryCommit(adjacency(7), groupOver(second));
   rowsSince();
   EXPECT_EQ(group->entryState(), State::failed);
   EXPECT_EQ(blockInChip(0), 0u);
   EXPECT_EQ(blocks->handles().size(), 2u);
   groups->entryCommit(adjacency(7), groupOver(second, 1));
   EXPECT_THAT(rowsSince(), IsEmpty()) << "an equal entry is not tried again";
   auto other = groupOver(second);
   other.lbMode = 1;
   groups->entryCommit(adjacency(7), other);
   rowsSince();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_EQ(blockInChip(0), 1u);
   EXPECT_EQ(blocks->handles().size(), 1u);
}

TEST_F(L3EcmpGroup0TableTest, AMoveToABlockThatFailsLeavesTheOldRow) {
   auto first = blockOver({nextHop(1)});
   auto group = groups->entryCommit(adjacency(7), groupOver(first));
   rowsSince();
   groups->entryCommit(adjacency(7), groupOver(blockOver({nextHop(2, 16)})));
   rowsSince();
   EXPECT_EQ(group->entryState(), State::failedNeededEntry);
   EXPECT_EQ(blockInChip(0), 0u);
   EXPECT_EQ(groups->resolvedEntry(adjacency(7)), groupOver(first));
   groups->entryCommit(adjacency(7), groupOver(first));
   EXPECT_THAT(rowsSince(), ElementsAre("IngL3NextHop2Table cleared 2")) << "the group's row is as it was";
   EXPECT_EQ(group->entryState(), State::success);
}

TEST_F(L3EcmpGroup0TableTest, ABlockWhoseIndexChangedIsNoNewValueAndAnotherBlockIs) {
   auto block = blockOver({nextHop(1)});
   auto group = groups->entryCommit(adjacency(7), groupOver(block));
   loop.runUntilIdle();
   ModelChip::StateWatch watch(*group);
   const_cast<Asic::SwTableBase::EntryHandle&>(*block).hwEntryIndexIs(3);
   groups->entryCommit(adjacency(7), groupOver(block));
   EXPECT_THAT(watch.states, IsEmpty());
   auto entry = groupOver(block);
   entry.lbMode = 1;
   groups->entryCommit(adjacency(7), entry);
   EXPECT_EQ(groups->resolvedEntry(adjacency(7))->ecmpBlockPtr, 3u) << "read with the next new value";
   const_cast<Asic::SwTableBase::EntryHandle&>(*block).hwEntryIndexIs(0);
   entry.lbMode = 2;
   groups->entryCommit(adjacency(7), entry);
   chip->rowObserverIs({});
   loop.runUntilIdle();
   watch.states.clear();
   auto other = blockOver({nextHop(2)});
   loop.runUntilIdle();
   groups->entryCommit(adjacency(7), groupOver(other));
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::unresolved, State::inProgress, State::success));
}

TEST_F(L3EcmpGroup0TableTest, TracesAGroupThatWaitsResolvesAndEnds) {
   auto hop = nextHop(1);
   loop.runUntilIdle();
   auto block = blockOver({hop});
   Pelm::String const key = Nuv::text(adjacency(7));
   auto const name = groups->tblName();
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto group = groups->entryCommit(adjacency(7), groupOver(block));
   EXPECT_EQ(trace.count(name + " : Writing entry : " + Nuv::text(groupOver(block)) + ", at key : " + key),
             1u);
   EXPECT_EQ(trace.count(name + " : Writing new entry at key: " + key), 1u);
   EXPECT_EQ(trace.count("UnresolvedEntry resolved"), 0u);
   groups->entryCommit(adjacency(7), groupOver(block));
   EXPECT_EQ(trace.count(name + " : Found existing unresolved entry at key : " + key), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count(name + " UnresolvedEntry resolved at key  : " + key), 1u);
   EXPECT_EQ(trace.count(" All needed entryHandles are already resolved"), 0u) << "it had to wait";
   groups->entryCommit(adjacency(8), groupOver(block));
   EXPECT_EQ(trace.count(name + " All needed entryHandles are already resolved"), 1u);
   auto unwritten = blockOver({nextHop(2)});
   groups->entryCommit(adjacency(7), groupOver(unwritten));
   groups->entryCommit(adjacency(7), groupOver(block));
   EXPECT_EQ(trace.count(name + " : Found already existing resolved entry at key : " + key), 1u);
   EXPECT_EQ(trace.count(name + " : Deleting existing unresolved entry at key : " + key), 1u);
   group = nullptr;
   groups->entryRemove(adjacency(7));
   EXPECT_EQ(trace.count(name + " : Removing entry at key : " + key), 1u);
   EXPECT_EQ(trace.count(name + " begin delete dance, key : " + key), 1u);
   EXPECT_EQ(trace.count("delete dance complete"), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count(name + " delete dance complete, key : " + key), 1u);
   groups->entryRemove(adjacency(7));
   EXPECT_EQ(trace.count(name + " : Found no committed entry at key : " + key), 1u);
   EXPECT_EQ(trace.count("entry handle was not yet assigned"), 0u);
}

TEST_F(L3EcmpGroup0TableTest, SaysWhenAnEntryNamesNoBlock) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto group = groups->entryCommit(adjacency(7), Entry());
   EXPECT_EQ(
         trace.count("Initializating unresolved entry or entry block: entry handle was not yet assigned."),
         1u);
   EXPECT_EQ(group->entryState(), State::inProgress) << "there is nothing to wait for";
   Block block;
   block.entryIs(0, {});
   auto handle = blocks->entryBlockRef(block);
   EXPECT_EQ(
         trace.count("Initializating unresolved entry or entry block: entry handle was not yet assigned."),
         2u);
   chip->rowObserverIs({});
}

/// With more members than 16 bits can number.
class WideBlockTest : public L3EcmpGroup0TableTest {
 protected:
   WideBlockTest() : L3EcmpGroup0TableTest({{"EgrL3Oif2", 16}, {"L3UnderlayEcmpMember1Table", 65600}}) {
      // To follow every row after each of so many would take long.
      chip->rowObserverIs({});
   }

   Handle blockOfMany(Asic::Index size) {
      Block block;
      L3UnderlayEcmpMember1Table::Entry member;
      member.underlayEcmpNextHopIndexHandle = nextHop(1);
      for (Asic::Index position = 0; position < size; ++position) {
         block.entryIs(position, member);
      }
      return blocks->entryBlockRef(block);
   }
};

TEST_F(WideBlockTest, AnIndexThatDoesNotFitFailsTheGroupAndLeavesItsOldRow) {
   auto filler = blockOfMany(65535);
   auto last = blockOver({nextHop(2)});
   auto wide = blockOver({nextHop(3)});
   loop.runUntilIdle();
   ASSERT_EQ(last->hwEntryIndex(), 65535u);
   ASSERT_EQ(wide->hwEntryIndex(), 65536u);
   auto group = groups->entryCommit(adjacency(7), groupOver(last));
   auto fresh = groups->entryCommit(adjacency(8), groupOver(wide));
   EXPECT_EQ(fresh->entryState(), State::failed);
   EXPECT_FALSE(groups->resolvedEntry(adjacency(8)));
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_EQ(blockInChip(0), 65535u);
   groups->entryCommit(adjacency(7), groupOver(wide));
   loop.runUntilIdle();
   EXPECT_EQ(wide->entryState(), State::success) << "it is fine in its own table";
   EXPECT_EQ(group->entryState(), State::failed);
   EXPECT_EQ(blockInChip(0), 65535u);
   EXPECT_EQ(chip->table("L3EcmpGroup0Table")->rowsPresent(), 1u);
   groups->entryCommit(adjacency(7), groupOver(filler));
   loop.runUntilIdle();
   EXPECT_EQ(group->entryState(), State::success);
   EXPECT_EQ(blockInChip(0), 0u);
}

/// What only a fault of the table's own code or of the platform could bring about. The tests make handles
/// and waiting entries by hand, as nobody else does.
class L3EcmpGroup0TableDeathTest : public L3EcmpGroup0TableTest {
 protected:
   using GroupHandle = L3EcmpGroup0Table::EntryHandle;
   using Waiting = L3EcmpGroup0Table::UnresolvedEntry;
   using Value = WaitingValue<L3EcmpGroup0Table, L3EcmpGroup0Table::Key>;

   /// A handle that the table does not know of.
   Nuv::Ptr<GroupHandle> stranger(std::uint32_t id) {
      auto handle = Nuv::make<GroupHandle>(adjacency(id), groups.get());
      handle->entryTypeIs(Type::inDeletion);
      return handle;
   }
};

TEST_F(L3EcmpGroup0TableDeathTest, AWeakReferenceWantsAGroup) {
   groups->entryCommit(adjacency(7), {});
   EXPECT_TRUE(groups->entryWeakRef(adjacency(7)));
   EXPECT_DEATH(groups->entryWeakRef(adjacency(8)),
                "SwTableAccessor:[0-9]+: .*expect a valid entryHandle, key: .*8");
}

TEST_F(L3EcmpGroup0TableDeathTest, AnEntryThatStillWaitsIsNotResolved) {
   auto handle = stranger(7);
   auto waiting = Nuv::make<Waiting>(*handle, Value{groupOver(blockOver({nextHop(1)}))});
   waiting->neededEntryHandleSmIs(waiting->value().entry.ecmpBlockPtrHandle);
   EXPECT_DEATH(waiting->doResolve(), "SwTableAccessor:[0-9]+: .*\"ue->neededEntryHandleSms\\(\\) == 0\".*"
                                      "function should not have been called");
}

TEST_F(L3EcmpGroup0TableDeathTest, ADeletionBeginsWithAHandleThatTheTableKnows) {
   auto handle = Nuv::make<GroupHandle>(adjacency(7), groups.get());
   auto waiting = Nuv::make<Waiting>(*handle, Value{});
   waiting->doResolve();
   ASSERT_TRUE(handle->isResolved());
   EXPECT_DEATH(handle = nullptr, "SwTableAccessor:[0-9]+: .*\"swTable_->entryHandleHas\\( key \\)\"");
   groups->cleanup();
   chip->rowObserverIs({});
   handle->swTableDel();
}

TEST_F(L3EcmpGroup0TableDeathTest, ADeletionThatEndsLeavesNoHandleAtItsKey) {
   groups->entryCommit(adjacency(7), {});
   auto handle = stranger(7);
   handle->entryStateIs(State::inProgress);
   handle->resolvedEntryStateIs(State::inProgress);
   EXPECT_DEATH(handle->handleRowDeleted(),
                "SwTableAccessor:[0-9]+: .*\"!swTable_->entryHandleHas\\( key \\)\"");
   handle->swTableDel();
}

TEST_F(L3EcmpGroup0TableDeathTest, ARowIsClearedForADeletionInProgress) {
   auto handle = stranger(7);
   EXPECT_DEATH(handle->handleRowDeleted(),
                "SwTableAccessor:[0-9]+: .*\"eh->resolvedEntryState\\(\\) == inProgress\\(\\)\"");
   handle->swTableDel();
}

} // namespace
} // namespace ZandorL3Tunnel
