#include "platform/asic/UnresolvedEntry.h"

namespace Asic {

SwTable::UnresolvedEntry::UnresolvedEntry() = default;

// A handle that ends with its machine announces that, and nobody is here to listen any more.
SwTable::UnresolvedEntry::~UnresolvedEntry() {
   for (auto const& sm : sms_) {
      sm->leave();
   }
}

SwTable::UnresolvedEntry::NeededEntryHandleSm::NeededEntryHandleSm(UnresolvedEntry& owner,
                                                                   NeededHandle handle, std::size_t position)
    : owner_(owner), handle_(std::move(handle)), position_(position) {
   handle_->notifieeIs(*this);
}

void
SwTable::UnresolvedEntry::NeededEntryHandleSm::changed() {
   Nuv::Ptr<UnresolvedEntry> alive(&owner_);
   owner_.noteFailure(*this);
   owner_.handleNeededEntry(*this);
}

void
SwTable::UnresolvedEntry::neededEntryHandleSmIs(NeededHandle const& handle) {
   sms_.push_back(std::make_unique<NeededEntryHandleSm>(*this, handle, sms_.size()));
   noteFailure(*sms_.back());
}

void
SwTable::UnresolvedEntry::noteFailure(NeededEntryHandleSm& sm) {
   bool failed = failsWith(sm.handle());
   if (failed != sm.failed_) {
      sm.failed_ = failed;
      failed_ += failed ? 1 : std::size_t(-1);
   }
}

void
SwTable::UnresolvedEntry::neededEntryHandleSmDel(NeededEntryHandleSm& sm) {
   auto position = sm.position_;
   failed_ -= sm.failed_ ? 1 : 0;
   std::swap(sms_[position], sms_.back());
   sms_[position]->position_ = position;
   // The machine goes last, and hears no more: the handle that it held may be the last on its entry.
   auto gone = std::move(sms_.back());
   sms_.pop_back();
   gone->leave();
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
   if (sms_.empty()) {
      doResolve();
   } else if (!hasFailedNeededEntry()) {
      setEntryState(EntryState::unresolved);
   }
}

} // namespace Asic
