#include "platform/asic/HwTable.h"

#include "platform/nuv/Assert.h"

#include <algorithm>

namespace Asic {

namespace {

constexpr Index rowsPerChunk = 256;

} // namespace

// Rows come in chunks, made when one of their rows is first written: a large table that is used little stays
// small.
struct HwTable::Chunk {
   explicit Chunk(unsigned wordsPerRow) : words(std::size_t(rowsPerChunk) * wordsPerRow) {}

   Row rows[rowsPerChunk];
   std::vector<std::uint32_t> words;
};

HwTable::HwTable(Shape shape, Nuv::ReactionLoop& loop) : shape_(std::move(shape)), loop_(loop.link()) {
   NUV_ASSERT(shape_.wordsPerRow >= 1 && shape_.wordsPerRow <= maxWords, shape_.name);
   chunks_.resize(shape_.numEntries / rowsPerChunk + (shape_.numEntries % rowsPerChunk != 0));
}

HwTable::~HwTable() = default;

Pelm::String
HwTable::path(UnitId unit, Pelm::String const& name) {
   return Nuv::text("asic/unit/", unit, "/hwTable/", name);
}

HwTable::Row&
HwTable::row(Index index, std::uint32_t*& words) {
   Index position = index - shape_.minIndex;
   auto& chunk = chunks_[position / rowsPerChunk];
   if (!chunk) {
      chunk = std::make_unique<Chunk>(shape_.wordsPerRow);
   }
   words = chunk->words.data() + std::size_t(position % rowsPerChunk) * shape_.wordsPerRow;
   return chunk->rows[position % rowsPerChunk];
}

HwTable::Unanswered*
HwTable::unanswered(Command command) {
   Command first = nextCommand_ - commands_.size();
   if (command < first || command >= nextCommand_) {
      return nullptr;
   }
   auto& found = commands_[command - first];
   return found.isAnswered ? nullptr : &found;
}

void
HwTable::rowIs(Index index, std::span<std::uint32_t const> words, SwTable::EntryHandle& owner, Hold hold) {
   NUV_ASSERT(contains(index) && words.size() == shape_.wordsPerRow, shape_.name);
   if (isAbandoned_) {
      return;
   }
   std::uint32_t* issued{};
   Row& at = row(index, issued);
   if (at.isPresent && std::equal(words.begin(), words.end(), issued)) {
      equalRowIs(index, at, owner, std::move(hold));
      return;
   }
   std::copy(words.begin(), words.end(), issued);
   at.isPresent = true;
   at.owner = &owner;
   commandIs(at, index, words, owner.swTable(), std::move(hold));
}

void
HwTable::equalRowIs(Index index, Row& at, SwTable::EntryHandle& owner, Hold hold) {
   at.owner = &owner;
   Nuv::Ptr<SwTable> table(owner.swTable());
   // What was held goes at the end of this call: its own end may lead back here.
   if (auto* command = unanswered(at.issued)) {
      std::swap(command->hold, hold);
      std::swap(command->table, table);
      return;
   }
   std::swap(at.hold, hold);
   at.equalWrite = ++equalWritesSoFar_;
   equalWrites_.push_back({index, at.issued, at.equalWrite, std::move(table)});
   loop_->schedule(*this);
}

void
HwTable::rowDel(Index index, SwTable::EntryHandle const& owner, SwTable* table) {
   if (!contains(index) || isAbandoned_) {
      return;
   }
   std::uint32_t* issued{};
   Row& at = row(index, issued);
   if (at.owner != &owner) {
      return;
   }
   at.owner = nullptr;
   at.isPresent = false;
   commandIs(at, index, {}, table, nullptr);
}

void
HwTable::commandIs(Row& at, Index index, std::span<std::uint32_t const> words, SwTable* table, Hold hold) {
   Command command = nextCommand_++;
   at.issued = command;
   commands_.push_back({index, false, Nuv::Ptr<SwTable>(table), std::move(hold)});
   issue(command, index, words);
}

void
HwTable::answered(Command command) {
   auto* entry = unanswered(command);
   NUV_ASSERT(entry, "an answer names a command that waits for it");
   std::uint32_t* words{};
   Row& at = row(entry->index, words);
   auto table = std::move(entry->table);
   auto hold = std::move(entry->hold);
   entry->isAnswered = true;
   // Rows are applied in the order of issue, so the answer of a later command speaks for the earlier ones
   // too.
   if (command > at.confirmed) {
      at.confirmed = command;
      std::swap(at.hold, hold);
   }
   bool isNewest = command == at.issued;
   while (!commands_.empty() && commands_.front().isAnswered) {
      commands_.pop_front();
   }
   if (isNewest) {
      confirm(at, table.get());
   }
}

void
HwTable::confirm(Row const& at, SwTable* table) {
   if (at.owner && table && table->writeResponseSm()) {
      Nuv::Ptr<WriteResponseSm> sm(table->writeResponseSm());
      sm->handleWriteResponse(*at.owner);
   }
}

void
HwTable::react() {
   if (equalWrites_.empty()) {
      return;
   }
   auto write = std::move(equalWrites_.front());
   equalWrites_.pop_front();
   if (!equalWrites_.empty()) {
      loop_->schedule(*this);
   }
   std::uint32_t* words{};
   Row& at = row(write.index, words);
   // An equal write behind this one is a later command as well: whoever made it hears of his own.
   if (at.issued == write.issued && at.equalWrite == write.number) {
      confirm(at, write.table.get());
   }
}

void
HwTable::abandon() {
   isAbandoned_ = true;
   auto commands = std::move(commands_);
   auto equalWrites = std::move(equalWrites_);
   auto chunks = std::move(chunks_);
   commands_.clear();
   equalWrites_.clear();
   chunks_.clear();
}

} // namespace Asic
