#include "platform/asic/HwTable.h"

#include "platform/asic/RowWords.h"
#include "platform/nuv/Assert.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Asic {

namespace {

constexpr Index rowsPerChunk = 256;

// So many answered commands may stay in line behind unanswered ones, beyond as many as those.
constexpr std::size_t answeredSlack = 256;

} // namespace

// Rows come in chunks, made when one of their rows is first written: a large table that is used little stays
// small.
struct HwTable::Chunk {
   // As many words as any row can have may be read from each row's first on.
   explicit Chunk(unsigned wordsPerRow)
       : words(std::make_unique<std::uint32_t[]>(std::size_t(rowsPerChunk) * wordsPerRow + maxWords)) {}

   [[gnu::noinline]] static void make(std::unique_ptr<Chunk>& chunk, unsigned wordsPerRow) {
      chunk = std::make_unique<Chunk>(wordsPerRow);
   }

   Row rows[rowsPerChunk];
   std::unique_ptr<std::uint32_t[]> words;
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

Nuv::Ptr<HwTable>
HwTable::mounted(Kallo::EntityManager const& stateDatabase, UnitId unit, Pelm::String const& name) {
   auto const at = path(unit, name);
   stateDatabase.doMount(at, typeName());
   return Nuv::dynamicCast<HwTable>(stateDatabase.getEntity(at));
}

HwTable::Row&
HwTable::row(Index index, std::uint32_t*& words) {
   Index position = index - shape_.minIndex;
   auto& chunk = chunks_[position / rowsPerChunk];
   if (!chunk) [[unlikely]] {
      Chunk::make(chunk, shape_.wordsPerRow);
   }
   words = chunk->words.get() + std::size_t(position % rowsPerChunk) * shape_.wordsPerRow;
   return chunk->rows[position % rowsPerChunk];
}

void
HwTable::prefetch(Index index) const {
   Index position = index - shape_.minIndex;
   if (!contains(index) || chunks_.empty() || !chunks_[position / rowsPerChunk]) {
      return;
   }
   auto const& chunk = *chunks_[position / rowsPerChunk];
   __builtin_prefetch(&chunk.rows[position % rowsPerChunk]);
   __builtin_prefetch(chunk.words.get() + std::size_t(position % rowsPerChunk) * shape_.wordsPerRow);
}

HwTable::Row*
HwTable::rowIfAny(Index index, std::uint32_t*& words) {
   if (!contains(index) || chunks_.empty() || !chunks_[(index - shape_.minIndex) / rowsPerChunk]) {
      return nullptr;
   }
   return &row(index, words);
}

HwTable::Unanswered*
HwTable::unansweredIfAny(Command command) {
   Command first = nextCommand_ - commands_.size();
   if (command < first) {
      auto found = stragglers_.find(command);
      return found == stragglers_.end() ? nullptr : &found->second;
   }
   if (command >= nextCommand_) {
      return nullptr;
   }
   auto& found = commands_[std::size_t(command - first)];
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
   waitDel(index, at, owner);
   bool isEqual = at.isPresent && std::equal(words.begin(), words.end(), issued);
   auto* before = at.isOwners ? at.owner : nullptr;
   ownerIs(index, at, owner);
   at.isRecovered = false;
   if (isEqual) {
      equalRowIs(index, at, owner, std::move(hold));
   } else {
      commandIs(index, at, issued, words, owner.swTable(), std::move(hold)).ownerBefore = before;
   }
}

void
HwTable::equalRowIs(Index index, Row& at, SwTable::EntryHandle& owner, Hold hold) {
   Nuv::Ptr<SwTable> table(owner.swTable());
   // What was held goes at the end of this call: its own end may lead back here.
   if (auto* command = unanswered(at.issued)) {
      std::swap(command->hold, hold);
      std::swap(command->table, table);
      return;
   }
   std::swap(at.hold, hold);
   at.isUntold = false;
   equalWritesSoFar_ = std::max(equalWritesSoFar_ + 1, 1u);
   at.equalWrite = equalWritesSoFar_;
   equalWrites_.push_back({index, at.issued, at.equalWrite, std::move(table)});
   loop_->schedule(*this);
}

void
HwTable::rowDel(Index index, SwTable::EntryHandle const& owner, SwTable* table) {
   std::uint32_t* issued{};
   auto* at = isAbandoned_ ? nullptr : rowIfAny(index, issued);
   if (!at) {
      return;
   }
   formerDel(index, owner);
   ownerBeforeDel(*at, owner);
   if (at->owner != &owner || returnRow(index, *at)) {
      return;
   }
   at->owner = nullptr;
   if (at->isPresent) {
      commandIs(index, *at, issued, {}, table, nullptr);
   }
}

bool
HwTable::awaitedRowDel(Index index, SwTable::EntryHandle& owner, SwTable* table) {
   std::uint32_t* issued{};
   auto* at = isAbandoned_ ? nullptr : rowIfAny(index, issued);
   if (!at) {
      return false;
   }
   if (at->owner != &owner) {
      formerDel(index, owner);
      ownerBeforeDel(*at, owner);
      return false;
   }
   if (returnRow(index, *at)) {
      return false;
   }
   // Without a row there may be an unanswered delete, behind which the owner's own write was refused.
   auto* command =
         at->isPresent ? &commandIs(index, *at, issued, {}, table, nullptr) : unanswered(at->issued);
   if (!command || (command->deleted && command->deleted != &owner)) {
      ownerBeforeDel(*at, owner);
      at->owner = nullptr;
      return false;
   }
   command->deleted = &owner;
   return true;
}

// Who is told may end others that are still to be told, or this table's chip.
void
HwTable::tellCleared(Nuv::AllSteps& steps) {
   while (!cleared_.empty()) {
      if (auto* owner = cleared_.take_front().owner) {
         steps([&] { owner->handleRowDeleted(); });
      }
   }
}

HwTable::Unanswered&
HwTable::commandIs(Index index, Row& at, std::uint32_t* issued, std::span<std::uint32_t const> words,
                   SwTable* table, Hold hold) {
   Command previous = unanswered(at.issued) ? at.issued : 0;
   auto& entry = commands_.emplace_back();
   entry.index = index;
   entry.isWrite = !words.empty();
   entry.wasPresent = at.isPresent;
   entry.previous = previous;
   entry.issuedBefore = at.issued;
   entry.table = table;
   entry.ownerBefore = at.isOwners ? at.owner : nullptr;
   entry.hold = std::move(hold);
   std::memcpy(entry.before.data(), issued, sizeof entry.before);
   copyRowWords(words.data(), words.size(), issued);
   at.isPresent = entry.isWrite;
   at.isRecovered = false;
   at.isUntold = at.isUntold || at.equalWrite != 0;
   at.equalWrite = 0;
   Command command = nextCommand_++;
   at.issued = command;
   issue(command, index, words);
   if (!parked_.empty()) [[unlikely]] {
      issueParked();
   }
   return entry;
}

void
HwTable::answered(Command command, bool isAccepted) {
   NUV_ASSERT(command < nextCommand_, "an answer names a command that was issued");
   auto* entry = unanswered(command);
   if (!entry) {
      return;
   }
   if (isAccepted) [[likely]] {
      accepted(command, *entry);
   } else {
      Nuv::Ptr<HwTable> const alive(this);
      refused(command, *entry);
   }
}

// The command waits no longer. What it held must have been taken from it: the end of that leads anywhere.
void
HwTable::finished(Command command, Unanswered& entry) {
   if (command < nextCommand_ - commands_.size()) [[unlikely]] {
      stragglers_.erase(command);
   } else {
      entry.isAnswered = true;
      ++answeredInLine_;
   }
}

// The line begins with an unanswered command, and an answer that never comes does not make it grow for ever.
void
HwTable::trimLine() {
   while (!commands_.empty()) {
      if (commands_.front().isAnswered) {
         --answeredInLine_;
      } else if (answeredInLine_ > commands_.size() / 2 + answeredSlack) {
         stragglers_.emplace(nextCommand_ - commands_.size(), std::move(commands_.front()));
      } else {
         break;
      }
      // What it held has been taken from it.
      commands_.drop_front();
   }
}

// Rows are applied in the order of issue, so this answer speaks for the earlier commands of the row too.
void
HwTable::accepted(Command command, Unanswered& entry) {
   Row& at = row(entry.index);
   bool isNewest = command == at.issued;
   auto const index = entry.index;
   bool const isWrite = entry.isWrite;
   // What the row before needed is let go at the end of this call.
   Nuv::Ptr<SwTable> const table = std::move(entry.table);
   auto const hold = std::exchange(at.hold, std::move(entry.hold));
   at.isUntold = isWrite;
   if (isNewest && entry.deleted == at.owner) {
      at.owner = nullptr;
   }
   std::vector<Unanswered> superseded;
   if (entry.previous || !isNewest) [[unlikely]] {
      superseded = supersededBy(command, entry, at);
   }
   clearedIs(entry);
   finished(command, entry);
   trimLine();
   auto equalWrite = at.equalWrite;
   if (!parked_.empty()) [[unlikely]] {
      issueParked();
   }
   // Who is told may end this table.
   if (cleared_.empty()) {
      if (isNewest && isWrite && at.isOwners) {
         at.isUntold = false;
         tellConfirmed(index, command, at.owner, table.get());
      }
      return;
   }
   Nuv::Ptr<HwTable> const alive(this);
   Nuv::AllSteps steps;
   tellCleared(steps);
   // Who was told may have written the row, or have ended the chip.
   auto* still = isWrite ? rowIfAny(index) : nullptr;
   if (still && still->issued == command && still->equalWrite == equalWrite && still->isOwners) {
      still->isUntold = false;
      steps([&] { tellConfirmed(index, command, still->owner, table.get()); });
   }
   steps.finish();
}

// Takes the unanswered commands before this one away, the newest first, and says of whom they were.
std::vector<HwTable::Unanswered>
HwTable::supersededBy(Command command, Unanswered const& entry, Row const& at) {
   std::vector<Unanswered> superseded;
   for (Command earlier = entry.previous; auto* found = unanswered(earlier);) {
      superseded.push_back(std::move(*found));
      finished(earlier, *found);
      earlier = superseded.back().previous;
   }
   for (auto* later = command == at.issued ? nullptr : unanswered(at.issued); later;
        later = unanswered(later->previous)) {
      if (later->previous == command) {
         later->previous = 0;
      }
   }
   std::for_each(superseded.rbegin(), superseded.rend(), [this](auto const& each) { clearedIs(each); });
   return superseded;
}

void
HwTable::tellConfirmed(Index index, Command command, SwTable::EntryHandle* owner, SwTable* table) {
   if (formers_.empty()) [[likely]] {
      tell(owner, table, RowAnswer::confirmed);
      return;
   }
   Nuv::Ptr<HwTable> const alive(this);
   Nuv::AllSteps steps;
   steps([&] { tell(owner, table, RowAnswer::confirmed); });
   tellFormers(index, command, RowAnswer::confirmed, steps);
   steps.finish();
}

void
HwTable::tell(SwTable::EntryHandle* owner, SwTable* table, RowAnswer answer) {
   if (owner && table && table->writeResponseSm()) {
      table->writeResponseSm()->handleWriteResponse(*owner, answer);
   }
}

void
HwTable::react() {
   if (equalWrites_.empty()) {
      return;
   }
   auto write = equalWrites_.take_front();
   if (!equalWrites_.empty()) {
      loop_->schedule(*this);
   }
   Row& at = row(write.index);
   // An equal write behind this one is a later command as well: whoever made it hears of his own.
   if (at.issued == write.issued && at.equalWrite == write.number) {
      at.equalWrite = 0;
      Nuv::Ptr<HwTable> const alive(this);
      tellConfirmed(write.index, at.issued, at.owner, write.table.get());
   }
}

void
HwTable::recover() {
   std::uint32_t found[maxWords];
   auto const rowWords = std::span(found).first(shape_.wordsPerRow);
   for (Index position = 0; position < shape_.numEntries; ++position) {
      Index index = shape_.minIndex + position;
      if (isAbandoned_ || !chipRow(index, rowWords)) {
         continue;
      }
      std::uint32_t* words{};
      Row& at = row(index, words);
      if (at.isPresent || at.owner || unanswered(at.issued)) {
         continue;
      }
      std::copy(rowWords.begin(), rowWords.end(), words);
      at.isPresent = true;
      at.isRecovered = true;
   }
}

Index
HwTable::purge() {
   Index purged = 0;
   for (Index chunk = 0; !isAbandoned_ && chunk < chunks_.size(); ++chunk) {
      for (Index position = 0; chunks_[chunk] && position < rowsPerChunk; ++position) {
         if (chunks_[chunk]->rows[position].isRecovered) {
            Index index = shape_.minIndex + chunk * rowsPerChunk + position;
            std::uint32_t* issued{};
            auto& at = row(index, issued);
            commandIs(index, at, issued, {}, nullptr, nullptr);
            ++purged;
         }
      }
   }
   return purged;
}

// Rows stay where they are until everybody has been told: who is told may still ask for them. He is told with
// the other commands still in their places, where his own is found without a look at all of them.
void
HwTable::abandon() {
   isAbandoned_ = true;
   std::vector<Unanswered> gone;
   Nuv::AllSteps steps;
   auto tellOf = [&](Unanswered& command) {
      clearedIs(command);
      gone.push_back(std::move(command));
      tellCleared(steps);
   };
   while (!stragglers_.empty()) {
      auto oldest = stragglers_.extract(stragglers_.begin());
      tellOf(oldest.mapped());
   }
   while (!commands_.empty()) {
      auto oldest = commands_.take_front();
      if (oldest.isAnswered) {
         --answeredInLine_;
      } else {
         tellOf(oldest);
      }
   }
   auto equalWrites = std::move(equalWrites_);
   auto chunks = std::move(chunks_);
   equalWrites_.clear();
   formers_.clear();
   chunks_.clear();
   parked_.clear();
   steps.finish();
}

} // namespace Asic
