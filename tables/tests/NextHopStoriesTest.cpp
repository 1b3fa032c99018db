#include "tables/testing/NextHopTest.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What becomes of next hops whose interface or whose chip gives trouble, and the rows that each story writes,
// in order.
class NextHopStoriesTest : public NextHopTest {
 protected:
   void TearDown() override {
      handle = nullptr;
      expectNothingLeft();
   }

   Handle handle;
};

TEST_F(NextHopStoriesTest, RowsOfAFirstWriteARewriteAMoveAndARemoval) {
   interface(1);
   interface(2);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 1", "EgrL3Oif2 written 2"));
   handle = write(7, 1, 1);
   EXPECT_THAT(rowsSince(), ElementsAre("IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1"));
   write(7, 2, 1);
   EXPECT_THAT(rowsSince(), ElementsAre("IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1"));
   write(7, 2, 2);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3NextHop2 written 1"));
   interfaces->entryRemove(1);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 cleared 1"));
   interfaces->entryRemove(2);
   EXPECT_THAT(rowsSince(), IsEmpty()) << "the next hop holds its interface";
   handle = nullptr;
   EXPECT_THAT(rowsSince(), testing::UnorderedElementsAre("IngL3NextHop2Table cleared 1",
                                                          "EgrL3NextHop2 cleared 1", "EgrL3Oif2 cleared 2"));
}

TEST_F(NextHopStoriesTest, AFreshInterfaceIsWrittenBeforeTheEgressHalfThatNamesIt) {
   interface(1);
   handle = write(7, 1, 1);
   EXPECT_EQ(handle->entryState(), State::unresolved);
   EXPECT_THAT(rowsSince(),
               ElementsAre("EgrL3Oif2 written 1", "IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1"));
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(NextHopStoriesTest, ANewKeyAtAFreedIndexTakesTheRowsInPlace) {
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   handle = nullptr;
   handle = write(8, 2, 1);
   EXPECT_EQ(handle->hwEntryIndex(), 1u);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(8))->destinationId, 2);
   EXPECT_FALSE(nextHops->ingL3NextHop2TableEntry(keyOf(7)));
}

TEST_F(NextHopStoriesTest, TheSameKeyWrittenAgainWhileItsDeletesAreUnansweredIsInUseAgain) {
   interface(1);
   for (std::uint8_t value : {1, 2}) {
      handle = write(7, 1, 1);
      rowsSince();
      faults->holdAnswers();
      handle = nullptr;
      loop.runUntilIdle();
      handle = write(7, value, 1);
      loop.runUntilIdle();
      faults->stop();
      loop.runUntilIdle();
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_TRUE(handle->isHwIndexValid());
      EXPECT_EQ(handle->hwEntryIndex(), 1u);
      handle = nullptr;
      rowsSince();
   }
}

TEST_F(NextHopStoriesTest, TakenBackIntoUseItMayWaitAndBeDroppedAgain) {
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   faults->holdAnswers();
   handle = nullptr;
   interface(2);
   handle = write(7, 2, 2);
   EXPECT_EQ(handle->entryState(), State::unresolved);
   handle = nullptr;
   loop.runUntilIdle();
   faults->stop();
   rowsSince();
   EXPECT_EQ(nextHops->handles().size(), 0u);
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

TEST_F(NextHopStoriesTest, AnInterfaceThatIsRefusedFailsItsNextHopUntilItIsWrittenAnew) {
   faults->refuse({"EgrL3Oif2", {}, true}, 1);
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   EXPECT_EQ(nextHops->ingL3NextHop2Table()->entryHandle(1)->entryState(), State::success);
   interface(1, 2);
   EXPECT_THAT(rowsSince(), ElementsAre("EgrL3Oif2 written 1", "EgrL3NextHop2 written 1"));
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(NextHopStoriesTest, AnInterfaceThatIsRefusedLaterLeavesWrittenNextHopsAlone) {
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   faults->refuse({"EgrL3Oif2", {}, true}, 1);
   interface(1, 2);
   rowsSince();
   EXPECT_EQ(interfaces->entryHandle(1)->entryState(), State::failed);
   EXPECT_EQ(handle->entryState(), State::success);
   auto late = write(8, 1, 1);
   EXPECT_EQ(late->entryState(), State::failedNeededEntry) << "nothing new is issued against it";
   late = nullptr;
}

TEST_F(NextHopStoriesTest, ARemovedInterfaceStaysForItsNextHopsAndIsTheSameWhenItIsAddedAgain) {
   auto number = interface(1)->creationNumber();
   handle = write(7, 1, 1);
   rowsSince();
   interfaces->entryRemove(1);
   EXPECT_THAT(rowsSince(), IsEmpty());
   EXPECT_EQ(interface(1)->creationNumber(), number);
   EXPECT_THAT(rowsSince(), IsEmpty()) << "the same value is there still";
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(NextHopStoriesTest, ARefusedRewriteLeavesThePairsRowsAndItsIndexValid) {
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   faults->refuse({"EgrL3NextHop2", {}, true}, 1);
   write(7, 2, 1);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failed);
   auto egr = chip->table("EgrL3NextHop2")->row(1);
   EXPECT_EQ(ModelChip::EgrL3NextHop2::dstMac.unpack(egr) & 0xFF, 1u);
   write(7, 3, 1);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
}

TEST_F(NextHopStoriesTest, BothHalvesMayFailAndRecoverOneAfterTheOther) {
   interface(1);
   rowsSince();
   faults->refuse({"IngL3NextHop2Table", {}, true}, 1);
   faults->refuse({"EgrL3NextHop2", {}, true}, 1);
   handle = write(7, 1, 1);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failed);
   auto egr = nextHops->egrL3NextHop2()->entry(1);
   egr->strengthProfileIndex = 9;
   nextHops->egrL3NextHop2()->entryRef(1, *egr);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failed) << "the other half's failure is not hidden";
   auto ing = nextHops->ingL3NextHop2Table()->entry(1);
   ing->strengthProfileIndex = 9;
   nextHops->ingL3NextHop2Table()->entryRef(1, *ing);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(NextHopStoriesTest, WhenOneHalfRecoversTheOthersFailureIsTold) {
   interface(1);
   interface(2);
   interface(rows);
   rowsSince();
   for (bool isEgressFirst : {true, false}) {
      faults->refuse({"IngL3NextHop2Table", {}, true}, 1);
      handle = write(7, 1, rows);
      ModelChip::StateWatch watch(*handle);
      EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::failed) << "the newest failure is told";
      auto const& egress = nextHops->egrL3NextHop2();
      auto const& ingress = nextHops->ingL3NextHop2Table();
      if (isEgressFirst) {
         egress->entryRef(1, egr(1, 2));
         rowsSince();
         EXPECT_EQ(handle->entryState(), State::failed);
         ingress->entryRef(1, ing(2));
      } else {
         ingress->entryRef(1, ing(2));
         EXPECT_EQ(handle->entryState(), State::failedNeededEntry) << "that is what is left";
         rowsSince();
         EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
         egress->entryRef(1, egr(1, 2));
      }
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::success);
      EXPECT_TRUE(handle->isHwIndexValid());
      if (isEgressFirst) {
         EXPECT_THAT(watch.states, ElementsAre(State::failed, State::inProgress, State::success));
      }
      handle = nullptr;
      rowsSince();
   }
}

TEST_F(NextHopStoriesTest, ALaterFailureOfTheSecondKindIsToldAndTakenBackToTheFirst) {
   interface(1);
   rowsSince();
   faults->refuse({"IngL3NextHop2Table", {}, true}, 1);
   faults->refuse({"EgrL3Oif2", {}, true}, 1);
   interface(2);
   handle = write(7, 1, 2);
   ModelChip::StateWatch watch(*handle);
   rowsSince();
   interface(2, 2);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failed) << "the ingress half's own";
   EXPECT_THAT(watch.states, ElementsAre(State::failedNeededEntry, State::failed));
   write(7, 2, 2);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
}

TEST_F(NextHopStoriesTest, OfTwoFailuresThatAreThereAlreadyTheNeededEntrysIsToldWhicheverHalfIsOlder) {
   interface(1);
   interface(rows);
   rowsSince();
   Handle egressHalf;
   for (bool isEgressOlder : {false, true}) {
      faults->refuse({"IngL3NextHop2Table", {}, true}, 1);
      handle = write(7, 1, rows);
      rowsSince();
      ASSERT_EQ(handle->entryState(), State::failed);
      egressHalf = nextHops->egrL3NextHop2()->entryHandle(1);
      Handle ingressHalf = nextHops->ingL3NextHop2Table()->entryHandle(1);
      EXPECT_EQ(egressHalf->creationNumber() < ingressHalf->creationNumber(), isEgressOlder);
      std::vector<State> heard;
      nextHops->entryCommitWithResponseHandler(keyOf(7), ing(1), egr(2, rows),
                                               [&](State state) { heard.push_back(state); });
      EXPECT_THAT(heard, ElementsAre(State::failedNeededEntry)) << "one failure is told";
      nextHops->entryRemove(keyOf(7));
      ingressHalf = nullptr;
      handle = nullptr;
      rowsSince();
   }
}

TEST_F(NextHopStoriesTest, AHalfThatLeavesItsTableFailsThePairThatWaitsForIt) {
   interface(1);
   rowsSince();
   handle = write(7, 1, 1);
   ASSERT_EQ(handle->entryState(), State::inProgress);
   nextHops->ingL3NextHop2Table()->entryHandleDelAll();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::failedNeededEntry) << "the other half's success hides nothing";
   handle = nullptr;
   rowsSince();
   handle = write(7, 1, 1);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
}

// Rows belong to whoever wrote them last, also with an equal write, and go back to who wants them still.
TEST_F(NextHopStoriesTest, OfTwoTablesWithOneKeyTheLaterWriterLeavesTheRowsToTheFormer) {
   interface(1);
   rowsSince();
   auto second = l3NextHop2TableFactory();
   second->doInit(unit, stateDatabase, chip->chipInfo());
   handle = write(7, 1, 1);
   rowsSince();
   auto later = second->entryRef(keyOf(7), ing(1), egr(1));
   EXPECT_THAT(rowsSince(), IsEmpty()) << "an equal write";
   EXPECT_EQ(later->hwEntryIndex(), handle->hwEntryIndex());
   EXPECT_EQ(later->entryState(), State::success);
   later = nullptr;
   EXPECT_THAT(rowsSince(), IsEmpty()) << "the first one wants them";
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_TRUE(handle->isHwIndexValid());
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u) << "the first one has the index still";
   EXPECT_EQ(write(8, 2, 1)->hwEntryIndex(), 2u);
   write(7, 2, 1);
   EXPECT_THAT(rowsSince(),
               testing::IsSupersetOf({"IngL3NextHop2Table written 1", "EgrL3NextHop2 written 1"}))
         << "and writes them as before";
   EXPECT_EQ(handle->entryState(), State::success);
   handle = nullptr;
   EXPECT_THAT(rowsSince(),
               testing::IsSupersetOf({"IngL3NextHop2Table cleared 1", "EgrL3NextHop2 cleared 1"}));
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
}

TEST_F(NextHopStoriesTest, ALostAnswerHoldsThePairUpUntilALaterOne) {
   interface(1);
   rowsSince();
   for (auto const* half : {"IngL3NextHop2Table", "EgrL3NextHop2"}) {
      faults->lose({half, {}, {}}, 1);
      handle = write(7, 1, 1);
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::inProgress) << half;
      write(7, 2, 1);
      rowsSince();
      EXPECT_EQ(handle->entryState(), State::success) << half;
      handle = nullptr;
      rowsSince();
   }
}

TEST_F(NextHopStoriesTest, AnswersThatComeTwiceOrLateChangeNothing) {
   interface(1);
   rowsSince();
   faults->repeat({{}, {}, {}});
   faults->delay({"IngL3NextHop2Table", {}, {}}, 20);
   handle = write(7, 1, 1);
   ModelChip::StateWatch watch(*handle);
   rowsSince();
   EXPECT_THAT(watch.states, ElementsAre(State::success));
}

TEST_F(NextHopStoriesTest, TheLastOfTwoRequestsThatDifferInWhatTheKeyDoesNotCarryWins) {
   interface(1);
   handle = write(7, 1, 1);
   auto second = write(7, 2, 1);
   EXPECT_EQ(second, handle);
   rowsSince();
   EXPECT_EQ(handle->entryState(), State::success);
   EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(7))->destinationId, 2);
}

TEST_F(NextHopStoriesTest, RowsThatSomebodyElseKeepsDoNotMakeAFreshKeyComplete) {
   interface(1);
   handle = write(7, 1, 1);
   rowsSince();
   Handle ing = nextHops->ingL3NextHop2Table()->entryHandle(1);
   Handle egr = nextHops->egrL3NextHop2()->entryHandle(1);
   handle = nullptr;
   rowsSince();
   EXPECT_EQ(nextHops->indexAllocator()->holders(), 1u) << "the index is used still";
   handle = write(7, 1, 1);
   EXPECT_TRUE(handle->isHwIndexValid()) << "written as a pair of its own, over rows that are there";
   EXPECT_EQ(handle->entryState(), State::success);
   ing = egr = nullptr;
   EXPECT_THAT(rowsSince(), IsEmpty());
}

TEST_F(NextHopStoriesTest, HandlersMayRewriteRemoveDropAndTakeDown) {
   interface(1);
   rowsSince();
   auto const ing = this->ing(1);
   auto egr = this->egr(1);
   for (auto at : {State::inProgress, State::success}) {
      nextHops->entryCommitWithResponseHandler(keyOf(7), ing, egr, [&, at](State state) {
         if (state == at) {
            nextHops->entryRemove(keyOf(7));
         }
      });
      rowsSince();
      EXPECT_FALSE(nextHops->entryHas(keyOf(7)));
      bool isFirst = true;
      nextHops->entryCommitWithResponseHandler(keyOf(7), ing, egr, [&, at](State state) {
         if (state == at && std::exchange(isFirst, false)) {
            auto other = ing;
            other.destinationId = 9;
            nextHops->entryCommit(keyOf(7), other, egr);
         }
      });
      rowsSince();
      EXPECT_EQ(nextHops->ingL3NextHop2TableEntry(keyOf(7))->destinationId, 9);
      EXPECT_EQ(nextHops->entryHandle(keyOf(7))->entryState(), State::success);
      nextHops->entryRemove(keyOf(7));
      rowsSince();
      EXPECT_THROW(
            {
               nextHops->entryCommitWithResponseHandler(keyOf(7), ing, egr, [at](State state) {
                  if (state == at) {
                     throw std::runtime_error("handler");
                  }
               });
               loop.runUntilIdle();
            },
            std::runtime_error);
      rowsSince();
      EXPECT_EQ(nextHops->entryHandle(keyOf(7))->entryState(), State::success);
      nextHops->entryRemove(keyOf(7));
      rowsSince();
   }
   nextHops->entryCommitWithResponseHandler(keyOf(7), ing, egr, [&](State state) {
      if (state == State::success) {
         nextHops->cleanup();
      }
   });
   egr = {};
   rowsSince();
   EXPECT_EQ(nextHops->handles().size(), 0u);
   nextHops = l3NextHop2TableFactory();
   nextHops->doInit(unit, stateDatabase, chip->chipInfo());
}

} // namespace
} // namespace ZandorL3Tunnel
