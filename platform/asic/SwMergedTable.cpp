#include "platform/asic/SwMergedTable.h"

#include <algorithm>

namespace Asic {

bool
SwMergedTable::UnresolvedMergedEntry::lacksIndex() const {
   return std::any_of(sms().begin(), sms().end(),
                      [](auto const& sm) { return sm->handle().hwEntryIndex() == invalidIndex; });
}

void
SwMergedTable::UnresolvedMergedEntry::handleNeededEntry(NeededEntryHandleSm& sm) {
   switch (sm.handle().entryState()) {
   case EntryState::failedNeededEntry:
      markFailedNeededEntry();
      return;
   case EntryState::failed:
      setEntryState(EntryState::failed);
      return;
   case EntryState::success:
      neededEntryHandleSmDel(sm);
      break;
   default:
      break;
   }
   if (!lacksIndex()) {
      doResolve();
   } else if (!hasFailedNeededEntry()) {
      setEntryState(EntryState::unresolved);
   }
}

} // namespace Asic
