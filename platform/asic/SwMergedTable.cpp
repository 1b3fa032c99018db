#include "platform/asic/SwMergedTable.h"

namespace Asic {

bool
SwMergedTable::UnresolvedMergedEntry::lacksIndex() const {
   auto const* sm = sms();
   while (sm && sm->handle().hwEntryIndex() != invalidIndex) {
      sm = sm->next();
   }
   return sm != nullptr;
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
   auto const* failed = sms();
   while (failed && !failsWith(failed->handle())) {
      failed = failed->next();
   }
   if (failed) {
      failsAs(failed->handle());
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
