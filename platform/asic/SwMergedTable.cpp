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
   if (failsWith(sm.handle())) {
      failsAs(sm.handle());
      return;
   }
   if (!isNeeded(sm.handle())) {
      neededEntryHandleSmDel(sm);
   }
   auto failed =
         std::find_if(sms().begin(), sms().end(), [](auto const& each) { return failsWith(each->handle()); });
   if (failed != sms().end()) {
      failsAs((*failed)->handle());
   } else if (!lacksIndex()) {
      doResolve();
   } else {
      setEntryState(EntryState::unresolved);
   }
}

// A member that has left its table fails as one that was needed.
void
SwMergedTable::UnresolvedMergedEntry::failsAs(SwTableBase::EntryHandle const& member) {
   if (member.entryState() == EntryState::failed) {
      setEntryState(EntryState::failed);
   } else {
      markFailedNeededEntry();
   }
}

} // namespace Asic
