#pragma once

#include "chip/model/Chip.h"
#include "platform/asic/testing/TinyTable.h"

#include <gmock/gmock.h>

#include <vector>

namespace ModelChip {

using Words = std::vector<std::uint32_t>;

/// What a row can need: knows whether it is still there.
class Needed final : public Nuv::Object {
 public:
   explicit Needed(int& living) : living_(living) { ++living_; }
   ~Needed() override { --living_; }

 private:
   int& living_;
};

/// A software table that hears its rows' answers, and owners that belong to it.
class Writer {
 public:
   explicit Writer(int* ends = nullptr) : table(Nuv::make<Asic::TinyTable>("Writer", ends)) {
      table->writeResponseSmIs(table.get());
   }

   Nuv::Ptr<Asic::TinyHandle> newOwner() const { return Nuv::make<Asic::TinyHandle>(table.get()); }

   Nuv::Ptr<Asic::TinyTable> table;
};

/// Base of tests that write a chip's rows themselves: all three words of an interface row are one number.
class RowsTest : public testing::Test {
 protected:
   using Owner = Nuv::Ptr<Asic::TinyHandle>;

   static Chip::Sizes sizes() {
      return {{"EgrL3Oif2", 300},         {"IngL3NextHop2Table", 20},         {"EgrL3NextHop2", 20},
              {"L3EcmpMember0Table", 20}, {"L3UnderlayEcmpMember1Table", 20}, {"L3EcmpGroup0Table", 20}};
   }

   static Nuv::Ptr<Chip> newChip(Nuv::ReactionLoop& loop, Nuv::Ptr<Memory> memory = nullptr) {
      return Nuv::make<Chip>(loop, sizes(), std::move(memory));
   }

   Table& interfaces() const { return *chip->table("EgrL3Oif2"); }

   void write(Asic::Index index, std::uint32_t word, Owner const& by, Asic::HwTable::Hold hold = nullptr) {
      Words words(interfaces().shape().wordsPerRow, word);
      interfaces().rowIs(index, words, *by, std::move(hold));
   }

   void clear(Asic::Index index, Owner const& by) { interfaces().rowDel(index, *by, writer.table.get()); }

   bool awaitedClear(Asic::Index index, Owner const& by) {
      return interfaces().awaitedRowDel(index, *by, writer.table.get());
   }

   Words rowAt(Asic::Index index) const {
      auto row = interfaces().row(index);
      return {row.begin(), row.end()};
   }

   // What the chip holds to the end counts here.
   int neededLiving{};
   int successorLiving{};
   int living[4]{};

   Nuv::ReactionLoop loop;
   Nuv::Ptr<Chip> chip = newChip(loop);
   Writer writer;
   Owner owner = writer.newOwner();
   Owner other = writer.newOwner();
};

/// The same over a chip with faults. In the end, when nothing goes wrong any more and the rows that a test
/// left are written over and cleared, nothing may be left.
class FaultyRowsTest : public RowsTest {
 protected:
   FaultyRowsTest() {
      chip->faultsIs(faults);
      faults->answerObserverIs([this](Answer const& answer) { answers.push_back(answerText(answer)); });
   }

   static Pelm::String answerText(Answer const& answer) {
      return Nuv::text(answer.isWrite ? "write " : "delete ", answer.index,
                       answer.isAccepted ? "" : " refused");
   }

   static Faults::Commands writes(std::optional<Asic::Index> row = {}) { return {"EgrL3Oif2", row, true}; }
   static Faults::Commands deletes(std::optional<Asic::Index> row = {}) { return {"EgrL3Oif2", row, false}; }

   /// A row that is written and confirmed; `owner` has heard it.
   void rowInForce(Asic::Index index, std::uint32_t word) {
      write(index, word, owner, Nuv::make<Needed>(neededLiving));
      loop.runUntilIdle();
   }

   void TearDown() override {
      if (!chip) {
         EXPECT_EQ(neededLiving + successorLiving, 0);
         return;
      }
      chip->rowObserverIs(nullptr);
      faults->stop();
      loop.runUntilIdle();
      auto last = writer.newOwner();
      for (Asic::Index index = 0; index < 16; ++index) {
         write(index, 0xFFFFFFFF, last);
      }
      loop.runUntilIdle();
      for (Asic::Index index = 0; index < 16; ++index) {
         clear(index, last);
      }
      loop.runUntilIdle();
      EXPECT_EQ(interfaces().rowsPresent(), 0u);
      EXPECT_EQ(interfaces().unanswered(), 0u);
      EXPECT_EQ(neededLiving + successorLiving, 0);
      EXPECT_THAT(living, testing::Each(0));
      EXPECT_EQ(writer.table->references(), 1u);
   }

   Nuv::Ptr<Faults> faults = Nuv::make<Faults>();
   std::vector<Pelm::String> answers;
};

} // namespace ModelChip
