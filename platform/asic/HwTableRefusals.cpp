#include "platform/asic/HwTable.h"

#include <algorithm>
#include <utility>

// What becomes of commands that the chip refuses: a write leaves its predecessor in force, a delete is issued
// again.

namespace Asic {

namespace {

// So many refusals in a row are answered by issuing the delete again at once.
constexpr unsigned promptRetries = 8;

} // namespace

void
HwTable::refused(Command command, Unanswered& entry) {
   std::uint32_t* words{};
   Row& at = row(entry.index, words);
   bool isNewest = command == at.issued;
   if (isNewest && !entry.isWrite) {
      retry(command, entry);
      return;
   }
   auto* owner = at.isOwners ? at.owner : nullptr;
   unlink(at, words, command, entry);
   auto const done = std::move(entry);
   finished(command, entry);
   trimLine();
   if (!parked_.empty()) [[unlikely]] {
      issueParked();
   }
   Nuv::AllSteps steps;
   if (isNewest) {
      steps([&] { tell(owner, done.table.get(), RowAnswer::refused); });
      tellFormers(done.index, command, RowAnswer::refused, steps);
      steps([&] { tellUncovered(done.index); });
   } else {
      // Somebody has written the row since.
      clearedIs(done);
      tellCleared(steps);
   }
   steps.finish();
}

// A refused command leaves the row as it was, and whose it was: what came behind it replaces its predecessor.
// Where the former owner has ended, whoever wrote last may clear what is there.
void
HwTable::unlink(Row& at, std::uint32_t* words, Command command, Unanswered const& entry) {
   if (command == at.issued) {
      at.issued = entry.issuedBefore;
      at.isPresent = entry.wasPresent;
      at.isOwners = entry.ownerBefore != nullptr;
      if (entry.ownerBefore) {
         at.owner = entry.ownerBefore;
         formerDel(entry.index, *at.owner);
      }
      std::copy_n(entry.before.begin(), shape_.wordsPerRow, words);
      return;
   }
   auto* later = unanswered(at.issued);
   while (later->previous != command) {
      later = unanswered(later->previous);
   }
   later->previous = entry.previous;
   later->issuedBefore = entry.issuedBefore;
   later->wasPresent = entry.wasPresent;
   later->ownerBefore = entry.ownerBefore;
   later->before = entry.before;
}

void
HwTable::retry(Command refused, Unanswered& entry) {
   auto again = std::move(entry);
   finished(refused, entry);
   auto refusals = again.refusals;
   Command command = nextCommand_++;
   row(again.index).issued = command;
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
HwTable::issueParked() {
   auto parked = std::move(parked_);
   parked_.clear();
   for (Command command : parked) {
      auto* entry = unanswered(command);
      if (!entry) {
         continue;
      }
      if (row(entry->index).issued == command) {
         issue(command, entry->index, {});
      } else {
         parked_.push_back(command);
      }
   }
}

} // namespace Asic
