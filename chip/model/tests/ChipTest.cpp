#include "chip/model/Chip.h"

#include "chip/model/Layouts.h"
#include "chip/model/testing/RowsTest.h"
#include "platform/nuv/Exception.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

namespace ModelChip {
namespace {

using Asic::Index;
using Asic::TinyHandle;
using testing::ElementsAre;

class ChipTest : public RowsTest {
 protected:
   ChipTest() {
      chip->rowObserverIs([this](Table const& table, Index index) {
         applied.push_back(Nuv::text(table.shape().name, table.hasRow(index) ? " + " : " - ", index));
      });
   }

   std::vector<Pelm::String> applied;
};

TEST_F(ChipTest, HasATableForEachLayout) {
   ASSERT_EQ(chip->tables().size(), std::size(layouts));
   for (auto const* layout : layouts) {
      auto const* table = chip->table(layout->table);
      ASSERT_NE(table, nullptr) << layout->table;
      EXPECT_EQ(&table->layout(), layout);
      EXPECT_EQ(table->shape().layout, layout->name);
      EXPECT_EQ(table->shape().wordsPerRow, layout->wordsPerRow);
      EXPECT_EQ(table->rowsPresent(), 0u);
   }
   EXPECT_EQ(chip->table("Nothing"), nullptr);
   EXPECT_EQ(interfaces().numEntries(), 300u);
   EXPECT_EQ(interfaces().minIndex(), 0u);
   EXPECT_EQ(interfaces().maxIndex(), 299u);
   EXPECT_TRUE(interfaces().contains(299));
   EXPECT_FALSE(interfaces().contains(300));
   EXPECT_FALSE(interfaces().contains(Asic::invalidIndex));
   EXPECT_FALSE(interfaces().hasRow(300));
}

TEST_F(ChipTest, ATableThatIsNotNamedHasItsDefaultNumberOfRows) {
   auto plain = Nuv::make<Chip>(loop, Chip::Sizes{{"L3EcmpGroup0Table", 7}});
   EXPECT_EQ(plain->table("L3EcmpGroup0Table")->numEntries(), 7u);
   EXPECT_EQ(plain->table("EgrL3Oif2")->numEntries(), EgrL3Oif2::layout.defaultRows);
}

TEST_F(ChipTest, RefusesTheSizeOfATableThatItDoesNotHave) {
   EXPECT_THAT(
         [&] {
            Nuv::make<Chip>(loop, Chip::Sizes{{"Nothing", 7}});
         },
         testing::ThrowsMessage<Nuv::RangeException>("the chip has no table 'Nothing'"));
}

TEST_F(ChipTest, ATableHasUpToAMillionRows) {
   auto large = Nuv::make<Chip>(loop, Chip::Sizes{{"EgrL3Oif2", 1 << 20}});
   auto& table = *large->table("EgrL3Oif2");
   EXPECT_EQ(table.maxIndex(), 0xFFFFFu);
   table.rowIs(0xFFFFF, Words(3, 7), *owner, nullptr);
   loop.runUntilIdle();
   EXPECT_TRUE(table.hasRow(0xFFFFF));
   EXPECT_FALSE(table.hasRow(0x100000));
   EXPECT_EQ(owner->confirmations, 1);

   EXPECT_THAT(
         [&] {
            Nuv::make<Chip>(loop, Chip::Sizes{{"EgrL3Oif2", (1 << 20) + 1}});
         },
         testing::ThrowsMessage<Nuv::RangeException>(
               "table 'EgrL3Oif2' cannot have 1048577 rows: the limit is 1048576"));
}

TEST_F(ChipTest, IsPublishedByUnitAndName) {
   auto stateDatabase = Nuv::make<Kallo::EntityManager>();
   chip->publish(*stateDatabase, 3);
   EXPECT_EQ(Asic::HwTable::path(3, "EgrL3Oif2"), "asic/unit/3/hwTable/EgrL3Oif2");
   for (auto const& table : chip->tables()) {
      EXPECT_EQ(Asic::HwTable::mounted(*stateDatabase, 3, table->shape().name).get(), table.get());
      EXPECT_FALSE(Asic::HwTable::mounted(*stateDatabase, 0, table->shape().name));
   }
}

TEST_F(ChipTest, AWriteIsAppliedAndAnsweredByTheLoop) {
   write(5, 0xAB, owner);
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_EQ(interfaces().unanswered(), 1u);
   EXPECT_TRUE(loop.runOne());
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_TRUE(loop.runOne());
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_TRUE(loop.idle());
   EXPECT_EQ(interfaces().unanswered(), 0u);
   EXPECT_EQ(interfaces().rowsPresent(), 1u);
   EXPECT_EQ(rowAt(5), Words(3, 0xAB));
}

TEST_F(ChipTest, ADeletedRowIsGoneAndZero) {
   write(5, 0xAB, owner);
   loop.runUntilIdle();
   interfaces().rowDel(5, *owner, writer.table.get());
   EXPECT_TRUE(interfaces().hasRow(5));
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(interfaces().rowsPresent(), 0u);
   EXPECT_EQ(rowAt(5), Words(3, 0));
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_THAT(applied, ElementsAre("EgrL3Oif2 + 5", "EgrL3Oif2 - 5"));
}

TEST_F(ChipTest, AppliesCommandsOfAllTablesInTheOrderOfIssue) {
   std::mt19937 random(5);
   std::vector<Pelm::String> issued;
   std::uint32_t word = 0;
   for (int count = 0; count < 500; ++count) {
      auto& table = *chip->tables()[random() % chip->tables().size()];
      Index index = random() % 10;
      if (random() % 4 == 0) {
         auto before = table.commandsIssued();
         table.rowDel(index, *owner, writer.table.get());
         if (table.commandsIssued() != before) {
            issued.push_back(Nuv::text(table.shape().name, " - ", index));
         }
      } else {
         table.rowIs(index, Words(table.shape().wordsPerRow, ++word), *owner, nullptr);
         issued.push_back(Nuv::text(table.shape().name, " + ", index));
      }
      if (random() % 8 == 0) {
         loop.runOne();
      }
   }
   loop.runUntilIdle();
   EXPECT_EQ(applied, issued);
}

TEST_F(ChipTest, ChipsShareNothing) {
   auto another = newChip(loop);
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   for (auto const& table : another->tables()) {
      EXPECT_EQ(table->rowsPresent(), 0u);
      EXPECT_EQ(table->commandsIssued(), 0u);
   }
   EXPECT_NE(chip->chipInfo().sharedAllocators, another->chipInfo().sharedAllocators);
   another->table("EgrL3Oif2")->rowIs(5, Words(3, 2), *other, nullptr);
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 1));
   EXPECT_EQ(owner->confirmations, 1);
}

TEST_F(ChipTest, AnEqualRewriteIssuesNoCommandAndIsAnsweredByTheLoop) {
   write(5, 1, owner);
   loop.runUntilIdle();
   write(5, 1, owner);
   EXPECT_EQ(interfaces().commandsIssued(), 1u);
   EXPECT_EQ(owner->confirmations, 1);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 2);
   EXPECT_EQ(applied.size(), 1u);
}

TEST_F(ChipTest, AnEqualRewriteBehindAnUnansweredOneGetsItsAnswer) {
   write(5, 1, owner);
   loop.runOne();
   write(5, 1, other);
   EXPECT_EQ(interfaces().commandsIssued(), 1u);
   EXPECT_EQ(other->confirmations, 0);
   EXPECT_TRUE(loop.runOne());
   EXPECT_EQ(other->confirmations, 1);
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_TRUE(loop.idle());
}

TEST_F(ChipTest, TheRowLastIssuedDecidesWhatIsEqual) {
   write(5, 1, owner);
   write(5, 2, owner);
   write(5, 1, owner);
   EXPECT_EQ(interfaces().commandsIssued(), 3u);
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 1));
   interfaces().rowDel(5, *owner, writer.table.get());
   write(5, 1, owner);
   EXPECT_EQ(interfaces().commandsIssued(), 5u);
   loop.runUntilIdle();
   EXPECT_EQ(rowAt(5), Words(3, 1));
}

TEST_F(ChipTest, ARowOfZerosIsARow) {
   write(5, 0, owner);
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(owner->confirmations, 1);
}

TEST_F(ChipTest, ADeleteByWhoNoLongerOwnsTheRowIsIgnored) {
   write(5, 1, owner);
   loop.runUntilIdle();
   write(5, 2, other);
   interfaces().rowDel(5, *owner, writer.table.get());
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(rowAt(5), Words(3, 2));

   write(5, 2, owner);
   interfaces().rowDel(5, *other, writer.table.get());
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   interfaces().rowDel(5, *owner, writer.table.get());
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
}

TEST_F(ChipTest, ADeleteOfWhatIsNotThereIssuesNothing) {
   interfaces().rowDel(5, *owner, writer.table.get());
   interfaces().rowDel(300, *owner, writer.table.get());
   interfaces().rowDel(Asic::invalidIndex, *owner, writer.table.get());
   write(5, 1, owner);
   interfaces().rowDel(5, *owner, writer.table.get());
   interfaces().rowDel(5, *owner, writer.table.get());
   EXPECT_EQ(interfaces().commandsIssued(), 2u);
   loop.runUntilIdle();
   EXPECT_FALSE(interfaces().hasRow(5));
}

TEST_F(ChipTest, ASupersededAnswerDoesNotReachTheOwner) {
   write(5, 1, owner);
   write(5, 2, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);

   write(6, 1, owner);
   write(6, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(other->confirmations, 1);

   write(7, 1, owner);
   interfaces().rowDel(7, *owner, writer.table.get());
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
}

TEST_F(ChipTest, AnEqualRewriteThatIsSupersededIsNotAnswered) {
   write(5, 1, owner);
   loop.runUntilIdle();
   write(5, 1, owner);
   write(5, 2, other);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(other->confirmations, 1);
   write(5, 2, other);
   interfaces().rowDel(5, *other, writer.table.get());
   loop.runUntilIdle();
   EXPECT_EQ(other->confirmations, 1);
}

TEST_F(ChipTest, OfTwoEqualRewritesTheLastIsAnsweredOnce) {
   Writer second;
   Writer third;
   auto secondOwner = second.newOwner();
   auto thirdOwner = third.newOwner();
   write(5, 1, owner);
   loop.runUntilIdle();
   write(5, 1, secondOwner);
   write(5, 1, thirdOwner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 1);
   EXPECT_EQ(secondOwner->confirmations, 0);
   EXPECT_EQ(thirdOwner->confirmations, 1);
}

TEST_F(ChipTest, ATableThatAwaitsNoAnswersHearsNone) {
   writer.table->writeResponseSmDel();
   write(5, 1, owner);
   loop.runUntilIdle();
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_TRUE(interfaces().hasRow(5));
   EXPECT_EQ(owner->confirmations, 0);
}

TEST_F(ChipTest, WithItsReactionSilencedATableHearsNoAnswers) {
   writer.table->writeResponseSm()->hasNotificationActiveIs(false);
   write(5, 1, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 0);
   EXPECT_EQ(interfaces().unanswered(), 0u);
}

TEST_F(ChipTest, WhoHearsAnAnswerMayWriteAgain) {
   owner->onRowConfirmed = [this] {
      if (owner->confirmations < 3) {
         write(5, std::uint32_t(10 + owner->confirmations), owner);
         write(6, 1, other);
      }
   };
   write(5, 10, owner);
   loop.runUntilIdle();
   EXPECT_EQ(owner->confirmations, 3);
   EXPECT_EQ(rowAt(5), Words(3, 12));
   EXPECT_EQ(other->confirmations, 1);
}

TEST_F(ChipTest, WhatARowNeedsIsHeldUntilItsSuccessorIsConfirmed) {
   write(5, 1, owner, Nuv::make<Needed>(neededLiving));
   EXPECT_EQ(neededLiving, 1);
   loop.runUntilIdle();
   EXPECT_EQ(neededLiving, 1);

   write(5, 2, owner, Nuv::make<Needed>(successorLiving));
   EXPECT_EQ(neededLiving, 1);
   loop.runOne();
   EXPECT_EQ(rowAt(5), Words(3, 2));
   EXPECT_EQ(neededLiving, 1);
   loop.runOne();
   EXPECT_EQ(neededLiving, 0);
   EXPECT_EQ(successorLiving, 1);
}

TEST_F(ChipTest, WhatARowNeedsIsHeldUntilItsRemovalIsConfirmed) {
   write(5, 1, owner, Nuv::make<Needed>(neededLiving));
   loop.runUntilIdle();
   interfaces().rowDel(5, *owner, writer.table.get());
   owner = nullptr;
   EXPECT_EQ(neededLiving, 1);
   loop.runOne();
   EXPECT_FALSE(interfaces().hasRow(5));
   EXPECT_EQ(neededLiving, 1);
   loop.runOne();
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(ChipTest, WhatAnIssuedRowNeedsIsHeldFromTheStart) {
   for (std::uint32_t word = 0; word < 3; ++word) {
      write(5, word, owner, Nuv::make<Needed>(living[word]));
   }
   EXPECT_THAT(living, ElementsAre(1, 1, 1, 0));
   while (loop.runOne()) {
      bool isThere = interfaces().hasRow(5);
      EXPECT_TRUE(!isThere || living[rowAt(5)[0]] == 1);
   }
   EXPECT_THAT(living, ElementsAre(0, 0, 1, 0));
}

TEST_F(ChipTest, AnEqualRewriteHoldsWhatItNeedsInsteadOfWhatWasHeld) {
   write(5, 1, owner, Nuv::make<Needed>(neededLiving));
   write(5, 1, other, Nuv::make<Needed>(successorLiving));
   EXPECT_EQ(neededLiving, 0);
   EXPECT_EQ(successorLiving, 1);
   loop.runUntilIdle();
   EXPECT_EQ(successorLiving, 1);
   write(5, 1, other, Nuv::make<Needed>(neededLiving));
   EXPECT_EQ(neededLiving, 1);
   EXPECT_EQ(successorLiving, 0);
   interfaces().rowDel(5, *other, writer.table.get());
   loop.runUntilIdle();
   EXPECT_EQ(neededLiving, 0);
}

TEST_F(ChipTest, AnUnansweredCommandKeepsItsTable) {
   int ends = 0;
   for (bool isEqual : {false, true}) {
      SCOPED_TRACE(isEqual);
      ends = 0;
      Writer passing(&ends);
      auto passingOwner = passing.newOwner();
      if (isEqual) {
         write(5, 1, owner);
         loop.runUntilIdle();
      }
      write(5, 1, passingOwner);
      passing.table->atCleanupIs([&] { interfaces().rowDel(5, *passingOwner, nullptr); });
      passing.table = nullptr;
      EXPECT_EQ(ends, 0);
      loop.runUntilIdle();
      EXPECT_EQ(ends, 1);
      EXPECT_EQ(passingOwner->confirmations, 1);
      EXPECT_FALSE(interfaces().hasRow(5));
   }
}

TEST_F(ChipTest, ADeleteKeepsItsTableUntilItIsAnswered) {
   int ends = 0;
   Writer passing(&ends);
   auto passingOwner = passing.newOwner();
   write(5, 1, passingOwner);
   loop.runUntilIdle();
   interfaces().rowDel(5, *passingOwner, passing.table.get());
   passingOwner = nullptr;
   passing.table = nullptr;
   EXPECT_EQ(ends, 0);
   loop.runUntilIdle();
   EXPECT_EQ(ends, 1);
}

TEST_F(ChipTest, RandomUseLeavesWhatAPlainModelHas) {
   Nuv::soak(4000, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      chip = newChip(loop);
      struct Row {
         std::uint32_t word;
         std::size_t owner;
      };
      std::map<Index, Row> model;
      std::uint64_t commands = 0;
      std::vector<Nuv::Ptr<TinyHandle>> owners{writer.newOwner(), writer.newOwner(), writer.newOwner()};
      for (int step = 0; step < steps; ++step) {
         Index index = 250 + random() % 8;
         auto who = random() % owners.size();
         if (random() % 3 == 0) {
            interfaces().rowDel(index, *owners[who], writer.table.get());
            if (model.contains(index) && model[index].owner == who) {
               model.erase(index);
               ++commands;
            }
         } else {
            std::uint32_t word = random() % 3;
            write(index, word, owners[who], Nuv::make<Needed>(neededLiving));
            commands += !model.contains(index) || model[index].word != word;
            model[index] = {word, who};
         }
         ASSERT_EQ(interfaces().commandsIssued(), commands);
         for (auto runs = random() % 4; runs > 0; --runs) {
            loop.runOne();
         }
         if (random() % 50 == 0) {
            loop.runUntilIdle();
            ASSERT_EQ(interfaces().unanswered(), 0u);
            ASSERT_EQ(interfaces().rowsPresent(), model.size());
            ASSERT_EQ(neededLiving, int(model.size()));
            for (auto const& [at, row] : model) {
               ASSERT_EQ(rowAt(at), Words(3, row.word));
            }
            auto before = owners[0]->confirmations + owners[1]->confirmations + owners[2]->confirmations;
            write(index, 7, owners[who]);
            model[index] = {7, who};
            ++commands;
            loop.runUntilIdle();
            auto after = owners[0]->confirmations + owners[1]->confirmations + owners[2]->confirmations;
            ASSERT_EQ(after, before + 1);
            write(index, 1, owners[who], Nuv::make<Needed>(neededLiving));
            model[index] = {1, who};
            ++commands;
         }
      }
   });
}

} // namespace
} // namespace ModelChip
