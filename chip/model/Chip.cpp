#include "chip/model/Chip.h"

#include "chip/model/Layouts.h"

#include <algorithm>

namespace ModelChip {

Table::Table(RowLayout const& layout, Asic::Index rows, Chip& chip, Nuv::ReactionLoop& loop)
    : HwTable({layout.table, layout.name, 0, rows, layout.wordsPerRow}, loop)
    , layout_(layout)
    , chip_(&chip)
    , words_(std::size_t(rows) * layout.wordsPerRow)
    , isPresent_(rows) {}

std::span<std::uint32_t const>
Table::row(Asic::Index index) const {
   return std::span(words_).subspan(std::size_t(index) * layout_.wordsPerRow, layout_.wordsPerRow);
}

void
Table::issue(Command command, Asic::Index index, std::span<std::uint32_t const> words) {
   Chip::Command queued{this, command, index, !words.empty(), {}};
   std::copy(words.begin(), words.end(), queued.words);
   chip_->commandIs(queued);
}

void
Table::apply(Asic::Index index, std::span<std::uint32_t const> words, bool isWrite) {
   auto at = words_.begin() + std::ptrdiff_t(std::size_t(index) * layout_.wordsPerRow);
   if (isWrite) {
      std::copy_n(words.begin(), layout_.wordsPerRow, at);
   } else {
      std::fill_n(at, layout_.wordsPerRow, 0u);
   }
   rowsPresent_ += Asic::Index(isWrite) - Asic::Index(isPresent_[index]);
   isPresent_[index] = isWrite;
}

void
Table::chipGone() {
   chip_ = nullptr;
   abandon();
}

Chip::Chip(Nuv::ReactionLoop& loop, Sizes const& sizes) : loop_(loop.link()) {
   chipInfo_.sharedAllocators = Nuv::make<Asic::SharedAllocators>();
   for (auto const* layout : layouts) {
      auto size = sizes.find(layout->table);
      auto rows = size == sizes.end() ? layout->defaultRows : size->second;
      tables_.push_back(Nuv::make<Table>(*layout, rows, *this, loop));
   }
}

Chip::~Chip() {
   for (auto const& table : tables_) {
      table->chipGone();
   }
}

void
Chip::publish(Kallo::EntityManager& entityManager, Asic::UnitId unit) const {
   for (auto const& table : tables_) {
      entityManager.entityIs(Asic::HwTable::path(unit, table->shape().name), table);
   }
}

Table*
Chip::table(Pelm::String const& name) const {
   auto found = std::find_if(tables_.begin(), tables_.end(),
                             [&](auto const& table) { return table->shape().name == name; });
   return found == tables_.end() ? nullptr : found->get();
}

void
Chip::commandIs(Command const& command) {
   issued_.push_back(command);
   loop_->schedule(applyStep_);
}

void
Chip::applyNext() {
   auto command = issued_.front();
   issued_.pop_front();
   if (!issued_.empty()) {
      loop_->schedule(applyStep_);
   }
   command.table->apply(command.index, command.words, command.isWrite);
   applied_.emplace_back(command.table, command.number);
   loop_->schedule(answerStep_);
   if (rowObserver_) {
      rowObserver_(*command.table, command.index);
   }
}

void
Chip::answerNext() {
   auto [table, number] = applied_.front();
   applied_.pop_front();
   if (!applied_.empty()) {
      loop_->schedule(answerStep_);
   }
   table->answered(number);
}

} // namespace ModelChip
