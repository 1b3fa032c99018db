#include "tables/L3NextHop2Table.h"
#include "tables/testing/NextHopTest.h"

namespace ZandorL3Tunnel {
namespace {

using ModelChip::StateWatch;
using testing::ElementsAre;
using testing::IsEmpty;

class L3NextHop2TableTest : public NextHopTest {
 protected:
   L3NextHop2TableTest() : NextHopTest(4, 16) { interface(1); }

   Handle write(std::uint16_t port, std::uint8_t mac = 1, Asic::Index over = 1,
                Asic::AutoRemoveType type = Asic::AutoRemoveType::automatic) {
      return nextHops->entryWrite(keyOf(port), ing(port), egr(mac, over), type);
   }
};

TEST_F(L3NextHop2TableTest, WritesBothHalvesAtOneIndex) {
   auto handle = write(7);
   StateWatch watch(*handle);
   EXPECT_EQ(handle->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_THAT(watch.states, ElementsAre(State::inProgress, State::success));
   EXPECT_EQ(handle->hwEntryIndex(), 1u);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_TRUE(chip->table("IngL3NextHop2Table")->hasRow(1));
   EXPECT_TRUE(chip->table("EgrL3NextHop2")->hasRow(1));
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(7))->destinationId, 7);
   EXPECT_EQ(nextHops->egrL3NextHop2Entry(keyOf(7))->dstMacAddress.bytes[5], 1);
}

TEST_F(L3NextHop2TableTest, ReportsSuccessOnlyAfterBothHalves) {
   loop.runUntilIdle();
   auto handle = write(7);
   EXPECT_EQ(handle->entryState(), State::inProgress);
   auto ing = nextHops->ingL3NextHop2Table()->entryHandle(1);
   auto egr = nextHops->egrL3NextHop2()->entryHandle(1);
   while (handle->entryState() != State::success) {
      EXPECT_FALSE(ing->entryState() == State::success && egr->entryState() == State::success);
      ASSERT_TRUE(loop.runOne());
   }
   EXPECT_EQ(ing->entryState(), State::success);
   EXPECT_EQ(egr->entryState(), State::success);
}

TEST_F(L3NextHop2TableTest, EqualKeysShareOneEntry) {
   auto first = write(7);
   loop.runUntilIdle();
   auto commands = commandsIssued();
   Trace::TraceCapture trace(_defaultTraceHandle());
   StateWatch watch(*first);
   auto second = write(7);
   EXPECT_EQ(first, second);
   EXPECT_EQ(trace.count("entryWriteWithResponseHandler: merged table entry already exists"), 1u);
   EXPECT_THAT(watch.states, IsEmpty());
   EXPECT_EQ(commandsIssued(), commands);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
}

TEST_F(L3NextHop2TableTest, ChangedEgressEntryIsRewrittenAtTheSameIndex) {
   auto handle = write(7, 1);
   loop.runUntilIdle();
   rowsApplied.clear();
   write(7, 2);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(handle->hwEntryIndex(), 1u);
   EXPECT_THAT(rowsApplied, ElementsAre("EgrL3NextHop2 written 1"));
   EXPECT_EQ(nextHops->egrL3NextHop2Entry(keyOf(7))->dstMacAddress.bytes[5], 2);
}

TEST_F(L3NextHop2TableTest, NeverGivesOutIndexZeroAndFailsWhenFull) {
   std::vector<Handle> handles;
   for (std::uint16_t port = 1; port <= 3; ++port) {
      handles.push_back(write(port));
      EXPECT_EQ(nextHops->indexAllocator()->used(), port + 1u);
   }
   auto refused = write(4);
   EXPECT_EQ(refused->entryState(), State::failed);
   loop.runUntilIdle();
   EXPECT_EQ(refused->entryState(), State::failed);
   EXPECT_FALSE(chip->table("IngL3NextHop2Table")->hasRow(0));
   std::set<Asic::Index> indices;
   for (auto const& handle : handles) {
      indices.insert(handle->hwEntryIndex());
   }
   EXPECT_EQ(indices, (std::set<Asic::Index>{1, 2, 3}));
   refused = nullptr;
   EXPECT_FALSE(nextHops->entryHas(keyOf(4)));
}

TEST_F(L3NextHop2TableTest, FreesTheIndexOnceBothHalvesAreGone) {
   auto handle = write(7);
   loop.runUntilIdle();
   auto ing = nextHops->ingL3NextHop2Table()->entryHandle(1);
   Trace::TraceCapture trace(_defaultTraceHandle());
   handle = nullptr;
   EXPECT_EQ(trace.count("handleResolvedEntry: index still used in ingL3NextHop2Table"), 1u);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
   ing = nullptr;
   EXPECT_EQ(trace.count("handleResolvedEntry: freeing index :1"), 1u);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
   loop.runUntilIdle();
   EXPECT_EQ(chip->table("IngL3NextHop2Table")->rowsPresent(), 0u);
   EXPECT_EQ(chip->table("EgrL3NextHop2")->rowsPresent(), 0u);
}

TEST_F(L3NextHop2TableTest, NewKeyMayTakeAFreedIndexWhoseDeletesAreUnanswered) {
   auto first = write(1);
   loop.runUntilIdle();
   first = nullptr;
   auto second = write(2);
   loop.runUntilIdle();
   EXPECT_EQ(second->hwEntryIndex(), 1u);
   EXPECT_EQ(second->entryState(), State::success);
   EXPECT_TRUE(chip->table("IngL3NextHop2Table")->hasRow(1));
   EXPECT_TRUE(chip->table("EgrL3NextHop2")->hasRow(1));
}

TEST_F(L3NextHop2TableTest, EgressHalfAloneWaitsForItsInterface) {
   interfaces->entryCommit(2, EgrL3Oif2::Entry());
   auto handle = write(7, 1, 2);
   EXPECT_EQ(nextHops->ingL3NextHop2Table()->entryHandle(1)->entryState(), State::inProgress);
   EXPECT_EQ(nextHops->egrL3NextHop2()->entryHandle(1)->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(L3NextHop2TableTest, FailsWithTheInterfaceOfItsEgressHalf) {
   interfaces->entryCommit(16, EgrL3Oif2::Entry());
   auto handle = write(7, 1, 16);
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   EXPECT_EQ(nextHops->ingL3NextHop2Table()->entryHandle(1)->entryState(), State::success);
}

TEST_F(L3NextHop2TableTest, CommitStaysUntilItIsRemoved) {
   write(7, 1, 1, Asic::needsExplicitRemove());
   loop.runUntilIdle();
   EXPECT_TRUE(nextHops->entryHas(keyOf(7)));
   nextHops->entryRemove(keyOf(7));
   EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
   write(8, 1, 1, Asic::needsExplicitRemove());
   nextHops->entryRemoveAll();
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->handles().size(), 0u);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

TEST_F(L3NextHop2TableTest, SharesTheChipsAllocatorAndGivesItBack) {
   auto const& shared = chip->chipInfo().sharedAllocators;
   EXPECT_EQ(shared->sharers(L3NextHop2SharedAllocator::staticFwkType()), 1u);
   auto second = l3NextHop2TableFactory();
   second->doInit(unit, stateDatabase, chip->chipInfo());
   EXPECT_EQ(second->indexAllocator(), nextHops->indexAllocator());
   EXPECT_EQ(shared->sharers(L3NextHop2SharedAllocator::staticFwkType()), 2u);
   second->cleanup();
   EXPECT_FALSE(second->indexAllocator());
   nextHops = nullptr;
   EXPECT_EQ(shared->sharers(L3NextHop2SharedAllocator::staticFwkType()), 0u);
}

TEST_F(L3NextHop2TableTest, IndexStaysTakenWhileASecondTableUsesTheKey) {
   auto second = l3NextHop2TableFactory();
   second->doInit(unit, stateDatabase, chip->chipInfo());
   auto first = write(7);
   loop.runUntilIdle();
   IngL3NextHop2Table::Entry ing;
   ing.destinationId = 7;
   auto egr = *nextHops->egrL3NextHop2Entry(keyOf(7));
   auto handle = second->entryWrite(keyOf(7), ing, egr, Asic::AutoRemoveType::automatic);
   loop.runUntilIdle();
   EXPECT_EQ(handle->hwEntryIndex(), first->hwEntryIndex());
   rowsApplied.clear();
   first = nullptr;
   loop.runUntilIdle();
   EXPECT_THAT(rowsApplied, IsEmpty());
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
   auto other = write(8);
   loop.runUntilIdle();
   EXPECT_NE(other->hwEntryIndex(), handle->hwEntryIndex());
}

TEST_F(L3NextHop2TableTest, WriteThatIsOvertakenByItsObserverGivesWay) {
   auto handle = write(7, 10);
   loop.runUntilIdle();
   auto egr = nextHops->egrL3NextHop2()->entryHandle(1);
   StateWatch watch(*egr);
   watch.onState = [&] {
      watch.onState = {};
      write(7, 30);
   };
   write(7, 20);
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->egrL3NextHop2Entry(keyOf(7))->dstMacAddress.bytes[5], 30);
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(L3NextHop2TableTest, HandleOfATableThatIsTakenDownIsValidNoLonger) {
   auto handle = write(7);
   loop.runUntilIdle();
   nextHops->cleanup();
   EXPECT_FALSE(handle->isHwIndexValid());
   EXPECT_FALSE(write(8));
   loop.runUntilIdle();
   EXPECT_EQ(chip->table("IngL3NextHop2Table")->rowsPresent(), 0u);
   EXPECT_EQ(chip->table("EgrL3NextHop2")->rowsPresent(), 0u);
}

TEST_F(L3NextHop2TableTest, RecoversWhenItsEgressHalfIsWrittenAnew) {
   interfaces->entryCommit(16, EgrL3Oif2::Entry());
   interfaces->entryCommit(2, EgrL3Oif2::Entry());
   auto handle = write(7, 1, 16);
   ASSERT_EQ(handle->entryState(), State::failedNeededEntry);
   write(7, 1, 2);
   EXPECT_EQ(handle->entryState(), State::unresolved);
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(L3NextHop2TableTest, PrintsItsEntries) {
   IngL3NextHop2Table::Entry ing;
   ing.destinationId = 65535;
   ing.destinationType = 4;
   ing.strengthProfileIndex = 255;
   EXPECT_EQ(Nuv::text(ing), "Value('ZandorL3Tunnel::IngL3NextHop2Table::Entry', ** {'destinationId': 65535, "
                             "'destinationType': 4, 'strengthProfileIndex': 255})");
   EgrL3NextHop2::Entry egr;
   egr.dstMacAddress = {{2, 0, 0, 0, 0, 1}};
   EXPECT_EQ(Nuv::text(egr), "Value('ZandorL3Tunnel::EgrL3NextHop2::Entry', ** {'l3Oif2Handle': 0x0, "
                             "'l3Oif2': 0, 'dstMacAddress': 02:00:00:00:00:01, 'strengthProfileIndex': 0})");
   EXPECT_EQ(Nuv::text(L3NextHop2Table::MergedEntry()), "None");
}

TEST_F(L3NextHop2TableTest, MergedEntryIsASetOfHandles) {
   write(7, 1, 1, Asic::needsExplicitRemove());
   Handle ing = nextHops->ingL3NextHop2Table()->entryHandle(1);
   Handle egr = nextHops->egrL3NextHop2()->entryHandle(1);
   L3NextHop2Table::MergedEntry forth;
   EXPECT_FALSE(forth);
   forth.mergedEntryHandleIs(ing);
   forth.mergedEntryHandleIs(egr);
   forth.mergedEntryHandleIs(egr);
   L3NextHop2Table::MergedEntry back;
   back.mergedEntryHandleIs(egr);
   back.mergedEntryHandleIs(ing);
   EXPECT_TRUE(forth);
   EXPECT_EQ(forth.mergedEntryHandles(), L3NextHop2Table::MergedEntry::numMemberTables());
   EXPECT_EQ(forth, back);
}

} // namespace
} // namespace ZandorL3Tunnel
