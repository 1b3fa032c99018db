#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Ptr.h"

#include <cstddef>

namespace Nuv {

class ReactionLoop;

/// Work that a loop does later. One object has at most one place in a queue.
class ZANDOR_EXPORT Reaction {
 public:
   Reaction() = default;
   Reaction(Reaction const&) = delete;
   Reaction& operator=(Reaction const&) = delete;
   virtual ~Reaction();

   bool isScheduled() const { return loop_ != nullptr; }

 protected:
   virtual void react() = 0;

 private:
   friend class ReactionLoop;
   ReactionLoop* loop_{};
   Reaction* previous_{};
   Reaction* next_{};
};

/// The agent's single thread of reactions: a queue that its owner steps. It has no clock of its own, so the
/// order of what happens depends on the order of scheduling alone.
class ZANDOR_EXPORT ReactionLoop {
 public:
   /// The way to a loop for whoever may outlive it: without its loop it schedules nothing.
   class Link final : public Object {
    public:
      explicit Link(ReactionLoop* loop) : loop_(loop) {}

      void schedule(Reaction& reaction) const {
         if (loop_) {
            loop_->schedule(reaction);
         }
      }

    private:
      friend class ReactionLoop;
      ReactionLoop* loop_;
   };

   ReactionLoop() = default;
   ReactionLoop(ReactionLoop const&) = delete;
   ReactionLoop& operator=(ReactionLoop const&) = delete;
   ~ReactionLoop();

   /// Puts `reaction` at the end of the queue; one that is queued already keeps its place. The reaction may
   /// be destroyed at any time.
   void schedule(Reaction& reaction);

   Ptr<Link> const& link() const { return link_; }

   bool idle() const { return first_ == nullptr; }

   /// Runs the reaction at the front; false when there is none. A reaction may schedule itself again.
   bool runOne();

   /// Runs until nothing is queued; returns how many reactions ran.
   std::size_t runUntilIdle();

 private:
   friend class Reaction;
   void remove(Reaction&);

   Reaction* first_{};
   Reaction* last_{};
   Ptr<Link> link_ = make<Link>(this);
};

} // namespace Nuv
