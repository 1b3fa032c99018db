#include "platform/nuv/Notifiee.h"

#include "platform/nuv/Assert.h"
#include "platform/nuv/Pool.h"

namespace Nuv {

struct Notifiee::Body : Pooled {
   NotifieeListBase* list{};
   Notifiee* first{};
   Notifiee* last{};
   NotifieeListBase::Walk* walks{};
   std::uint64_t number{};
};

void
Notifiee::leave() {
   Body* body = body_;
   if (!body) {
      return;
   }
   for (auto* walk = body->walks; walk; walk = walk->outer_) {
      if (walk->at_ == this) {
         walk->at_ = next_;
      }
   }
   (previous_ ? previous_->next_ : body->first) = next_;
   (next_ ? next_->previous_ : body->last) = previous_;
   body_ = nullptr;
   previous_ = next_ = nullptr;
   NotifieeListBase::releaseIfIdle(body);
}

Notifiee*
NotifieeListBase::first() const {
   return body_->first;
}

void
NotifieeListBase::add(Notifiee& notifiee) {
   NUV_ASSERT(!notifiee.isListed(), "an observer has one place");
   if (!body_) {
      body_ = new Notifiee::Body;
      body_->list = this;
   }
   notifiee.body_ = body_;
   notifiee.number_ = ++body_->number;
   notifiee.previous_ = body_->last;
   (body_->last ? body_->last->next_ : body_->first) = &notifiee;
   body_->last = &notifiee;
}

void
NotifieeListBase::clear() {
   while (!empty()) {
      first()->leave();
   }
}

NotifieeListBase::~NotifieeListBase() {
   Notifiee::Body* body = body_;
   if (!body) {
      return;
   }
   body_ = nullptr;
   body->list = nullptr;
   while (body->first) {
      auto* notifiee = body->first;
      body->first = notifiee->next_;
      notifiee->body_ = nullptr;
      notifiee->previous_ = notifiee->next_ = nullptr;
   }
   body->last = nullptr;
   for (auto* walk = body->walks; walk; walk = walk->outer_) {
      walk->at_ = nullptr;
   }
   releaseIfIdle(body);
}

void
NotifieeListBase::releaseIfIdle(Notifiee::Body* body) {
   if (body->first || body->walks) {
      return;
   }
   if (body->list) {
      body->list->body_ = nullptr;
   }
   delete body;
}

NotifieeListBase::Walk::Walk(NotifieeListBase& list)
    : body_(list.body_), at_(body_->first), last_(body_->number), outer_(body_->walks) {
   body_->walks = this;
}

// Walks end in the reverse order of their start: each lives on the stack of its announcement.
NotifieeListBase::Walk::~Walk() {
   body_->walks = outer_;
   releaseIfIdle(body_);
}

Notifiee*
NotifieeListBase::Walk::next() {
   auto* notifiee = at_;
   if (!notifiee || notifiee->number_ > last_) {
      return nullptr;
   }
   at_ = notifiee->next_;
   return notifiee;
}

} // namespace Nuv
