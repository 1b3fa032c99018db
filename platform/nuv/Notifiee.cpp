#include "platform/nuv/Notifiee.h"

#include "platform/nuv/Assert.h"

namespace Nuv {

constinit thread_local NotifieeListBase::Walk* NotifieeListBase::innermost_ = nullptr;

void
Notifiee::leaveList() {
   for (auto* walk = NotifieeListBase::innermost_; walk; walk = walk->outer_) {
      if (walk->at_ == this) {
         walk->at_ = walk->last_ == this ? nullptr : next_;
      } else if (walk->last_ == this) {
         walk->last_ = previous_;
      }
   }
   if (list_->first_ == this) {
      list_->first_ = next_;
   } else {
      previous_->next_ = next_;
   }
   if (auto* behind = next_ ? next_ : list_->first_) {
      behind->previous_ = previous_;
   }
   list_ = nullptr;
   previous_ = next_ = nullptr;
}

void
NotifieeListBase::add(Notifiee& notifiee) {
   NUV_ASSERT(!notifiee.isListed(), "an observer has one place");
   notifiee.list_ = this;
   if (first_) {
      notifiee.previous_ = first_->previous_;
      notifiee.previous_->next_ = &notifiee;
   } else {
      first_ = &notifiee;
   }
   first_->previous_ = &notifiee;
}

void
NotifieeListBase::clear() {
   while (first_) {
      first_->leave();
   }
}

// The list ends: its observers are free, and nobody more is told.
void
NotifieeListBase::forsake() {
   while (auto* notifiee = first_) {
      first_ = notifiee->next_;
      notifiee->list_ = nullptr;
      notifiee->previous_ = notifiee->next_ = nullptr;
   }
   for (auto* walk = innermost_; walk; walk = walk->outer_) {
      if (walk->list_ == this) {
         walk->at_ = nullptr;
      }
   }
}

} // namespace Nuv
