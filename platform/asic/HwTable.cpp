#include "platform/asic/HwTable.h"

#include "platform/nuv/Assert.h"

#include <algorithm>
#include <utility>

namespace Asic {

namespace {

constexpr Index rowsPerChunk = 256;

// So many refusals in a row are answered by issuing the delete again at once.
constexpr unsigned promptRetries = 8;

// So many answered commands may stay in line behind unanswered ones, beyond as many as those.
constexpr std::size_t answeredSlack = 256;

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
   if (!chunk) {
      chunk = std::make_unique<Chunk>(shape_.wordsPerRow);
   }
   words = chunk->words.data() + std::size_t(position % rowsPerChunk) * shape_.wordsPerRow;
   return chunk->rows[position % rowsPerChunk];
}

HwTable::Row*
HwTable::rowIfAny(Index index) {
   if (!contains(index) || chunks_.empty() || !chunks_[(index - shape_.minIndex) / rowsPerChunk]) {
      return nullptr;
   }
   std::uint32_t* words{};
   return &row(index, words);
}

HwTable::Unanswered*
HwTable::unanswered(Command command) {
   Command first = nextCommand_ - commands_.size();
   if (command < first) {
      auto found = stragglers_.find(command);
      return found == stragglers_.end() ? nullptr : &found->second;
   }
   if (command >= nextCommand_) {
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
   waitDel(index, at, owner);
   at.owner = &owner;
   at.isRecovered = false;
   if (at.isPresent && std::equal(words.begin(), words.end(), issued)) {
      equalRowIs(index, at, owner, std::move(hold));
   } else {
      commandIs(index, words, owner.swTable(), std::move(hold));
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
   at.equalWrite = ++equalWritesSoFar_;
   equalWrites_.push_back({index, at.issued, at.equalWrite, std::move(table)});
   loop_->schedule(*this);
}

void
HwTable::rowDel(Index index, SwTable::EntryHandle const& owner, SwTable* table) {
   auto* at = isAbandoned_ ? nullptr : rowIfAny(index);
   if (!at || at->owner != &owner) {
      return;
   }
   at->owner = nullptr;
   if (at->isPresent) {
      commandIs(index, {}, table, nullptr);
   }
}

bool
HwTable::awaitedRowDel(Index index, SwTable::EntryHandle& owner, SwTable* table) {
   auto* at = isAbandoned_ ? nullptr : rowIfAny(index);
   if (!at || at->owner != &owner) {
      return false;
   }
   // Without a row there may be an unanswered delete, behind which the owner's own write was refused.
   auto* command = at->isPresent ? &commandIs(index, {}, table, nullptr) : unanswered(at->issued);
   if (!command || (command->deleted && command->deleted != &owner)) {
      at->owner = nullptr;
      return false;
   }
   command->deleted = &owner;
   return true;
}

void
HwTable::ownerDel(Index index, SwTable::EntryHandle const& owner) {
   auto* at = rowIfAny(index);
   if (!at) {
      return;
   }
   if (at->owner == &owner) {
      at->owner = nullptr;
   }
   waitDel(index, *at, owner);
}

// The owner does not wait for the row to be cleared, or does so no longer.
void
HwTable::waitDel(Index index, Row const& at, SwTable::EntryHandle const& owner) {
   std::erase_if(cleared_, [&](auto const& each) { return each.index == index && each.owner == &owner; });
   for (auto* entry = unanswered(at.issued); entry; entry = unanswered(entry->previous)) {
      if (entry->deleted == &owner) {
         entry->deleted = nullptr;
      }
   }
}

void
HwTable::clearedIs(Unanswered const& entry) {
   if (entry.deleted) {
      cleared_.push_back({entry.index, entry.deleted});
   }
}

// Who is told may end others that are still to be told, or this table's chip.
void
HwTable::tellCleared(Nuv::AllSteps& steps) {
   while (!cleared_.empty()) {
      auto* owner = cleared_.front().owner;
      cleared_.pop_front();
      steps([&] { owner->handleRowDeleted(); });
   }
}

HwTable::Unanswered&
HwTable::commandIs(Index index, std::span<std::uint32_t const> words, SwTable* table, Hold hold) {
   std::uint32_t* issued{};
   Row& at = row(index, issued);
   Unanswered entry;
   entry.index = index;
   entry.isWrite = !words.empty();
   entry.wasPresent = at.isPresent;
   entry.previous = unanswered(at.issued) ? at.issued : 0;
   entry.table = table;
   entry.hold = std::move(hold);
   std::copy_n(issued, shape_.wordsPerRow, entry.before.begin());
   std::copy(words.begin(), words.end(), issued);
   at.isPresent = entry.isWrite;
   at.isRecovered = false;
   at.equalWrite = 0;
   commands_.push_back(std::move(entry));
   Command command = nextCommand_++;
   at.issued = command;
   issue(command, index, words);
   issueParked();
   return *unanswered(command);
}

void
HwTable::issueParked() {
   auto parked = std::move(parked_);
   parked_.clear();
   for (Command command : parked) {
      auto* entry = unanswered(command);
      if (!entry) {
         continue;
      }
      std::uint32_t* words{};
      if (row(entry->index, words).issued == command) {
         issue(command, entry->index, {});
      } else {
         parked_.push_back(command);
      }
   }
}

void
HwTable::answered(Command command, bool isAccepted) {
   NUV_ASSERT(command < nextCommand_, "an answer names a command that was issued");
   auto* entry = unanswered(command);
   if (!entry) {
      return;
   }
   Nuv::Ptr<HwTable> alive(this);
   if (isAccepted) {
      accepted(command, *entry);
   } else {
      refused(command, *entry);
   }
}

// The command waits no longer; what it held is the caller's to let go.
HwTable::Unanswered
HwTable::finished(Command command, Unanswered& entry) {
   auto taken = std::exchange(entry, {});
   if (stragglers_.erase(command) == 0) {
      entry.isAnswered = true;
      ++answeredInLine_;
   }
   return taken;
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
      commands_.pop_front();
   }
}

// Rows are applied in the order of issue, so this answer speaks for the earlier commands of the row too.
void
HwTable::accepted(Command command, Unanswered& entry) {
   std::uint32_t* words{};
   Row& at = row(entry.index, words);
   bool isNewest = command == at.issued;
   auto done = finished(command, entry);
   std::vector<Unanswered> superseded;
   for (Command earlier = done.previous; auto* found = unanswered(earlier);) {
      superseded.push_back(finished(earlier, *found));
      earlier = superseded.back().previous;
   }
   for (auto* later = unanswered(at.issued); later; later = unanswered(later->previous)) {
      if (later->previous == command) {
         later->previous = 0;
      }
   }
   std::swap(at.hold, done.hold);
   trimLine();
   if (isNewest && done.deleted == at.owner) {
      at.owner = nullptr;
   }
   std::for_each(superseded.rbegin(), superseded.rend(), [this](auto const& each) { clearedIs(each); });
   clearedIs(done);
   auto equalWrite = at.equalWrite;
   issueParked();
   Nuv::AllSteps steps;
   tellCleared(steps);
   // Who was told may have written the row, or have ended the chip.
   auto* still = rowIfAny(done.index);
   if (done.isWrite && still && still->issued == command && still->equalWrite == equalWrite) {
      steps([&] { confirm(*still, done.table.get(), RowAnswer::confirmed); });
   }
   steps.finish();
}

void
HwTable::refused(Command command, Unanswered& entry) {
   std::uint32_t* words{};
   Row& at = row(entry.index, words);
   bool isNewest = command == at.issued;
   if (isNewest && !entry.isWrite) {
      retry(command, entry);
      return;
   }
   unlink(at, words, command, entry);
   auto done = finished(command, entry);
   trimLine();
   issueParked();
   if (isNewest) {
      confirm(at, done.table.get(), RowAnswer::refused);
      return;
   }
   // Somebody has written the row since.
   clearedIs(done);
   Nuv::AllSteps steps;
   tellCleared(steps);
   steps.finish();
}

// A refused command leaves the row as it was: what came behind it replaces its predecessor.
void
HwTable::unlink(Row& at, std::uint32_t* words, Command command, Unanswered const& entry) {
   if (command == at.issued) {
      at.issued = entry.previous;
      at.isPresent = entry.wasPresent;
      std::copy_n(entry.before.begin(), shape_.wordsPerRow, words);
      return;
   }
   auto* later = unanswered(at.issued);
   while (later->previous != command) {
      later = unanswered(later->previous);
   }
   later->previous = entry.previous;
   later->wasPresent = entry.wasPresent;
   later->before = entry.before;
}

void
HwTable::retry(Command refused, Unanswered& entry) {
   auto again = finished(refused, entry);
   std::uint32_t* words{};
   auto refusals = again.refusals;
   Command command = nextCommand_++;
   row(again.index, words).issued = command;
   again.refusals = std::uint8_t(std::min<unsigned>(refusals + 1u, promptRetries));
   auto index = again.index;
   commands_.push_back(std::move(again));
   trimLine();
   if (refusals < promptRetries) {
      issue(command, index, {});
   } else {
      parked_.push_back(command);
   }
}

void
HwTable::confirm(Row const& at, SwTable* table, RowAnswer answer) {
   if (at.owner && table && table->writeResponseSm()) {
      Nuv::Ptr<WriteResponseSm> sm(table->writeResponseSm());
      sm->handleWriteResponse(*at.owner, answer);
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
      confirm(at, write.table.get(), RowAnswer::confirmed);
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
            commandIs(shape_.minIndex + chunk * rowsPerChunk + position, {}, nullptr, nullptr);
            ++purged;
         }
      }
   }
   return purged;
}

// Rows stay where they are until everybody has been told: who is told may still ask for them.
void
HwTable::abandon() {
   isAbandoned_ = true;
   auto stragglers = std::move(stragglers_);
   auto commands = std::move(commands_);
   stragglers_.clear();
   commands_.clear();
   answeredInLine_ = 0;
   for (auto const& [number, command] : stragglers) {
      clearedIs(command);
   }
   for (auto const& command : commands) {
      clearedIs(command);
   }
   Nuv::AllSteps steps;
   tellCleared(steps);
   auto equalWrites = std::move(equalWrites_);
   auto chunks = std::move(chunks_);
   equalWrites_.clear();
   chunks_.clear();
   parked_.clear();
   steps.finish();
}

} // namespace Asic
