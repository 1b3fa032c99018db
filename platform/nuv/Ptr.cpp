#include "platform/nuv/Ptr.h"

#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Assert.h"

#include <atomic>
#include <cstdio>

namespace Nuv {

bool Object::isThreadSafe_ = false;

void
threadSafePtrIs(bool isThreadSafe) {
   Object::isThreadSafe_ = isThreadSafe;
}

// The flags share their word with the count, which other threads may be changing.
void
Object::flagIs(std::uint32_t flag, bool value) {
   if (!isThreadSafe_) [[likely]] {
      word_ = value ? word_ | flag : word_ & ~flag;
      return;
   }
   std::atomic_ref word(word_);
   if (value) {
      word.fetch_or(flag, std::memory_order_relaxed);
   } else {
      word.fetch_and(~flag, std::memory_order_relaxed);
   }
}

void
Object::hasNotificationActiveIs(bool active) {
   flagIs(notificationFlag, active);
}

void
Object::zeroReferences() {
   if (word_ & zeroReferencesFlag) {
      return;
   }
   flagIs(zeroReferencesFlag, true);
   AllSteps steps;
   steps([this] { onZeroReferences(); });
   if (references() == 0) {
      // Still flagged: what the destructors take and give back must not end the object again.
      delete this;
   } else {
      flagIs(zeroReferencesFlag, false);
   }
   steps.finish();
}

void
Object::zeroReferencesQuietly() noexcept {
   try {
      zeroReferences();
   } catch (std::exception const& error) {
      std::fprintf(stderr, "an observer failed at the end of an object: %s\n", error.what());
   } catch (...) {
      std::fprintf(stderr, "an observer failed at the end of an object\n");
   }
}

void
Object::referenceAddSafely() const {
   auto before = std::atomic_ref(word_).fetch_add(1, std::memory_order_relaxed);
   if ((before & countMask) == countMask) {
      countFailed("references < maximum");
   }
}

bool
Object::isLastReferenceDelSafely() const {
   auto before = std::atomic_ref(word_).fetch_sub(1, std::memory_order_acq_rel) & countMask;
   if (before == 0) {
      countFailed("references > 0");
   }
   return before == 1;
}

void
Object::countFailed(char const* condition) {
   assertionFailed("Ptr.h", __LINE__, condition, "reference count out of range");
}

} // namespace Nuv
