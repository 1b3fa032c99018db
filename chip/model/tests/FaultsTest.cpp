#include "chip/model/Faults.h"

#include "chip/model/testing/RowsTest.h"

namespace ModelChip {
namespace {

using Asic::Index;
using testing::ElementsAre;
using testing::IsEmpty;

class FaultsTest : public FaultyRowsTest {
 protected:
   std::uint64_t refused() const { return faults->counts().refused; }

   /// Writes rows 0, 1, ... below `rows`, and lets the chip come to all of them.
   void writeRows(Index rows) {
      for (Index index = 0; index < rows; ++index) {
         write(index, ++word, owner);
      }
      loop.runUntilIdle();
   }

   std::uint32_t word{};
};

TEST_F(FaultsTest, WithoutOrdersNothingGoesWrong) {
   writeRows(3);
   clear(1, owner);
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("write 0", "write 1", "write 2", "delete 1"));
   EXPECT_EQ(refused(), 0u);
   EXPECT_EQ(faults->answersHere(), 0u);
}

TEST_F(FaultsTest, ARefusedCommandLeavesItsRowAsItWas) {
   int applied = 0;
   write(5, 1, owner);
   loop.runUntilIdle();
   chip->rowObserverIs([&](Table const&, Index) { ++applied; });
   faults->refuse({}, 2);
   write(5, 2, owner);
   clear(5, owner);
   loop.runOne();
   loop.runOne();
   EXPECT_EQ(rowAt(5), Words(3, 1));
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(refused(), 2u);
   EXPECT_EQ(applied, 0);
}

TEST_F(FaultsTest, RefusesAsManyCommandsAsItWasTold) {
   faults->refuse({}, 2);
   writeRows(4);
   EXPECT_THAT(answers, ElementsAre("write 0 refused", "write 1 refused", "write 2", "write 3"));
   faults->refuse({}, 0);
   writeRows(4);
   EXPECT_EQ(refused(), 2u);
   faults->refuse({});
   writeRows(4);
   EXPECT_EQ(refused(), 6u);
}

TEST_F(FaultsTest, RefusesOfOneTableOneRowOrOneKindOnly) {
   faults->refuse({"EgrL3NextHop2", {}, {}});
   faults->refuse({{}, 1, {}}, 1);
   faults->refuse(deletes(2), 1);
   auto& nextHops = *chip->table("EgrL3NextHop2");
   nextHops.rowIs(0, Words(3, 1), *other, nullptr);
   writeRows(3);
   EXPECT_EQ(nextHops.rowsPresent(), 0u);
   EXPECT_THAT(answers, ElementsAre("write 0 refused", "write 0", "write 1 refused", "write 2"));
   answers.clear();
   clear(0, owner);
   clear(2, owner);
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("delete 0", "delete 2 refused", "delete 2"));
}

TEST_F(FaultsTest, OfSeveralOrdersTheFirstThatConcernsACommandDecides) {
   faults->lose(writes(1), 1);
   faults->repeat(writes(), 3);
   writeRows(4);
   EXPECT_THAT(answers, ElementsAre("write 0", "write 0", "write 2", "write 2", "write 3", "write 3"));
   EXPECT_EQ(faults->counts().lost, 1u);
   EXPECT_EQ(faults->counts().repeated, 3u);
}

TEST_F(FaultsTest, HeldAnswersComeInTheOrderOfTheirRelease) {
   faults->holdAnswers();
   writeRows(4);
   EXPECT_THAT(answers, IsEmpty());
   EXPECT_EQ(interfaces().rowsPresent(), 4u);
   EXPECT_EQ(faults->answersHere(), 4u);
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_TRUE(faults->releaseAnswer(2));
   EXPECT_FALSE(faults->releaseAnswer(2));
   EXPECT_FALSE(faults->releaseAnswer(4));
   EXPECT_TRUE(faults->releaseAnswer(0));
   EXPECT_THAT(answers, IsEmpty()) << "before the loop runs";
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("write 2", "write 0"));
   faults->releaseAll();
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("write 2", "write 0", "write 1", "write 3"));
   EXPECT_EQ(owner->confirmations, 4);
   writeRows(1);
   EXPECT_TRUE(faults->releaseAnswer(4)) << "later answers are held as before";
}

TEST_F(FaultsTest, HoldingAnewNumbersAnew) {
   faults->holdAnswers();
   writeRows(2);
   faults->stop();
   faults->holdAnswers();
   writeRows(1);
   EXPECT_TRUE(faults->releaseAnswer(0));
}

TEST_F(FaultsTest, AnswersOfOneRowAloneCanBeHeld) {
   faults->hold(writes(1), 1);
   writeRows(3);
   EXPECT_THAT(answers, ElementsAre("write 0", "write 2"));
   EXPECT_TRUE(faults->releaseAnswer(0));
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("write 0", "write 2", "write 1"));
}

TEST_F(FaultsTest, ADelayedAnswerIsOvertaken) {
   faults->delay(writes(0), 3, 1);
   writeRows(4);
   EXPECT_EQ(answers.size(), 4u);
   EXPECT_NE(answers.front(), "write 0");
   EXPECT_EQ(faults->answersHere(), 0u);
}

TEST_F(FaultsTest, ADelayedAnswerComesAfterSoManyTurns) {
   for (std::uint32_t turns : {1u, 2u, 7u}) {
      SCOPED_TRACE(turns);
      answers.clear();
      faults->delay(writes(), turns, 1);
      write(5, ++word, owner);
      EXPECT_EQ(loop.runUntilIdle(), 1 + turns + 1) << "applied, the turns, answered";
      EXPECT_THAT(answers, ElementsAre("write 5"));
   }
}

TEST_F(FaultsTest, ADelayedAnswerCanBeReleasedBeforeItsTime) {
   faults->delay({}, 1000, 1);
   write(5, 1, owner);
   loop.runOne();
   EXPECT_TRUE(faults->releaseAnswer(0));
   EXPECT_LT(loop.runUntilIdle(), 5u);
   EXPECT_THAT(answers, ElementsAre("write 5"));
}

TEST_F(FaultsTest, ALostAnswerNeverComes) {
   faults->lose({}, 1);
   writeRows(2);
   EXPECT_THAT(answers, ElementsAre("write 1"));
   EXPECT_EQ(interfaces().rowsPresent(), 2u);
   EXPECT_EQ(interfaces().unanswered(), 1u);
}

TEST_F(FaultsTest, ARepeatedAnswerComesTwice) {
   faults->repeat({}, 1);
   writeRows(2);
   EXPECT_THAT(answers, ElementsAre("write 0", "write 0", "write 1"));
   EXPECT_EQ(owner->confirmations, 2);
}

TEST_F(FaultsTest, TheSameSeedDrawsTheSameFaults) {
   auto run = [&](std::uint32_t seed) {
      answers.clear();
      faults->random(seed, {.refuseWrite = 200, .lose = 100, .repeat = 100, .delay = 300});
      for (int round = 0; round < 20; ++round) {
         writeRows(10);
      }
      faults->stop();
      loop.runUntilIdle();
      return answers;
   };
   auto first = run(1);
   EXPECT_EQ(run(1), first);
   EXPECT_NE(run(2), first);
}

TEST_F(FaultsTest, DrawsEachFaultAboutAsOftenAsItWasTold) {
   faults->random(1, {.refuseWrite = 250, .refuseDelete = 500, .lose = 100, .repeat = 100, .delay = 100});
   for (int round = 0; round < 100; ++round) {
      writeRows(10);
   }
   auto const& counts = faults->counts();
   for (auto count : {counts.lost, counts.repeated, counts.delayed}) {
      EXPECT_GT(count, 50u);
      EXPECT_LT(count, 150u);
   }
   EXPECT_GT(refused(), 200u);
   EXPECT_LT(refused(), 300u);
   EXPECT_EQ(counts.held, 0u);
}

TEST_F(FaultsTest, CommandsAreAppliedInTheOrderOfIssueWhateverTheirAnswersDo) {
   std::vector<Index> applied;
   std::vector<Index> issued;
   chip->rowObserverIs([&](Table const&, Index index) { applied.push_back(index); });
   faults->random(1, {.lose = 200, .repeat = 200, .delay = 400});
   for (Index round = 0; round < 100; ++round) {
      Index index = round * 7 % 11;
      issued.push_back(index);
      write(index, ++word, owner);
   }
   loop.runUntilIdle();
   EXPECT_EQ(applied, issued);
   EXPECT_NE(answers.size(), issued.size());
}

TEST_F(FaultsTest, OnceStoppedNothingGoesWrongAndWhatWasHeldComes) {
   faults->refuse(deletes());
   faults->random(1, {.refuseWrite = 1000, .lose = 1000});
   faults->holdAnswers();
   writeRows(2);
   faults->stop();
   writeRows(2);
   clear(1, owner);
   loop.runUntilIdle();
   EXPECT_THAT(answers, ElementsAre("write 0 refused", "write 1 refused", "write 0", "write 1", "delete 1"));
}

TEST_F(FaultsTest, WithoutItsFaultsAChipDeliversWhatTheyKept) {
   faults->holdAnswers();
   writeRows(2);
   chip->faultsIs(nullptr);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 2);
   writeRows(2);
   EXPECT_EQ(owner->confirmations, 4);
}

TEST_F(FaultsTest, AnswersThatAreHereWhenTheChipGoesNeverCome) {
   faults->holdAnswers();
   faults->delay({}, 5);
   writeRows(2);
   auto next = newChip(loop);
   chip = next;
   EXPECT_EQ(faults->answersHere(), 0u);
   faults->releaseAll();
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 0);
   next->faultsIs(faults);
   faults->stop();
   writeRows(1);
   EXPECT_THAT(answers, ElementsAre("write 0"));
}

TEST_F(FaultsTest, AFaultsObjectServesOneChip) {
   auto another = newChip(loop);
   EXPECT_DEATH(another->faultsIs(faults), "one chip at a time");
}

} // namespace
} // namespace ModelChip
