#include "platform/asic/HwTable.h"

#include <algorithm>
#include <utility>

// Whose a row is: its owner's, who wrote it last, and after him that of who wrote it before.

namespace Asic {

void
HwTable::ownerIs(Index index, Row& at, SwTable::EntryHandle& owner) {
   formerDel(index, owner);
   if (at.owner && at.owner != &owner && at.owner->isResolved()) {
      bool isUntold = at.isUntold || at.equalWrite != 0 || unanswered(at.issued);
      formers_.emplace(index, Former{at.owner, at.isOwners ? at.issued : noCommand, isUntold});
   }
   at.owner = &owner;
   at.isOwners = true;
}

void
HwTable::formerDelIfAny(Index index, SwTable::EntryHandle const& owner) {
   auto [former, end] = formers_.equal_range(index);
   while (former != end) {
      former = former->second.owner == &owner ? formers_.erase(former) : std::next(former);
   }
}

// Whose row it was writes it again, which costs nothing where the words are equal.
bool
HwTable::returnRowIfAny(Index index, Row& at) {
   auto end = formers_.upper_bound(index);
   if (end == formers_.begin() || std::prev(end)->first != index) {
      return false;
   }
   ownerBeforeDel(at, *at.owner);
   at.owner = std::prev(end)->second.owner;
   at.isOwners = false; // until he has written it
   formers_.erase(std::prev(end));
   at.owner->handleRowReturned();
   return true;
}

// The answer is theirs as well: it speaks for the words that they wrote. Each hears it once.
void
HwTable::tellFormers(Index index, Command command, RowAnswer answer, Nuv::AllSteps& steps) {
   if (formers_.empty()) {
      return;
   }
   std::vector<Nuv::Ptr<SwTable::EntryHandle>> told;
   auto [former, end] = formers_.equal_range(index);
   for (; former != end; ++former) {
      if (former->second.wrote == command && std::exchange(former->second.isUntold, false)) {
         told.emplace_back(former->second.owner);
      }
   }
   for (auto const& handle : told) {
      if (auto* table = handle->swTable(); table && table->writeResponseSm()) {
         Nuv::Ptr<WriteResponseSm> sm(table->writeResponseSm());
         steps([&] { sm->handleWriteResponse(*handle, answer); });
      }
   }
}

// The row in force may have been confirmed while another command waited behind it: then its owner has not
// heard of that yet.
void
HwTable::tellUncovered(Index index) {
   auto* at = rowIfAny(index);
   if (at && at->isUntold && at->isPresent && at->isOwners && at->owner && !unanswered(at->issued)) {
      at->isUntold = false;
      Nuv::Ptr<SwTable> table(at->owner->swTable());
      tellConfirmed(index, at->issued, at->owner, table.get());
   }
}

void
HwTable::ownerDel(Index index, SwTable::EntryHandle const& owner) {
   auto* at = rowIfAny(index);
   if (!at) {
      return;
   }
   formerDel(index, owner);
   if (at->owner == &owner) {
      at->owner = nullptr;
   }
   waitDel(index, *at, owner);
   ownerBeforeDel(*at, owner);
}

// Should what came behind it be refused, the row is not the owner's again.
void
HwTable::ownerBeforeDel(Row const& at, SwTable::EntryHandle const& owner) {
   for (auto* entry = unanswered(at.issued); entry; entry = unanswered(entry->previous)) {
      ++commandsLookedAt_;
      if (entry->ownerBefore == &owner) {
         entry->ownerBefore = nullptr;
      }
   }
}

// The owner does not wait for the row to be cleared, or does so no longer.
void
HwTable::waitDelIfAny(Index index, Row const& at, SwTable::EntryHandle const& owner) {
   for (std::size_t place = 0; place < cleared_.size(); ++place) {
      ++commandsLookedAt_;
      if (cleared_[place].index == index && cleared_[place].owner == &owner) {
         cleared_[place].owner = nullptr;
      }
   }
   for (auto* entry = unanswered(at.issued); entry; entry = unanswered(entry->previous)) {
      ++commandsLookedAt_;
      if (entry->deleted == &owner) {
         entry->deleted = nullptr;
      }
   }
}

bool
HwTable::isRowDelAwaited(Index index, SwTable::EntryHandle const& owner) {
   auto* at = rowIfAny(index);
   for (auto* entry = at ? unanswered(at->issued) : nullptr; entry; entry = unanswered(entry->previous)) {
      ++commandsLookedAt_;
      if (entry->deleted == &owner) {
         return true;
      }
   }
   bool isToBeTold = false;
   for (std::size_t place = 0; place < cleared_.size(); ++place) {
      ++commandsLookedAt_;
      isToBeTold |= cleared_[place].index == index && cleared_[place].owner == &owner;
   }
   return isToBeTold;
}

} // namespace Asic
