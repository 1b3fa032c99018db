#pragma once

#include "chip/model/Faults.h"
#include "chip/model/Memory.h"
#include "chip/model/RowLayout.h"
#include "platform/asic/HwTable.h"
#include "platform/chipstate/ChipInfo.h"

#include <functional>
#include <map>

namespace ModelChip {

class Chip;

/// One hardware table of the model chip, and the rows that the chip has in it.
class Table final : public Asic::HwTable {
 public:
   /// The table has as many rows as `size`, those that `memory` has of it.
   Table(RowLayout const& layout, Asic::Index size, Chip& chip, Nuv::Ptr<Memory> memory,
         Nuv::ReactionLoop& loop);

   RowLayout const& layout() const { return layout_; }

   /// Whether the chip has a row at `index`; false outside the table.
   bool hasRow(Asic::Index index) const { return rows_.has(index); }

   /// The words of the row at `index`, which the table must contain; zero where there is no row.
   std::span<std::uint32_t const> row(Asic::Index index) const { return rows_.row(index); }

   /// How many rows the chip has in the table.
   Asic::Index rowsPresent() const { return rows_.present(); }

 private:
   friend class Chip;

   void issue(Command command, Asic::Index index, std::span<std::uint32_t const> words) override;
   bool chipRow(Asic::Index index, std::span<std::uint32_t> words) const override;
   void chipGone();

   RowLayout const& layout_;
   Chip* chip_;
   Nuv::Ptr<Memory> memory_;
   Rows& rows_;
};

/// A chip in memory. Commands of all its tables go through one queue, in the order of issue; each is applied
/// by a reaction of its own and answered by a later one.
class Chip final : public Nuv::Object {
 public:
   /// Rows of each table by name; a table that is not named has its default number.
   using Sizes = std::map<Pelm::String, Asic::Index>;
   /// Called after each row that the chip has written or cleared.
   using RowObserver = std::function<void(Table const&, Asic::Index)>;

   /// No table has more rows.
   static constexpr Asic::Index maxRows = 1 << 20;

   /// A chip whose rows are those of `memory`, which no other chip may use meanwhile, or its own. Throws
   /// `Nuv::RangeException` for a table that the chip does not have, for too many rows of one, and where the
   /// memory has another number of them.
   explicit Chip(Nuv::ReactionLoop& loop, Sizes const& sizes = {}, Nuv::Ptr<Memory> memory = nullptr);
   ~Chip() override;

   /// Puts the chip's tables where software tables for `unit` look for them.
   void publish(Kallo::EntityManager& entityManager, Asic::UnitId unit) const;

   ZandorCentral::ChipInfo const& chipInfo() const { return chipInfo_; }

   /// The table of that name; null when the chip has none.
   Table* table(Pelm::String const& name) const;
   std::vector<Nuv::Ptr<Table>> const& tables() const { return tables_; }

   void rowObserverIs(RowObserver observer) { rowObserver_ = std::move(observer); }

   /// What goes wrong from here on; null for nothing. Answers that the faults before had kept come now.
   void faultsIs(Nuv::Ptr<Faults> faults);

 protected:
   void onZeroReferences() override;

 private:
   friend class Faults;
   friend class Table;

   struct Command {
      Table* table;
      std::uint64_t number;
      Asic::Index index;
      bool isWrite;
      std::uint32_t words[Asic::HwTable::maxWords];
   };

   class Step final : public Nuv::Reaction {
    public:
      Step(Chip& chip, void (Chip::*run)()) : chip_(chip), run_(run) {}

    private:
      void react() override { (chip_.*run_)(); }

      Chip& chip_;
      void (Chip::*run_)();
   };

   void applyNext();
   void answerIs(Answer const& answer);
   void answerNext();

   Nuv::Ptr<Nuv::ReactionLoop::Link> loop_;
   ZandorCentral::ChipInfo chipInfo_;
   std::vector<Nuv::Ptr<Table>> tables_;
   Nuv::Ring<Command> issued_;
   Nuv::Ring<Answer> answers_;
   Nuv::Ptr<Faults> faults_;
   RowObserver rowObserver_;
   Step applyStep_{*this, &Chip::applyNext};
   Step answerStep_{*this, &Chip::answerNext};
};

} // namespace ModelChip
