#include "chip/model/Chip.h"

#include "chip/model/Layouts.h"
#include "platform/asic/RowWords.h"
#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Exception.h"

#include <algorithm>

namespace ModelChip {

namespace {

void
checkSizes(Chip::Sizes const& sizes) {
   for (auto const& size : sizes) {
      auto const& [name, rows] = size;
      bool isKnown = std::any_of(std::begin(layouts), std::end(layouts),
                                 [&](RowLayout const* layout) { return layout->table == size.first; });
      if (!isKnown) {
         throw Nuv::RangeException(Nuv::text("the chip has no table '", name, "'"));
      }
      if (rows > Chip::maxRows) {
         throw Nuv::RangeException(
               Nuv::text("table '", name, "' cannot have ", rows, " rows: the limit is ", Chip::maxRows));
      }
   }
}

} // namespace

Table::Table(RowLayout const& layout, Asic::Index size, Chip& chip, Nuv::Ptr<Memory> memory,
             Nuv::ReactionLoop& loop)
    : HwTable({layout.table, layout.name, 0, size, layout.wordsPerRow}, loop)
    , layout_(layout)
    , chip_(&chip)
    , memory_(std::move(memory))
    , rows_(memory_->rows(layout, size)) {}

void
Table::issue(Command command, Asic::Index index, std::span<std::uint32_t const> words) {
   auto& queued = chip_->issued_.emplace_back();
   queued.table = this;
   queued.number = command;
   queued.index = index;
   queued.isWrite = !words.empty();
   Asic::copyRowWords(words.data(), words.size(), queued.words);
   chip_->loop_->schedule(chip_->applyStep_);
}

bool
Table::chipRow(Asic::Index index, std::span<std::uint32_t> words) const {
   if (!hasRow(index)) {
      return false;
   }
   std::ranges::copy(row(index), words.begin());
   return true;
}

void
Table::chipGone() {
   chip_ = nullptr;
   abandon();
}

Chip::Chip(Nuv::ReactionLoop& loop, Sizes const& sizes, Nuv::Ptr<Memory> memory) : loop_(loop.link()) {
   checkSizes(sizes);
   chipInfo_.sharedAllocators = Nuv::make<Asic::SharedAllocators>();
   if (!memory) {
      memory = Nuv::make<Memory>();
   }
   for (auto const* layout : layouts) {
      auto size = sizes.find(layout->table);
      auto rows = size == sizes.end() ? layout->defaultRows : size->second;
      tables_.push_back(Nuv::make<Table>(*layout, rows, *this, memory, loop));
   }
}

Chip::~Chip() = default;

// Here and not in the destructor, from which nothing that a table's users throw could leave.
void
Chip::onZeroReferences() {
   issued_.clear();
   answers_.clear();
   if (faults_) {
      faults_->chipIs(nullptr);
   }
   Nuv::AllSteps steps;
   for (auto const& table : tables_) {
      steps([&] { table->chipGone(); });
   }
   steps.finish();
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
Chip::applyNext() {
   auto command = issued_.take_front();
   if (!issued_.empty()) {
      loop_->schedule(applyStep_);
   }
   Answer answer{command.table, command.number, command.index, command.isWrite, true};
   answer.isAccepted = !faults_ || faults_->accepts(answer);
   if (answer.isAccepted && command.isWrite) {
      command.table->rows_.rowIs(command.index, command.words);
   } else if (answer.isAccepted) {
      command.table->rows_.rowDel(command.index);
   }
   if (!faults_ || !faults_->takes(answer)) {
      answerIs(answer);
   }
   if (answer.isAccepted && rowObserver_) {
      rowObserver_(*command.table, command.index);
   }
}

void
Chip::answerIs(Answer const& answer) {
   answers_.emplace_back(answer);
   loop_->schedule(answerStep_);
}

void
Chip::answerNext() {
   auto answer = answers_.take_front();
   if (!answers_.empty()) {
      loop_->schedule(answerStep_);
   }
   if (faults_) {
      faults_->answering(answer);
   }
   answer.table->answered(answer.command, answer.isAccepted);
}

void
Chip::faultsIs(Nuv::Ptr<Faults> faults) {
   if (faults_) {
      faults_->releaseAll();
      faults_->chipIs(nullptr);
   }
   faults_ = std::move(faults);
   if (faults_) {
      faults_->chipIs(this);
   }
}

} // namespace ModelChip
