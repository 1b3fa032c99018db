#pragma once

#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Export.h"

#include <cstdint>
#include <memory>

namespace Nuv {

class NotifieeListBase;

/// Base of every observer: one place in one list. Leaves its list when it is destroyed.
class ZANDOR_EXPORT Notifiee {
 public:
   Notifiee() = default;
   Notifiee(Notifiee const&) = delete;
   Notifiee& operator=(Notifiee const&) = delete;
   virtual ~Notifiee() { leave(); }

   bool isListed() const { return body_ != nullptr; }

   /// Leaves the list; a second call does nothing. Allowed at any time, also while the list announces.
   void leave();

 private:
   friend class NotifieeListBase;
   struct Body;

   Body* body_{};
   Notifiee* previous_{};
   Notifiee* next_{};
   std::uint64_t number_{};
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
   ~NotifieeListBase();

   bool empty() const { return body_ == nullptr || first() == nullptr; }

   /// Everybody leaves.
   void clear();

 protected:
   void add(Notifiee&);

   /// One walk over those who are registered when it starts.
   class Walk {
    public:
      explicit Walk(NotifieeListBase& list);
      ~Walk();
      Walk(Walk const&) = delete;
      Walk& operator=(Walk const&) = delete;
      Notifiee* next();

    private:
      friend class Notifiee;
      friend class NotifieeListBase;
      Notifiee::Body* body_{};
      Notifiee* at_{};
      std::uint64_t last_{};
      Walk* outer_{};
   };

 private:
   friend class Notifiee;
   Notifiee* first() const;
   static void releaseIfIdle(Notifiee::Body*);

   Notifiee::Body* body_{};
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
