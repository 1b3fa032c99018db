#include "platform/asic/WriteResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

void
WriteResponseSm::handleWriteResponse(SwTableBase::EntryHandle& owner) {
   if (hasNotificationActive()) {
      static_cast<SwTable::EntryHandle&>(owner).handleRowConfirmed();
   }
}

} // namespace Asic
