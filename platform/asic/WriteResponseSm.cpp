#include "platform/asic/WriteResponseSm.h"

#include "platform/asic/SwTable.h"

namespace Asic {

void
WriteResponseSm::handleWriteResponse(SwTableBase::EntryHandle& owner, RowAnswer answer) {
   if (!hasNotificationActive()) {
      return;
   }
   auto& handle = static_cast<SwTable::EntryHandle&>(owner);
   if (answer == RowAnswer::confirmed) {
      handle.handleRowConfirmed();
   } else {
      handle.handleRowRefused();
   }
}

} // namespace Asic
