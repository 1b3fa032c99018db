#include "platform/asic/SwTableBase.h"

namespace Asic {

void
appendText(Pelm::String& out, SwTableBase::EntryState state) {
   static constexpr char const* names[] = {"unresolved", "inProgress",        "suspended",
                                           "success",    "failedNeededEntry", "failed"};
   auto number = unsigned(state);
   if (number < std::size(names)) {
      out.append(names[number]);
   } else {
      Nuv::appendText(out, number);
   }
}

SwTableBase::EntryHandle::EntryHandle() {
   static std::uint64_t created = 0;
   creationNumber_ = ++created;
}

template <class Tell>
void
SwTableBase::EntryHandle::announce(Tell&& tell) {
   if (hasNotificationActive()) {
      notifieeList_.announce(tell);
   }
}

void
SwTableBase::EntryHandle::entryStateIs(EntryState state) {
   if (state == entryState_) {
      return;
   }
   entryState_ = state;
   // A reaction that fails must not keep the change from the observers.
   std::exception_ptr failure;
   Nuv::Ptr<EntryHandle> alive(this);
   try {
      handleEntryState();
   } catch (...) {
      failure = std::current_exception();
   }
   announce([](Notifiee& notifiee) { notifiee.handleEntryState(); });
   if (failure) {
      std::rethrow_exception(failure);
   }
}

void
SwTableBase::EntryHandle::hwEntryIndexIs(Index index) {
   if (index == hwEntryIndex_) {
      return;
   }
   hwEntryIndex_ = index;
   announce([](Notifiee& notifiee) { notifiee.handleHwEntryIndex(); });
}

void
SwTableBase::EntryHandle::hwIndexValidIs(bool valid) {
   if (valid == hwIndexValid_) {
      return;
   }
   hwIndexValid_ = valid;
   announce([](Notifiee& notifiee) { notifiee.handleHwIndexValid(); });
}

} // namespace Asic
