#include "chip/model/testing/RowsTest.h"

#include <stdexcept>

namespace ModelChip {
namespace {

/// What a hardware table tells those who wait for a row to be cleared, whatever the chip says to it.
class AwaitedDeleteTest : public FaultyRowsTest {
 protected:
   AwaitedDeleteTest() { rowInForce(5, 1); }

   void awaitClear(Owner const& by) { ASSERT_TRUE(awaitedClear(5, by)); }
};

TEST_F(AwaitedDeleteTest, CompletesWhenTheChipHasClearedTheRow) {
   awaitClear(owner);
   loop.runOne();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(owner->deletions, 0);
   EXPECT_EQ(neededLiving, 1);
   loop.runOne();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(neededLiving, 0);
   EXPECT_FALSE(awaitedClear(5, owner)) << "nothing to wait for any more";
}

TEST_F(AwaitedDeleteTest, ThereIsNothingToWaitForWithoutAnOwnRow) {
   EXPECT_FALSE(awaitedClear(5, other));
   EXPECT_FALSE(awaitedClear(6, owner));
   EXPECT_FALSE(awaitedClear(300, owner));
   EXPECT_EQ(interfaces().commandsIssued(), 1u);
}

TEST_F(AwaitedDeleteTest, ARefusedDeleteIsTriedAgainAndCompletes) {
   faults->refuse(deletes(), 3);
   awaitClear(owner);
   while (faults->counts().refused < 3) {
      ASSERT_TRUE(loop.runOne());
      EXPECT_TRUE(interfaces().hasRow(5));
      EXPECT_EQ(neededLiving, 1);
      EXPECT_EQ(owner->deletions, 0);
   }
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(owner->refusals, 0);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(AwaitedDeleteTest, ADeleteThatNobodyAwaitsIsTriedAgainToo) {
   faults->refuse(deletes(), 3);
   clear(5, owner);
   owner = nullptr;
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(AwaitedDeleteTest, RefusedForEverItRestsUntilTheTableHasSomethingElseToDo) {
   faults->refuse(deletes());
   awaitClear(owner);
   EXPECT_LT(loop.runUntilIdle(), 100u);
   EXPECT_TRUE(loop.idle());
   EXPECT_EQ(owner->deletions, 0);
   EXPECT_EQ(neededLiving, 1);
   EXPECT_TRUE(interfaces().hasRow(5));
   auto refused = faults->counts().refused;

   write(6, 1, other);
   EXPECT_LT(loop.runUntilIdle(), 100u);
   EXPECT_GT(faults->counts().refused, refused);
   EXPECT_EQ(owner->deletions, 0);

   faults->stop();
   write(6, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(neededLiving, 0);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(AwaitedDeleteTest, SeveralThatRestAllComplete) {
   for (Asic::Index index : {6u, 7u, 8u}) {
      rowInForce(index, 1);
   }
   faults->refuse(deletes());
   for (Asic::Index index : {5u, 6u, 7u, 8u}) {
      ASSERT_TRUE(awaitedClear(index, owner));
   }
   EXPECT_LT(loop.runUntilIdle(), 1000u);
   faults->stop();
   write(9, 1, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 4);
   EXPECT_EQ(interfaces().rowsPresent(), 1u);
}

TEST_F(AwaitedDeleteTest, OneThatRestsIsTriedAgainWhenARefusedWriteLeavesItNewest) {
   faults->refuse(deletes());
   awaitClear(owner);
   loop.runUntilIdle();
   faults->stop();
   faults->refuse(writes(5), 1);
   write(5, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(other->refusals, 1);
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(AwaitedDeleteTest, CompletesWhenAnotherOwnerHasTheRow) {
   faults->lose(deletes(), 1);
   awaitClear(owner);
   write(5, 2, other, Nuv::make<Needed>(successorLiving));
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(other->confirmations, 1);
   EXPECT_EQ(rowAt(5), Words(3, 2));
   EXPECT_EQ(neededLiving, 0);
   EXPECT_EQ(successorLiving, 1);
}

TEST_F(AwaitedDeleteTest, CompletesWhenItIsRefusedBehindAnotherOwnersWrite) {
   faults->refuse(deletes());
   awaitClear(owner);
   write(5, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(other->confirmations, 1);
   EXPECT_EQ(faults->counts().refused, 1u) << "there is nothing to try again";
   EXPECT_EQ(rowAt(5), Words(3, 2));
}

TEST_F(AwaitedDeleteTest, OneThatRestsCompletesWhenAnotherOwnerHasTheRow) {
   faults->refuse(deletes());
   awaitClear(owner);
   loop.runUntilIdle();
   write(5, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(AwaitedDeleteTest, WhoWritesTheRowAgainWaitsNoLonger) {
   awaitClear(owner);
   write(5, 2, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 0);
   EXPECT_EQ(owner->confirmations, 2);
   awaitClear(owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(AwaitedDeleteTest, ARefusedRewriteWaitsForTheDeleteBeforeItWhenAsked) {
   faults->hold(deletes());
   faults->refuse(writes(), 1);
   awaitClear(owner);
   write(5, 2, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->refusals, 1);
   auto issued = interfaces().commandsIssued();
   EXPECT_TRUE(awaitedClear(5, owner));
   EXPECT_TRUE(awaitedClear(5, owner));
   EXPECT_EQ(interfaces().commandsIssued(), issued);
   EXPECT_EQ(owner->deletions, 0);
   faults->releaseAll();
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(AwaitedDeleteTest, ADeleteForWhichAnotherOwnerWaitsIsNotAwaitedTwice) {
   faults->hold(deletes());
   faults->refuse(writes(), 1);
   awaitClear(owner);
   write(5, 2, other);
   loop.runUntilIdle();
   EXPECT_FALSE(awaitedClear(5, other));
   other = nullptr;
   faults->releaseAll();
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(AwaitedDeleteTest, AnOwnerThatIsTakenAwayHearsNothing) {
   awaitClear(owner);
   interfaces().ownerDel(5, *owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 0);
   EXPECT_FALSE(interfaces().hasRow(5));

   write(5, 2, owner);
   loop.runUntilIdle();
   awaitClear(owner);
   write(5, 3, other);
   interfaces().ownerDel(5, *owner);
   owner = nullptr;
   loop.runUntilIdle();
   EXPECT_EQ(other->confirmations, 1);
}

TEST_F(AwaitedDeleteTest, WithItsOwnerTakenAwayTheRowStays) {
   interfaces().ownerDel(5, *owner);
   owner = nullptr;
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(neededLiving, 1);
}

TEST_F(AwaitedDeleteTest, CompletesWhenTheChipGoes) {
   write(6, 1, other);
   write(7, 1, owner);
   loop.runUntilIdle();
   awaitClear(owner);
   ASSERT_TRUE(awaitedClear(6, other));
   ASSERT_TRUE(awaitedClear(7, owner));
   write(7, 2, owner);
   chip = nullptr;
   EXPECT_EQ(owner->deletions, 1) << "not for row 7, which it wrote again";
   EXPECT_EQ(other->deletions, 1);
   EXPECT_EQ(owner->confirmations, 2);
}

TEST_F(AwaitedDeleteTest, WhoHasBeenToldIsNotToldAgainWhenTheChipGoes) {
   faults->lose(writes(6), 1);
   write(6, 1, other);
   awaitClear(owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   chip = nullptr;
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(AwaitedDeleteTest, IsToldOnceThoughTheOwnerDeletedTwice) {
   awaitClear(owner);
   write(5, 2, owner);
   awaitClear(owner);
   write(5, 3, other);
   faults->lose({}, 3);
   owner->onRowDeleted = [this] { owner = nullptr; };
   auto held = owner;
   loop.runUntilIdle();
   EXPECT_EQ(held->deletions, 1);
   EXPECT_EQ(other->confirmations, 1);
}

TEST_F(AwaitedDeleteTest, IsToldOnceByAChipThatGoesThoughTheOwnerDeletedTwice) {
   awaitClear(owner);
   write(5, 2, owner);
   awaitClear(owner);
   chip = nullptr;
   EXPECT_EQ(owner->deletions, 1);
}

TEST_F(AwaitedDeleteTest, AllWhoWaitAreToldInTheOrderInWhichTheyAsked) {
   auto third = writer.newOwner();
   std::vector<Asic::TinyHandle*> told;
   for (auto* each : {owner.get(), other.get(), third.get()}) {
      each->onRowDeleted = [&told, each] { told.push_back(each); };
   }
   faults->lose({}, 4);
   awaitClear(owner);
   write(5, 2, other);
   awaitClear(other);
   write(5, 3, third);
   awaitClear(third);
   loop.runUntilIdle();
   EXPECT_THAT(told, testing::ElementsAre(owner.get(), other.get(), third.get()));
}

TEST_F(AwaitedDeleteTest, WhoIsToldMayEndAnotherThatIsStillToBeTold) {
   for (bool chipGoes : {false, true}) {
      SCOPED_TRACE(chipGoes);
      auto first = writer.newOwner();
      auto second = writer.newOwner();
      write(5, 2, first);
      ASSERT_TRUE(awaitedClear(5, first));
      write(5, 3, second);
      ASSERT_TRUE(awaitedClear(5, second));
      if (!chipGoes) {
         write(5, 4, other);
         faults->lose({}, 4);
      }
      first->onRowDeleted = [&] {
         interfaces().ownerDel(5, *second);
         second = nullptr;
      };
      Nuv::Ptr<Table> alive(&interfaces());
      if (chipGoes) {
         first->onRowDeleted = [&] {
            alive->ownerDel(5, *second);
            second = nullptr;
         };
         chip = nullptr;
      } else {
         loop.runUntilIdle();
      }
      EXPECT_EQ(first->deletions, 1);
      EXPECT_FALSE(second);
   }
}

TEST_F(AwaitedDeleteTest, WhoIsToldMayEndTheChipBeforeItsSuccessorHears) {
   faults->lose(deletes());
   owner->onRowDeleted = [this] { chip = nullptr; };
   awaitClear(owner);
   write(5, 2, other, Nuv::make<Needed>(successorLiving));
   loop.runUntilIdle();
   EXPECT_EQ(owner->deletions, 1);
   EXPECT_EQ(other->confirmations, 0);
}

TEST_F(AwaitedDeleteTest, WhoIsToldMayWriteTheRowBeforeItsSuccessorHears) {
   for (std::uint32_t word : {2u, 3u}) {
      SCOPED_TRACE(word);
      auto next = writer.newOwner();
      auto third = writer.newOwner();
      auto deleted = writer.newOwner();
      write(5, 1, deleted);
      loop.runUntilIdle();
      faults->lose(deletes(), 1);
      deleted->onRowDeleted = [&] { write(5, word, third); };
      ASSERT_TRUE(awaitedClear(5, deleted));
      write(5, 2, next);
      while (deleted->deletions == 0) {
         ASSERT_TRUE(loop.runOne());
      }
      EXPECT_EQ(third->confirmations, 0) << "of what was written before it";
      loop.runUntilIdle();
      EXPECT_EQ(next->confirmations, 0);
      EXPECT_EQ(third->confirmations, 1);
      EXPECT_EQ(rowAt(5), Words(3, word));
      interfaces().ownerDel(5, *third);
   }
}

TEST_F(AwaitedDeleteTest, AnExceptionKeepsNobodyFromBeingTold) {
   owner->onRowDeleted = [] { throw std::runtime_error("observer"); };
   faults->lose(deletes(), 1);
   awaitClear(owner);
   write(5, 2, other);
   loop.runOne();
   loop.runOne();
   EXPECT_THROW(loop.runUntilIdle(), std::runtime_error);
   loop.runUntilIdle();
   EXPECT_EQ(other->confirmations, 1);
}

TEST_F(AwaitedDeleteTest, AChipGoesWhateverThoseWhoAreToldThrow) {
   write(6, 1, other);
   auto* nextHops = chip->table("EgrL3NextHop2");
   auto third = writer.newOwner();
   nextHops->rowIs(1, Words(3, 1), *third, nullptr);
   owner->onRowDeleted = [] { throw std::runtime_error("observer"); };
   awaitClear(owner);
   ASSERT_TRUE(awaitedClear(6, other));
   ASSERT_TRUE(nextHops->awaitedRowDel(1, *third, writer.table.get()));
   chip = nullptr;
   EXPECT_EQ(other->deletions, 1);
   EXPECT_EQ(third->deletions, 1);
}

} // namespace
} // namespace ModelChip
