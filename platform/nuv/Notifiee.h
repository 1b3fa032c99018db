#pragma once

#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Export.h"

namespace Nuv {

class NotifieeListBase;

/// Base of every observer: one place in one list. Leaves its list when it is destroyed.
class ZANDOR_EXPORT Notifiee {
 public:
   Notifiee() = default;
   Notifiee(Notifiee const&) = delete;
   Notifiee& operator=(Notifiee const&) = delete;
   virtual ~Notifiee() { leave(); }

   bool isListed() const { return list_ != nullptr; }

   /// Leaves the list; a second call does nothing. Allowed at any time, also while the list announces.
   void leave() {
      if (list_) {
         leaveList();
      }
   }

 private:
   friend class NotifieeListBase;
   void leaveList();

   NotifieeListBase* list_{};
   Notifiee* previous_{}; ///< that of the first one is the last
   Notifiee* next_{};
};

/// The observers of one object, in the order in which they registered. Without observers it is a null
/// pointer.
///
/// While it announces, observers may come, go, or destroy the list itself: who left hears nothing more, who
/// came meanwhile hears the next change.
class ZANDOR_EXPORT NotifieeListBase {
 public:
   NotifieeListBase() = default;
   NotifieeListBase(NotifieeListBase const&) = delete;
   NotifieeListBase& operator=(NotifieeListBase const&) = delete;
   ~NotifieeListBase() {
      if (first_) {
         forsake();
      }
   }

   bool empty() const { return first_ == nullptr; }

   /// Everybody leaves.
   void clear();

 protected:
   void add(Notifiee&);

   /// One walk over those who are registered when it starts; there must be one. A list belongs to one thread,
   /// and so do its walks, which end in the reverse order of their start.
   class Walk {
    public:
      explicit Walk(NotifieeListBase const& list)
          : at_(list.first_), last_(list.first_->previous_), list_(&list), outer_(innermost_) {
         innermost_ = this;
      }
      ~Walk() { innermost_ = outer_; }
      Walk(Walk const&) = delete;
      Walk& operator=(Walk const&) = delete;

      Notifiee* next() {
         Notifiee* notifiee = at_;
         if (notifiee) {
            at_ = notifiee == last_ ? nullptr : notifiee->next_;
         }
         return notifiee;
      }

    private:
      friend class Notifiee;
      friend class NotifieeListBase;

      Notifiee* at_;   ///< who is next
      Notifiee* last_; ///< who is told last; of no meaning once nobody is next
      NotifieeListBase const* list_;
      Walk* outer_;
   };

 private:
   friend class Notifiee;
   void forsake();

   [[gnu::tls_model("initial-exec")]] static constinit thread_local Walk* innermost_;

   Notifiee* first_{};
};

template <class N>
class ZANDOR_EXPORT NotifieeList : public NotifieeListBase {
 public:
   /// Registers `notifiee`, which must be in no list, at the end.
   void notifieeIs(N& notifiee) { add(notifiee); }

   /// Calls `tell(N&)` for every observer. An exception stops nobody; the first one is rethrown at the end,
   /// when the list may be gone.
   template <class Tell>
   void announce(Tell&& tell) {
      if (empty()) {
         return;
      }
      AllSteps steps;
      {
         Walk walk(*this);
         while (auto* notifiee = walk.next()) {
            steps([&] { tell(static_cast<N&>(*notifiee)); });
         }
      }
      steps.finish();
   }
};

} // namespace Nuv
