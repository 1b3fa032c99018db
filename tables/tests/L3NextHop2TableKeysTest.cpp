#include "tables/testing/NextHopTest.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Handlers, mapped keys, requested indices, and the machine that gives indices back.
class L3NextHop2TableKeysTest : public NextHopTest {
 protected:
   L3NextHop2TableKeysTest() : NextHopTest(8, 16) {
      interface(1);
      loop.runUntilIdle();
   }

   Asic::SwTableBase::ResponseFunction writeDown() {
      return [this](State state) { heard.push_back(state); };
   }

   void expectNothingLeft() {
      nextHops->entryRemoveAll();
      loop.runUntilIdle();
      EXPECT_EQ(nextHops->handles().size(), 0u);
      EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
      EXPECT_EQ(rowsPresent(), 1u);
   }

   std::vector<State> heard;
};

TEST_F(L3NextHop2TableKeysTest, AHandlerHearsProgressAndOneSuccess) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   nextHops->entryCommitWithResponseHandler(keyOf(7), ing(7), egr(1), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::inProgress));
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
   EXPECT_EQ(trace.count("handleEntryState success callback success"), 1u);
   nextHops->entryCommit(keyOf(7), ing(7), egr(2));
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::inProgress, State::success));
}

TEST_F(L3NextHop2TableKeysTest, AHandlerOfAPairInPlaceHearsTheNextChange) {
   faults->holdAnswers();
   nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   auto commands = commandsIssued();
   nextHops->entryCommitWithResponseHandler(keyOf(7), ing(7), egr(1), writeDown());
   EXPECT_THAT(heard, IsEmpty()) << "the pair is in progress already";
   EXPECT_EQ(commandsIssued(), commands);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u);
   faults->stop();
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::success));
}

TEST_F(L3NextHop2TableKeysTest, AHandlerOfAPairThatIsProgrammedHearsNothing) {
   nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   nextHops->entryCommitWithResponseHandler(keyOf(7), ing(7), egr(1), writeDown());
   loop.runUntilIdle();
   EXPECT_THAT(heard, IsEmpty());
}

TEST_F(L3NextHop2TableKeysTest, AHandlerHearsFailuresEveryTime) {
   interfaces->entryCommit(16, EgrL3Oif2::Entry());
   nextHops->entryCommitWithResponseHandler(keyOf(7), ing(7), egr(1, 16), writeDown());
   loop.runUntilIdle();
   EXPECT_THAT(heard, ElementsAre(State::failedNeededEntry));
   EXPECT_EQ(nextHops->ingL3NextHop2Table()->entryHandle(1)->entryState(), State::success)
         << "the ingress half is not concerned";
   heard.clear();
   nextHops->entryRef(keyOf(7), ing(7), egr(2, 16));
   EXPECT_THAT(heard, IsEmpty()) << "an empty handler replaced it";
}

TEST_F(L3NextHop2TableKeysTest, AFullTableIsReportedToTheHandler) {
   std::vector<Handle> handles;
   for (std::uint16_t port = 1; port < 8; ++port) {
      handles.push_back(nextHops->entryRef(keyOf(port), ing(port), egr(1)));
   }
   nextHops->entryCommitWithResponseHandler(keyOf(8), ing(8), egr(1), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::failed));
   EXPECT_FALSE(nextHops->ingL3NextHop2TableEntry(keyOf(8)));
}

TEST_F(L3NextHop2TableKeysTest, ARefusedHalfFailsThePairAndItRecovers) {
   for (auto const* half : {"IngL3NextHop2Table", "EgrL3NextHop2"}) {
      faults->refuse({half, {}, true}, 1);
      auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::failed) << half;
      EXPECT_FALSE(handle->isHwIndexValid());
      nextHops->entryRef(keyOf(7), ing(8), egr(2));
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success) << half;
      EXPECT_TRUE(handle->isHwIndexValid());
      handle = nullptr;
      loop.runUntilIdle();
   }
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, SuccessWaitsForTheAnswersOfBothHalvesInEitherOrder) {
   for (std::uint32_t first : {0u, 1u}) {
      faults->holdAnswers();
      auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::inProgress);
      EXPECT_TRUE(faults->releaseAnswer(first));
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::inProgress);
      EXPECT_TRUE(faults->releaseAnswer(1 - first));
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success);
      faults->stop();
      handle = nullptr;
      loop.runUntilIdle();
   }
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, AMappedKeyStandsForTheOthersEntry) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   auto commands = commandsIssued();
   EXPECT_EQ(nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove()), handle);
   EXPECT_EQ(nextHops->mappedEntryHandle(keyOf(8)), handle);
   EXPECT_EQ(nextHops->entryHandle(keyOf(8)), handle);
   EXPECT_EQ(nextHops->hwIndexOnlyForCrossAgentCommunication(keyOf(8)), 1u);
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(8)), ing(7));
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u) << "no index is taken";
   EXPECT_EQ(commandsIssued(), commands) << "nothing is written";
   EXPECT_FALSE(nextHops->mappedEntryHandle(keyOf(7)));
}

TEST_F(L3NextHop2TableKeysTest, AMappingHoldsTheEntryUntilItIsRemoved) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   nextHops->entryMapToKey(keyOf(9), keyOf(8), Asic::needsExplicitRemove());
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_TRUE(nextHops->entryHas(keyOf(7)));
   nextHops->entryRemove(keyOf(8));
   EXPECT_FALSE(nextHops->entryHas(keyOf(8)));
   EXPECT_TRUE(nextHops->entryHas(keyOf(7)));
   nextHops->entryRemove(keyOf(9));
   EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, RemovingAMappedKeyLeavesTheCommitAlone) {
   nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   nextHops->entryRemove(keyOf(8));
   loop.runUntilIdle();
   EXPECT_TRUE(nextHops->entryHas(keyOf(7)));
   nextHops->entryRemove(keyOf(7));
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, TheMappedEntryMayBeRemovedFirst) {
   nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   nextHops->entryRemove(keyOf(7));
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->entryHandle(keyOf(8))->entryState(), State::success);
   nextHops->entryRemove(keyOf(8));
   EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, AKeyWithAnEntryOfItsOwnMayStandForAnothers) {
   auto own = nextHops->entryCommit(keyOf(8), ing(8), egr(2));
   auto other = nextHops->entryCommit(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   EXPECT_EQ(nextHops->entryHandle(keyOf(8)), other);
   EXPECT_EQ(nextHops->entryCommit(keyOf(8), ing(9), egr(2)), own) << "written is its own";
   loop.runUntilIdle();
   EXPECT_EQ(own->entryState(), State::success);
   EXPECT_NE(own->hwEntryIndex(), other->hwEntryIndex());
   nextHops->entryRemove(keyOf(8));
   EXPECT_EQ(nextHops->entryHandle(keyOf(8)), own) << "only the mapping went";
   EXPECT_EQ(nextHops->entryHandle(keyOf(8))->entryType(), L3NextHop2Table::EntryHandle::committed());
   own = other = nullptr;
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, AMappingMayBeMadeAndTakenBackWhileItsEntryEnds) {
   for (auto at : {State::inProgress, State::success}) {
      nextHops->entryCommitWithResponseHandler(keyOf(7), ing(7), egr(1), [&, at](State state) {
         if (state == at) {
            nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
            nextHops->entryRemove(keyOf(7));
         }
      });
      loop.runUntilIdle();
      ASSERT_TRUE(nextHops->entryHas(keyOf(8)));
      EXPECT_EQ(nextHops->entryHandle(keyOf(8))->entryState(), State::success) << "the mapping holds it";
      EXPECT_EQ(nextHops->entryHandle(keyOf(7)), nextHops->entryHandle(keyOf(8)));
      nextHops->entryRemove(keyOf(8));
      EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
      // The rows' deletes are on their way: a fresh entry and a fresh mapping of the same keys.
      auto fresh = nextHops->entryRef(keyOf(7), ing(7), egr(1));
      EXPECT_EQ(nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove()), fresh);
      fresh = nullptr;
      loop.runUntilIdle();
      EXPECT_EQ(nextHops->entryHandle(keyOf(8))->entryState(), State::success);
      nextHops->entryRemove(keyOf(8));
      loop.runUntilIdle();
      EXPECT_EQ(nextHops->handles().size(), 0u);
   }
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, AFreeIndexThatIsAskedForIsTheKeysUntilBothHalvesAreGone) {
   auto first = nextHops->entryWriteAtIndex(7, keyOf(7), ing(7), egr(1));
   auto second = nextHops->entryRef(keyOf(8), ing(8), egr(1));
   EXPECT_EQ(second->hwEntryIndex(), 1u) << "others have the lowest ones";
   loop.runUntilIdle();
   EXPECT_EQ(first->hwEntryIndex(), 7u);
   nextHops->entryRemove(keyOf(7));
   first = nullptr;
   EXPECT_EQ(nextHops->entryWriteAtIndex(7, keyOf(9), ing(9), egr(1))->hwEntryIndex(), 7u);
   second = nullptr;
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, TracesItsStatesAndWhoStillUsesAnIndex) {
   Trace::TraceCapture trace(_defaultTraceHandle());
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("handleEntryState : inProgress"), 1u);
   EXPECT_EQ(trace.count("handleEntryState : success"), 1u);
   EXPECT_EQ(trace.count(" success callback "), 0u) << "there is no handler";
   auto egress = nextHops->egrL3NextHop2()->entryHandle(1);
   handle = nullptr;
   EXPECT_EQ(trace.count("handleResolvedEntry: index still used in egrL3NextHop2"), 1u);
   EXPECT_EQ(trace.count("freeing index"), 0u);
   egress = nullptr;
   EXPECT_EQ(trace.count("handleResolvedEntry: freeing index :1"), 1u);
   loop.runUntilIdle();
   EXPECT_EQ(trace.count("freeing index"), 1u) << "once";
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, AKeyMappedAnewLetsTheFormerGo) {
   auto first = nextHops->entryRef(keyOf(1), ing(1), egr(1));
   auto second = nextHops->entryRef(keyOf(2), ing(2), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(1), Asic::needsExplicitRemove());
   nextHops->entryMapToKey(keyOf(8), keyOf(2), Asic::needsExplicitRemove());
   first = nullptr;
   EXPECT_FALSE(nextHops->entryHas(keyOf(1)));
   EXPECT_EQ(nextHops->mappedEntryHandles(), 1u);
   nextHops->entryMapToKey(keyOf(8), keyOf(2), Asic::needsExplicitRemove());
   second = nullptr;
   EXPECT_TRUE(nextHops->entryHas(keyOf(2)));
   expectNothingLeft();
}

// A table that only a mapping leads back to would never end.
TEST_F(L3NextHop2TableKeysTest, AMappingKeepsNoTableAlive) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->references(), 1u);
   nextHops = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 1u);
   EXPECT_EQ(handle->references(), 1u);
}

TEST_F(L3NextHop2TableKeysTest, ARemovedMappingLetsTheHandleKeepItsTableAgain) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::needsExplicitRemove());
   nextHops->entryRemove(keyOf(8));
   nextHops = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(rowsPresent(), 3u);
   handle = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(rowsPresent(), 1u);
}

TEST_F(L3NextHop2TableKeysTest, AnEntryIsWrittenAtTheIndexThatIsAskedFor) {
   auto handle = nextHops->entryWriteAtIndex(5, keyOf(7), ing(7), egr(1));
   EXPECT_EQ(nextHops->entryHandle(keyOf(7))->entryType(), L3NextHop2Table::EntryHandle::committed());
   EXPECT_EQ(handle->hwEntryIndex(), 5u);
   EXPECT_EQ(nextHops->entryWriteAtIndex(5, keyOf(7), ing(7), egr(2))->hwEntryIndex(), 5u) << "its own";
   EXPECT_EQ(nextHops->entryWriteAtIndex(5, keyOf(8), ing(8), egr(1))->hwEntryIndex(), 1u) << "taken";
   EXPECT_EQ(nextHops->entryWriteAtIndex(0, keyOf(9), ing(9), egr(1))->hwEntryIndex(), 2u) << "reserved";
   EXPECT_EQ(nextHops->entryWriteAtIndex(6, keyOf(7), ing(7), egr(2))->hwEntryIndex(), 5u) << "has another";
   EXPECT_EQ(nextHops->entryWriteAtIndex(8, keyOf(10), ing(10), egr(1))->hwEntryIndex(), 3u) << "not there";
   handle = nullptr;
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, TheDeallocatorsReactorsGoOnAndOffTogether) {
   auto const& sm = nextHops->indexDeallocatorSm();
   EXPECT_TRUE(sm->mergedTableSmActive() && sm->ingSmActive() && sm->egrSmActive());
   sm->hasNotificationActiveIs(false);
   EXPECT_FALSE(sm->mergedTableSmActive() || sm->ingSmActive() || sm->egrSmActive());
   nextHops->entryRef(keyOf(7), ing(7), egr(1));
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u) << "silent, it frees nothing";
   sm->hasNotificationActiveIs(true);
   nextHops->entryRef(keyOf(7), ing(7), egr(1));
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, TheDeallocatorFollowsANewMemberTable) {
   auto other = nextHops->ingL3NextHop2TableIs();
   other->doInit(unit, stateDatabase, chip->chipInfo());
   nextHops->entryRef(keyOf(7), ing(7), egr(1));
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
   nextHops->ingL3NextHop2TableDel();
   EXPECT_FALSE(nextHops->ingL3NextHop2Table());
   nextHops->ingL3NextHop2TableIs()->doInit(unit, stateDatabase, chip->chipInfo());
   nextHops->entryRef(keyOf(7), ing(7), egr(1));
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, ShowsThePairThatIsInPlaceAndTheOneThatIsWaitedFor) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   EXPECT_FALSE(nextHops->mergedEntry(keyOf(7)));
   EXPECT_TRUE(nextHops->unresolvedMergedEntry(keyOf(7)));
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->mergedEntry(keyOf(7)).mergedEntryHandles(), 2u);
   EXPECT_FALSE(nextHops->unresolvedMergedEntry(keyOf(7)));
   EXPECT_FALSE(nextHops->mergedEntry(keyOf(8)));
}

TEST_F(L3NextHop2TableKeysTest, AMergedEntryLosesItsHandles) {
   auto first = nextHops->ingL3NextHop2Table()->entryRef(1, ing(1));
   auto second = nextHops->ingL3NextHop2Table()->entryRef(2, ing(1));
   L3NextHop2Table::MergedEntry entry;
   entry.mergedEntryHandleIs(first);
   entry.mergedEntryHandleIs(second);
   entry.mergedEntryHandleDel(first);
   EXPECT_EQ(entry.mergedEntryHandles(), 1u);
   EXPECT_EQ(*entry.begin(), second);
   entry.mergedEntryHandleDel(first);
   EXPECT_EQ(entry.mergedEntryHandles(), 1u);
   entry.mergedEntryHandleIs(first);
   entry.mergedEntryHandleDelAll();
   EXPECT_FALSE(entry);
}

TEST_F(L3NextHop2TableKeysTest, AnEgressEntryIsTrueWhenItDiffersFromAnEmptyOne) {
   EgrL3NextHop2::Entry entry;
   EXPECT_FALSE(entry);
   entry.l3Oif2 = U13(7);
   EXPECT_FALSE(entry) << "what follows from the handle does not count";
   entry.strengthProfileIndex = 1;
   EXPECT_TRUE(entry);
}

TEST_F(L3NextHop2TableKeysTest, AFormerPairThatIsThereAgainDoesNotAnswerForANewOne) {
   auto handle = nextHops->entryRef(keyOf(7), ing(1), egr(1));
   loop.runUntilIdle();
   interfaces->entryCommit(2, EgrL3Oif2::Entry());
   nextHops->entryRef(keyOf(7), ing(1), egr(2, 2));
   auto commit = nextHops->entryCommitWithResponseHandler(keyOf(7), ing(2), egr(1), writeDown());
   EXPECT_THAT(heard, testing::Not(testing::Contains(State::success)));
   loop.runUntilIdle();
   EXPECT_THAT(heard, testing::Contains(State::success));
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(7)), ing(2));
}

TEST_F(L3NextHop2TableKeysTest, AnObserverThatThrowsCostsNeitherHalfNorIndex) {
   struct Thrower final : ResolvedEntryNotifiee<Asic::Index> {
      void handleResolvedEntry(Asic::Index const&) override { throw std::runtime_error("observer"); }
   };
   Thrower thrower;
   nextHops->ingL3NextHop2Table()->resolvedEntryNotifiees().notifieeIs(thrower);
   EXPECT_THROW(nextHops->entryCommit(keyOf(7), ing(7), egr(1)), std::runtime_error);
   thrower.leave();
   auto other = nextHops->entryRef(keyOf(8), ing(8), egr(2));
   loop.runUntilIdle();
   auto handle = nextHops->entryHandle(keyOf(7));
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_NE(handle->hwEntryIndex(), other->hwEntryIndex());
   handle = nullptr;
   other = nullptr;
   expectNothingLeft();
}

TEST_F(L3NextHop2TableKeysTest, ASecondRequestOnAFullTableIsToldToo) {
   std::vector<Handle> handles;
   for (std::uint16_t port = 1; port < 8; ++port) {
      handles.push_back(nextHops->entryRef(keyOf(port), ing(port), egr(1)));
   }
   auto refused = nextHops->entryRef(keyOf(8), ing(8), egr(1));
   nextHops->entryCommitWithResponseHandler(keyOf(8), ing(8), egr(1), writeDown());
   EXPECT_THAT(heard, ElementsAre(State::failed));
}

TEST_F(L3NextHop2TableKeysTest, WithoutHardwareItHandsOutIndicesAllTheSame) {
   auto plain = l3NextHop2TableFactory();
   auto elsewhere = Nuv::make<Kallo::EntityManager>();
   Asic::ChipInfo noChip;
   noChip.sharedAllocators = Nuv::make<Asic::SharedAllocators>();
   plain->doInit(unit, elsewhere, noChip);
   EXPECT_NE(plain->entryRef(keyOf(7), ing(7), egr(1))->entryState(), State::failed);
}

TEST_F(L3NextHop2TableKeysTest, WithoutItsMemberTablesItTakesNothing) {
   auto bare = l3NextHop2TableFactory();
   EXPECT_EQ(bare->numEntries(), Asic::invalidIndex);
   EXPECT_FALSE(bare->entryRef(keyOf(7), ing(7), egr(1)));
   EXPECT_FALSE(bare->ingL3NextHop2TableEntry(keyOf(7)));
   bare->doPublishHwTableMountInfo();
}

TEST_F(L3NextHop2TableKeysTest, AHalfTakenBackIntoUseHasNoIndexUntilItHasARow) {
   auto first = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   loop.runUntilIdle();
   first = nullptr;
   interfaces->entryCommit(2, EgrL3Oif2::Entry());
   auto second = nextHops->entryRef(keyOf(8), ing(8), egr(2, 2));
   EXPECT_EQ(second->entryState(), State::unresolved) << "its egress half has no row yet";
   loop.runUntilIdle();
   EXPECT_EQ(second->entryState(), State::success);
   second = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

using L3NextHop2TableKeysDeathTest = L3NextHop2TableKeysTest;

TEST_F(L3NextHop2TableKeysDeathTest, MappingWantsTwoKeysAndAnEntryAndExplicitRemoval) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   EXPECT_DEATH(nextHops->entryMapToKey(keyOf(7), keyOf(7), Asic::needsExplicitRemove()),
                "existingKey != newKey.*new and existing key can't be same");
   EXPECT_DEATH(nextHops->entryMapToKey(keyOf(8), keyOf(7), Asic::AutoRemoveType::automatic),
                "autoRemoveType == Asic::needsExplicitRemove\\(\\).* Only explicit remove supported with "
                "entryMapToKey");
   EXPECT_DEATH(nextHops->entryMapToKey(keyOf(8), keyOf(9), Asic::needsExplicitRemove()),
                "eh.*Expected to see an entryhandle at existingKey");
}

TEST_F(L3NextHop2TableKeysDeathTest, NoTextMakesAMergedEntryOrABlock) {
   L3NextHop2Table::MergedEntry entry;
   Nuv::TextRange none("None");
   EXPECT_DEATH(parseText(none, entry), "No String constructor for MergedEntry - has collection");
}

TEST_F(L3NextHop2TableKeysDeathTest, AMergedEntryThatIsNotWholeIsNotResolved) {
   auto handle = nextHops->entryRef(keyOf(7), ing(7), egr(1));
   auto& mutableHandle = const_cast<L3NextHop2Table::EntryHandle&>(*nextHops->entryHandle(keyOf(7)));
   auto waiting = Nuv::make<L3NextHop2Table::UnresolvedMergedEntry>(mutableHandle);
   EXPECT_DEATH(
         waiting->initUnresolvedMergedEntry({}),
         "entry.mergedEntryHandles\\(\\) == MergedEntry::numMemberTables\\(\\).*All member tables are not "
         "filled");
   EXPECT_DEATH(mutableHandle.entryStateIs(State(6)), "0.*unexpected entryState");
}

} // namespace
} // namespace ZandorL3Tunnel
