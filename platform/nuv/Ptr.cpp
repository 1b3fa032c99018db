#include "platform/nuv/Ptr.h"

#include "platform/nuv/Assert.h"

namespace Nuv {

void
Object::hasNotificationActiveIs(bool active) {
   word_ = active ? word_ | notificationFlag : word_ & ~notificationFlag;
}

void
Object::zeroReferences() {
   if (word_ & zeroReferencesFlag) {
      return;
   }
   word_ |= zeroReferencesFlag;
   onZeroReferences();
   word_ &= ~zeroReferencesFlag;
   if (references() == 0) {
      delete this;
   }
}

void
Object::countFailed(char const* condition) {
   assertionFailed("Ptr.h", __LINE__, condition, "reference count out of range");
}

} // namespace Nuv
