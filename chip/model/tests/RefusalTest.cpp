#include "chip/model/testing/RowsTest.h"

namespace ModelChip {
namespace {

using testing::Each;
using testing::ElementsAre;

/// What a hardware table makes of refused writes, and of answers that get lost or come again.
class RefusalTest : public FaultyRowsTest {
 protected:
   std::uint64_t issued() const { return interfaces().commandsIssued(); }

   /// A write that the chip refuses; the chip has come to it and has answered.
   void refusedWrite(Asic::Index index, std::uint32_t word, Owner const& by) {
      faults->refuse(writes(index), 1);
      write(index, word, by, Nuv::make<Needed>(successorLiving));
      loop.runUntilIdle();
   }
};

TEST_F(RefusalTest, ARefusedWriteLeavesItsPredecessorInForce) {
   rowInForce(5, 1);
   refusedWrite(5, 2, owner);
   EXPECT_EQ(rowAt(5), Words(3, 1));
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(owner->refusals, 1);
   EXPECT_EQ(neededLiving, 1);
   EXPECT_EQ(successorLiving, 0);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(RefusalTest, WhoWroteTheRefusedRowHearsIt) {
   rowInForce(5, 1);
   refusedWrite(5, 2, other);
   EXPECT_EQ(owner->refusals, 0);
   EXPECT_EQ(other->refusals, 1);
   EXPECT_EQ(other->confirmations, 0);
}

TEST_F(RefusalTest, ARewriteOfTheRefusedWordsIsIssuedAgain) {
   rowInForce(5, 1);
   refusedWrite(5, 2, owner);
   auto before = issued();
   write(5, 2, owner);
   EXPECT_EQ(issued(), before + 1);
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 2));
   EXPECT_EQ(owner->confirmations, 2);
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(RefusalTest, ARewriteOfTheWordsInForceCostsNothing) {
   rowInForce(5, 1);
   refusedWrite(5, 2, owner);
   auto before = issued();
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_EQ(issued(), before);
   EXPECT_EQ(owner->confirmations, 2);
   EXPECT_EQ(owner->refusals, 1);
}

TEST_F(RefusalTest, WhereTheFirstWriteIsRefusedThereIsNoRow) {
   refusedWrite(5, 0, owner);
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_FALSE(awaitedClear(5, owner));
   EXPECT_EQ(issued(), 1u);
   write(5, 0, owner);
   loop.runUntilIdle();
   EXPECT_EQ(issued(), 2u);
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(owner->confirmations, 1);
}

TEST_F(RefusalTest, AfterARefusalBehindADeleteThereIsNoRow) {
   rowInForce(5, 1);
   clear(5, owner);
   refusedWrite(5, 1, other);
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(other->refusals, 1);
   auto before = issued();
   write(5, 1, other);
   EXPECT_EQ(issued(), before + 1);
}

TEST_F(RefusalTest, BehindAnUnansweredWriteARefusalLeavesThatOne) {
   faults->holdAnswers();
   faults->refuse(writes(), 1);
   write(5, 1, owner, Nuv::make<Needed>(living[0]));
   loop.runUntilIdle();
   write(5, 2, owner, Nuv::make<Needed>(living[1]));
   loop.runUntilIdle();
   write(5, 3, owner, Nuv::make<Needed>(living[2]));
   faults->refuse(writes(), 1);
   loop.runUntilIdle();
   EXPECT_THAT(std::span(living).first(3), Each(1));

   faults->releaseAnswer(2);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 1);
   EXPECT_EQ(living[2], 0);
   auto before = issued();
   write(5, 2, owner, Nuv::make<Needed>(living[3]));
   EXPECT_EQ(issued(), before) << "equal to the one that is unanswered";
   faults->releaseAnswer(0);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 1) << "superseded";
   EXPECT_EQ(owner->confirmations, 0);
   faults->releaseAnswer(1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(rowAt(5), Words(3, 2));
   EXPECT_THAT(living, ElementsAre(0, 0, 0, 1));
}

TEST_F(RefusalTest, AnEqualWriteBehindOneThatIsRefusedHearsThat) {
   faults->refuse(writes(), 1);
   write(5, 1, owner, Nuv::make<Needed>(living[0]));
   write(5, 1, other, Nuv::make<Needed>(living[1]));
   loop.runUntilIdle();
   EXPECT_EQ(issued(), 1u);
   EXPECT_EQ(owner->refusals, 0);
   EXPECT_EQ(other->refusals, 1);
   EXPECT_THAT(living, Each(0));
}

TEST_F(RefusalTest, AnEqualWriteBeforeOneThatIsRefusedIsInForceAndHeardOf) {
   rowInForce(5, 1);
   write(5, 1, other);
   write(5, 2, other);
   faults->refuse(writes(), 1);
   loop.runUntilIdle();
   EXPECT_EQ(other->refusals, 1);
   EXPECT_EQ(other->confirmations, 1);
   EXPECT_EQ(owner->confirmations, 1) << "the row is no longer its own";
}

TEST_F(RefusalTest, ARowThatWasConfirmedUnderARefusedOneIsHeardOfOnce) {
   faults->holdAnswers();
   write(5, 1, owner);
   loop.runUntilIdle();
   faults->refuse(writes(), 2);
   write(5, 2, owner);
   loop.runUntilIdle();
   faults->releaseAnswer(0);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 0) << "superseded";
   faults->releaseAnswer(1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 1);
   EXPECT_EQ(owner->confirmations, 1);
   write(5, 3, owner);
   loop.runUntilIdle();
   faults->releaseAnswer(2);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 2);
   EXPECT_EQ(owner->confirmations, 1);
}

TEST_F(RefusalTest, ARefusedTakeoverLeavesTheRowToItsOwner) {
   rowInForce(5, 1);
   refusedWrite(5, 2, other);
   clear(5, other);
   EXPECT_FALSE(awaitedClear(5, other));
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 1));
   ASSERT_TRUE(awaitedClear(5, owner));
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(RefusalTest, WhoseAnswerARefusedTakeoverOvertookHearsIt) {
   for (std::uint32_t first : {0u, 1u}) {
      auto before = owner->confirmations;
      faults->holdAnswers();
      write(5, 1, owner);
      loop.runUntilIdle();
      faults->refuse(writes(), 1);
      write(5, 2, other);
      loop.runUntilIdle();
      for (auto number : {first, 1 - first}) {
         faults->releaseAnswer(number);
         loop.runUntilIdle();
      }
      EXPECT_EQ(owner->confirmations, before + 1);
      faults->stop();
      clear(5, owner);
      loop.runUntilIdle();
   }
   EXPECT_EQ(other->refusals, 2);
   EXPECT_EQ(other->confirmations, 0);
}

TEST_F(RefusalTest, AfterRefusedTakeoversInAnyOrderTheRowIsItsFirstOwners) {
   auto third = writer.newOwner();
   for (std::uint32_t first : {0u, 1u}) {
      rowInForce(5, 1);
      faults->holdAnswers();
      faults->refuse(writes(), 2);
      write(5, 2, other);
      write(5, 3, third);
      loop.runUntilIdle();
      for (auto number : {first, 1 - first}) {
         faults->releaseAnswer(number);
         loop.runUntilIdle();
      }
      faults->stop();
      clear(5, other);
      clear(5, third);
      loop.runUntilIdle();
      EXPECT_EQ(rowAt(5), Words(3, 1));
      clear(5, owner);
      loop.runUntilIdle();
      EXPECT_FALSE(interfaces().hasRow(5));
   }
}

TEST_F(RefusalTest, WhoGaveARowUpDoesNotGetItBackFromARefusedTakeover) {
   for (bool isEnd : {false, true}) {
      rowInForce(5, 1);
      faults->refuse(writes(5), 1);
      write(5, 2, other);
      if (isEnd) {
         interfaces().ownerDel(5, *owner);
      } else {
         clear(5, owner);
      }
      loop.runUntilIdle();
      EXPECT_EQ(rowAt(5), Words(3, 1));
      clear(5, owner);
      loop.runUntilIdle();
      EXPECT_TRUE(interfaces().hasRow(5));
      clear(5, other);
      loop.runUntilIdle();
      EXPECT_FALSE(interfaces().hasRow(5)) << "whoever wrote last clears what is there";
   }
}

TEST_F(RefusalTest, AllRefusedLeavesWhatWasThere) {
   rowInForce(5, 9);
   faults->refuse(writes());
   for (std::uint32_t word : {1u, 2u, 3u}) {
      write(5, word, other);
   }
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 9));
   EXPECT_EQ(other->refusals, 1);
   EXPECT_EQ(neededLiving, 1);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(RefusalTest, WhoHearsARefusalMayWriteAgain) {
   faults->refuse(writes(), 2);
   owner->onRowRefused = [this] { write(5, 1, owner); };
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 2);
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(issued(), 3u);
}

TEST_F(RefusalTest, WhoHearsARefusalMayEndTheChip) {
   faults->refuse(writes(), 1);
   owner->onRowRefused = [this] { chip = nullptr; };
   write(6, 1, other, Nuv::make<Needed>(neededLiving));
   write(5, 1, owner, Nuv::make<Needed>(neededLiving));
   faults->refuse(writes(5), 1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 1);
}

TEST_F(RefusalTest, ALostAnswerIsMadeUpForByALaterOne) {
   faults->lose(writes(), 2);
   for (std::uint32_t word : {0u, 1u, 2u}) {
      write(5, word, owner, Nuv::make<Needed>(living[word]));
      loop.runUntilIdle();
   }
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_THAT(living, ElementsAre(0, 0, 1, 0));
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(RefusalTest, ALostRefusalIsMadeUpForByALaterAnswer) {
   rowInForce(5, 1);
   faults->lose(writes(), 1);
   faults->refuse(writes(), 1);
   write(5, 2, owner, Nuv::make<Needed>(living[0]));
   loop.runUntilIdle();
   EXPECT_EQ(living[0], 1) << "nobody knows that it is not needed";
   EXPECT_EQ(neededLiving, 1);
   write(5, 3, owner, Nuv::make<Needed>(living[1]));
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 2);
   EXPECT_EQ(owner->refusals, 0);
   EXPECT_THAT(living, ElementsAre(0, 1, 0, 0));
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(RefusalTest, WhileAnAnswerIsLostOthersAreCountedAsAnswered) {
   faults->lose(writes(0), 1);
   for (Asic::Index index = 0; index < 5; ++index) {
      write(index, 1, owner);
   }
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 4);
   EXPECT_EQ(interfaces().unanswered(), 1u);
}

TEST_F(RefusalTest, AnAnswerThatComesAfterThousandsOfLaterOnesStillCounts) {
   faults->hold(writes(0), 2);
   faults->hold(deletes(1), 1);
   write(0, 1, owner, Nuv::make<Needed>(living[0]));
   write(0, 2, owner, Nuv::make<Needed>(living[1]));
   write(1, 1, other);
   ASSERT_TRUE(awaitedClear(1, other));
   for (std::uint32_t word = 0; word < 5000; ++word) {
      write(2 + word % 3, word, other);
      if (word % 16 == 0) {
         loop.runUntilIdle();
      }
   }
   loop.runUntilIdle();
   EXPECT_EQ(interfaces().unanswered(), 3u);
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_EQ(living[0] + living[1], 2);
   faults->releaseAnswer(1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(living[0], 0);
   EXPECT_EQ(interfaces().unanswered(), 1u);
   faults->releaseAll();
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(other->deletions, 1);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(RefusalTest, AnAnswerThatComesAgainIsIgnored) {
   faults->repeat({});
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   refusedWrite(5, 2, owner);
   EXPECT_EQ(owner->refusals, 1);
   EXPECT_EQ(owner->confirmations, 1);
   refusedWrite(5, 2, owner);
   EXPECT_EQ(owner->refusals, 2);
   ASSERT_TRUE(awaitedClear(5, owner));
   faults->refuse(deletes(), 1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(answers.size(), 2 * 5u);
}

TEST_F(RefusalTest, AnAnswerThatComesAgainAfterALaterOneIsIgnored) {
   faults->holdAnswers();
   faults->repeat({});
   write(5, 1, owner);
   loop.runUntilIdle();
   faults->releaseAll();
   faults->stop();
   faults->delay(writes(), 20, 1);
   write(5, 2, owner);
   write(5, 3, owner);
   loop.runUntilIdle();
   EXPECT_EQ(answers.back(), "write 5");
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(rowAt(5), Words(3, 3));
}

} // namespace
} // namespace ModelChip
