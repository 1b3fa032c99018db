#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What becomes of next hops whose interface or whose chip gives trouble, and the rows that each story writes,
// in order.
class NextHopStoriesTest : public ModelChip::ChipTest {
 protected:
   static constexpr Asic::Index rows = 8;

   NextHopStoriesTest()
       : ChipTest({{"IngL3NextHop2Table", rows}, {"EgrL3NextHop2", rows}, {"EgrL3Oif2", rows}}) {
      chip->faultsIs(faults);
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
   }

   void TearDown() override {
      faults->stop();
      handle = nullptr;
      nextHops->entryRemoveAll();
      interfaces->entryRemoveAll();
      loop.runUntilIdle();
      EXPECT_EQ(nextHops->handles().size(), 0u);
      EXPECT_EQ(nextHops->indexAllocator()->holders(), 0u);
      EXPECT_EQ(nextHops->egrL3NextHop2()->handles().size(), 0u);
      EXPECT_EQ(interfaces->handles().size(), 0u);
      EXPECT_EQ(rowsPresent(), 0u);
   }

   static L3UnderlayNextHopKey keyOf(std::uint16_t port) {
      L3UnderlayNextHopKey key;
      key.l2If = {port};
      return key;
   }

   Handle interface(Asic::Index index, std::uint16_t vlan = 1) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = vlan;
      return interfaces->entryCommit(index, entry);
   }

   Handle write(std::uint16_t port, std::uint8_t value, Asic::Index over) {
      IngL3NextHop2Table::Entry ing;
      ing.destinationId = value;
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryWeakRef(over);
      egr.dstMacAddress = {{2, 0, 0, 0, 0, value}};
      return nextHops->entryRef(keyOf(port), ing, egr);
   }

   std::vector<Pelm::String> rowsSince() {
      loop.runUntilIdle();
      return std::exchange(rowsApplied, {});
   }

   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
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
   IngL3NextHop2Table::Entry ing;
   EgrL3NextHop2::Entry egr;
   egr.l3Oif2Handle = interfaces->entryWeakRef(1);
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
