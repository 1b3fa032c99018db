#include "platform/asic/UnresolvedEntry.h"

#include <new>

namespace Asic {

SwTable::UnresolvedEntry::~UnresolvedEntry() {
   neededEntryHandleSmDelAll();
   if (piece_) {
      Nuv::poolGive(piece_, pieceBytes_);
   }
}

// A handle that ends with its machine announces that, and nobody is here to listen any more.
void
SwTable::UnresolvedEntry::neededEntryHandleSmDelAll() {
   for (auto* sm = first_; sm; sm = sm->next_) {
      sm->leave();
   }
   while (auto* sm = first_) {
      unlink(*sm);
      end(*sm);
   }
}

void
SwTable::UnresolvedEntry::NeededEntryHandleSm::changed() {
   Nuv::Ptr<UnresolvedEntry> alive(&owner_);
   owner_.noteFailure(*this);
   owner_.handleNeededEntry(*this);
}

void
SwTable::UnresolvedEntry::neededEntryHandleSmsReserve(std::size_t count) {
   auto bytes = count * sizeof(NeededEntryHandleSm);
   if (count == 0 || piece_ || std::size_t(roomEnd_ - room_) >= bytes) {
      return;
   }
   piece_ = static_cast<std::byte*>(Nuv::poolTake(bytes));
   pieceBytes_ = bytes;
   roomIs(piece_, bytes);
}

void
SwTable::UnresolvedEntry::neededEntryHandleSmIs(NeededHandle const& handle) {
   NeededEntryHandleSm* sm{};
   if (room_ != roomEnd_) {
      sm = ::new (static_cast<void*>(room_)) NeededEntryHandleSm(*this, handle, true);
      room_ += sizeof(NeededEntryHandleSm);
   } else {
      sm = new NeededEntryHandleSm(*this, handle, false);
   }
   sm->previous_ = last_;
   (last_ ? last_->next_ : first_) = sm;
   last_ = sm;
   ++count_;
   noteFailure(*sm);
}

void
SwTable::UnresolvedEntry::noteFailure(NeededEntryHandleSm& sm) {
   bool failed = failsWith(sm.handle());
   if (failed != sm.failed_) {
      sm.failed_ = failed;
      failed_ += failed ? 1 : std::uint32_t(-1);
   }
}

void
SwTable::UnresolvedEntry::unlink(NeededEntryHandleSm& sm) {
   (sm.previous_ ? sm.previous_->next_ : first_) = sm.next_;
   (sm.next_ ? sm.next_->previous_ : last_) = sm.previous_;
   failed_ -= sm.failed_ ? 1 : 0;
   --count_;
}

void
SwTable::UnresolvedEntry::end(NeededEntryHandleSm& sm) {
   if (sm.isInRoom_) {
      sm.~NeededEntryHandleSm();
   } else {
      delete &sm;
   }
}

// The machine goes last, and hears no more: the handle that it held may be the last on its entry.
void
SwTable::UnresolvedEntry::neededEntryHandleSmDel(NeededEntryHandleSm& sm) {
   unlink(sm);
   sm.leave();
   end(sm);
}

void
SwTable::UnresolvedEntry::handleNeededEntry(NeededEntryHandleSm& sm) {
   if (sm.failed_) {
      markFailedNeededEntry();
      return;
   }
   if (!isNeeded(sm.handle())) {
      neededEntryHandleSmDel(sm);
   }
   if (neededEntryHandleSms() == 0) {
      doResolve();
   } else if (!hasFailedNeededEntry()) {
      setEntryState(EntryState::unresolved);
   }
}

} // namespace Asic
