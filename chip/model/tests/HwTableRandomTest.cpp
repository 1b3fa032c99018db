#include "chip/model/testing/ReferenceTable.h"
#include "chip/model/testing/RowsTest.h"
#include "platform/nuv/testing/Soak.h"

#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <random>

namespace ModelChip {
namespace {

using Asic::Index;

/// A hardware table with all faults beside the reference, which must agree after every step.
class HwTableRandomTest : public RowsTest {
 protected:
   // The rows lie on both sides of a border between two chunks of the table.
   static constexpr Index firstRow = 224;
   static constexpr Index rows = 64;
   static constexpr Index ownersPerRow = 3;

   // What the chip holds counts here.
   ~HwTableRandomTest() override {
      table = nullptr;
      chip = nullptr;
   }

   void start(std::uint32_t seed) {
      random.seed(seed);
      table = nullptr;
      chip = nullptr;
      memory = Nuv::make<Memory>();
      faults = Nuv::make<Faults>();
      isEnding = false;
      owners.clear();
      for (Index each = 0; each < rows * ownersPerRow; ++each) {
         owners.push_back(newOwner(firstRow + each / ownersPerRow));
      }
      restart();
   }

   Owner& ownerOf(Index index, Index which = 0) {
      return owners[std::size_t(index - firstRow) * ownersPerRow + which];
   }

   Owner newOwner(Index index) {
      auto made = writer.newOwner();
      auto* heard = made.get();
      made->onRowConfirmed = [this, index, heard] { hears("confirmed", reference->confirmed(index, heard)); };
      made->onRowRefused = [this, index, heard] { hears("refused", reference->refused(index, heard)); };
      made->onRowDeleted = [this, heard] { hears("deleted", reference->deleted(heard)); };
      return made;
   }

   /// An owner hears something. It may do something in turn.
   void hears(char const* what, bool isExpected) {
      EXPECT_TRUE(isExpected) << what;
      if (chip && !isEnding && random() % 8 == 0) {
         operate();
      }
   }

   /// The chip goes, and another one takes its place; what is in its memory is recovered.
   void restart() {
      if (table) {
         reference->chipGone();
         chip = nullptr;
         EXPECT_TRUE(reference->nothingIsDue());
         EXPECT_EQ(living(), 0);
      }
      chip = newChip(loop, memory);
      table = &interfaces();
      chip->faultsIs(faults);
      faults->answerObserverIs([this](Answer const& answer) {
         reference->answer(answer.index, answer.command, answer.isAccepted);
      });
      reference = std::make_unique<ReferenceTable>();
      table->recover();
      for (Index index = firstRow; index < firstRow + rows; ++index) {
         if (table->hasRow(index)) {
            reference->recovered(index, table->row(index)[0]);
         }
      }
   }

   void operate() {
      // Few rows are written all the time: answers of theirs overtake one another.
      Index row = random() % 2 ? random() % 4 * 20 : random() % rows;
      Index index = firstRow + row;
      auto& by = ownerOf(index, random() % ownersPerRow);
      switch (random() % 16) {
      case 0:
      case 1:
      case 2:
         reference->clear(index, by.get());
         clear(index, by);
         break;
      case 3:
      case 4:
      case 5: {
         bool isAwaited = reference->awaitedClear(index, by.get());
         EXPECT_EQ(awaitedClear(index, by), isAwaited);
         break;
      }
      case 6:
         reference->ownerDel(index, by.get());
         table->ownerDel(index, *by);
         retired.push_back(std::exchange(by, newOwner(index)));
         break;
      case 7:
         if (random() % 64 == 0) {
            auto purged = reference->purge();
            EXPECT_EQ(table->purge(), purged);
         }
         break;
      default:
         writeRow(index, random() % 4, by);
      }
   }

   void writeRow(Index index, std::uint32_t word, Owner const& by) {
      needed.push_back(0);
      reference->write(index, word, by.get(), &needed.back());
      write(index, word, by, Nuv::make<Needed>(needed.back()));
   }

   /// What goes wrong for the next while.
   void faultsChange() {
      faults->stop();
      auto upTo = [&](unsigned parts) { return random() % 2 ? unsigned(random() % parts) : 0; };
      faults->random(random(), {.refuseWrite = upTo(500),
                                .refuseDelete = upTo(1001),
                                .lose = upTo(900),
                                .repeat = upTo(300),
                                .delay = upTo(1001),
                                .maxTurns = 1 + unsigned(random() % 30)});
      if (random() % 4 == 0) {
         faults->holdAnswers();
      }
      if (random() % 4 == 0) {
         faults->refuse({"EgrL3Oif2", {}, false});
      }
   }

   void runLoop() {
      loop.runOne();
      EXPECT_TRUE(reference->nothingIsDue());
   }

   void runUntilIdle() {
      while (!loop.idle() && !HasFailure()) {
         runLoop();
      }
      EXPECT_FALSE(reference->equalWriteIsDue());
   }

   int living() const { return std::accumulate(needed.begin(), needed.end(), 0); }

   void check(Index index) {
      ASSERT_EQ(table->commandsIssued(), reference->commandsIssued());
      ASSERT_EQ(table->unanswered(), reference->unanswered());
      auto there = table->hasRow(index) ? std::optional(table->row(index)[0]) : std::nullopt;
      ASSERT_TRUE(reference->mayBeThere(index, there)) << index;
      ASSERT_TRUE(reference->holdsLive(index)) << index;
   }

   void checkAll() {
      for (Index index = firstRow; index < firstRow + rows; ++index) {
         check(index);
      }
      ASSERT_EQ(living(), reference->holds());
      while (needed.size() > 1000 && needed.front() == 0) {
         needed.pop_front();
      }
   }

   /// Nothing goes wrong any more, and what was lost is made up for.
   void settle() {
      faults->stop();
      writeRow(firstRow, 10, ownerOf(firstRow));
      runUntilIdle();
      for (auto index : reference->unansweredRows()) {
         writeRow(index, 11, ownerOf(index));
      }
      runUntilIdle();
      ASSERT_EQ(table->unanswered(), 0u);
      ASSERT_EQ(writer.table->references(), 1u);
      checkAll();
   }

   void step() {
      retired.clear();
      if (random() % 512 == 0) {
         faultsChange();
      }
      if (random() % 2 == 0) {
         operate();
      }
      for (auto runs = random() % 5; runs > 0; --runs) {
         runLoop();
      }
      if (faults->answersHere() != 0 && random() % 8 == 0) {
         faults->releaseAnswer(random() % 64);
      }
      if (faults->answersHere() > 100) {
         faults->releaseAll();
      }
      if (random() % 256 == 0) {
         runUntilIdle();
         checkAll();
      }
      check(firstRow + random() % rows);
   }

   /// Everything is cleared, and nothing is left.
   void end() {
      settle();
      isEnding = true;
      for (Index index = firstRow; index < firstRow + rows; ++index) {
         writeRow(index, 12, ownerOf(index));
         reference->clear(index, ownerOf(index).get());
         clear(index, ownerOf(index));
      }
      runUntilIdle();
      settle();
      EXPECT_EQ(table->rowsPresent(), 1u) << "what settling writes itself";
      EXPECT_EQ(living(), 1);
   }

   std::mt19937 random;
   std::deque<int> needed;
   Nuv::Ptr<Memory> memory = Nuv::make<Memory>();
   Nuv::Ptr<Faults> faults = Nuv::make<Faults>();
   Nuv::Ptr<Table> table;
   std::vector<Owner> owners;
   std::vector<Owner> retired; ///< taken away, maybe by themselves while they were told something
   bool isEnding{};
   std::unique_ptr<ReferenceTable> reference;
};

TEST_F(HwTableRandomTest, RandomUseWithAllFaultsAgreesWithThePlainReference) {
   Nuv::soak(100'000, [this](std::uint32_t seed, int steps) {
      start(seed);
      for (int count = 0; count < steps && !HasFailure(); ++count) {
         step();
         switch (random() % 4096) {
         case 0:
            settle();
            break;
         case 1:
            restart();
            break;
         }
      }
      end();
   });
}

} // namespace
} // namespace ModelChip
