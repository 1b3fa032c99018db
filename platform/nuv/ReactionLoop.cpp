#include "platform/nuv/ReactionLoop.h"

namespace Nuv {

Reaction::~Reaction() {
   if (loop_) {
      loop_->remove(*this);
   }
}

ReactionLoop::~ReactionLoop() {
   link_->loop_ = nullptr;
   while (first_) {
      remove(*first_);
   }
}

void
ReactionLoop::schedule(Reaction& reaction) {
   if (reaction.loop_) {
      return;
   }
   reaction.loop_ = this;
   reaction.previous_ = last_;
   (last_ ? last_->next_ : first_) = &reaction;
   last_ = &reaction;
}

void
ReactionLoop::remove(Reaction& reaction) {
   (reaction.previous_ ? reaction.previous_->next_ : first_) = reaction.next_;
   (reaction.next_ ? reaction.next_->previous_ : last_) = reaction.previous_;
   reaction.loop_ = nullptr;
   reaction.previous_ = reaction.next_ = nullptr;
}

bool
ReactionLoop::runOne() {
   auto* reaction = first_;
   if (!reaction) {
      return false;
   }
   remove(*reaction);
   reaction->react();
   return true;
}

std::size_t
ReactionLoop::runUntilIdle() {
   std::size_t count = 0;
   while (runOne()) {
      ++count;
   }
   return count;
}

} // namespace Nuv
