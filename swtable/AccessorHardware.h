#pragma once

// From resolved values to rows and back; part of Accessor.h. Who calls this holds the handle; the chip's
// answers alone come without.

#include "swtable/Accessor.h"

namespace Asic {

template <class T>
std::uint32_t
SwTable::Accessor<T>::rows(Handle const& eh) {
   if constexpr (isBlock) {
      return eh.key().size();
   } else {
      return Entry::getBlockSize();
   }
}

template <class T>
void
SwTable::Accessor<T>::resolvedEntryIs(Handle& eh, Entry entry) const {
   if (eh.isResolved() && eh.content_.entry == entry) {
      return;
   }
   // What was there goes last: its end may lead back here.
   std::swap(eh.content_.entry, entry);
   eh.isResolvedIs(true);
   eh.writeIs();
   resolvedEntryChanged(eh);
}

template <class T>
void
SwTable::Accessor<T>::resolvedEntryDel(Handle& eh) const {
   if (!eh.isResolved()) {
      return;
   }
   eh.isResolvedIs(false);
   eh.writeIs();
   resolvedEntryChanged(eh);
}

// The table itself hears of the change first, then who observes it.
template <class T>
void
SwTable::Accessor<T>::resolvedEntryChanged(Handle& eh) const {
   Nuv::Ptr<T> table(swTable_);
   if (!table->hasNotificationActive()) {
      return;
   }
   Key const key = eh.key();
   Nuv::AllSteps steps;
   steps([&] { handleEntry(eh); });
   steps([&] {
      table->resolvedEntryNotifiees().announce([&](auto& notifiee) { notifiee.handleResolvedEntry(key); });
   });
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::handleEntry(Handle& eh) const {
   using namespace ZandorL3Tunnel;
   MIRELOG(T::traceFacility(), TraceLevel::hardware, "handleEntry {}", eh.creationNumber());
   DUOLOG(defaultTraceHandle(), TraceLevel::hardware, "handleEntry ", swTable_->tblName(),
          " : key: ", eh.key());
   if (!eh.isResolved()) {
      hwTableEntryDel(eh);
      return;
   }
   if (isBlock && swTable_->mode() == Mode::writtenElsewhere) {
      return;
   }
   WriteWatch watch(eh);
   Nuv::AllSteps steps;
   steps([&] { eh.entryStateIs(inProgress()); });
   if (!watch.isOvertaken()) {
      eh.resolvedEntryStateIs(inProgress());
      steps([&] { hwTableEntryIs(eh); });
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::handleEntry(Key const& key) const {
   auto eh = swTable_->handles().find(key);
   // A newer value that waits is programmed when it resolves.
   if (eh && eh->isResolved() && !eh->unresolvedEntry()) {
      eh->writeIs();
      handleEntry(*eh);
   }
}

template <class T>
bool
SwTable::Accessor<T>::isInHwTable(Handle const& eh, Index base) const {
   auto const& hardware = swTable_->util()->hwTable();
   auto count = rows(eh);
   return base != invalidIndex &&
          (count == 0 || (hardware.contains(base) && hardware.contains(base + (count - 1))));
}

template <class T>
void
SwTable::Accessor<T>::hwTableEntryIs(Handle& eh) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::hardware, "hwTableEntryIs ", swTable_->tblName(),
          " : key: ", eh.key());
   Index base = swTable_->doAcquireHwIndex(eh.key()).value_or(invalidIndex);
   MIRELOG(T::traceFacility(), TraceLevel::hardware, "hwTableEntryIs {} at {}", eh.creationNumber(), base);
   eh.isRowRefusedIs(false);
   eh.isRowTakenIs(false);
   if (base == invalidIndex) {
      swTable_->hwIndexFailed();
      DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
             " : No free hardware index at key : ", eh.key(), ", rows: ", rows(eh));
   }
   WriteWatch watch(eh);
   Nuv::AllSteps steps;
   if (swTable_->util()) {
      if (!isInHwTable(eh, base)) {
         eh.resolvedEntryStateIs(failed());
         return;
      }
      rowsAre(eh, base);
      if (!isBlock || swTable_->util()->isExclusivelyOwnedTable()) {
         steps([&] { eh.hwEntryIndexIs(base); });
      }
      if (!watch.isOvertaken()) {
         steps([&] { rowsIssued(eh); });
      }
   }
   if (completesForTesting() && !watch.isOvertaken()) {
      steps([&] { doCompleteEntryHandleForTesting(eh, base); });
   }
   steps.finish();
}

// What is reported with the write of the rows, and does not wait for the chip.
template <class T>
void
SwTable::Accessor<T>::rowsIssued(Handle& eh) const {
   bool isConfirmed = rows(eh) == 0 || !awaitsAnswers();
   ZandorL3Tunnel::WriteWatch watch(eh);
   Nuv::AllSteps steps;
   if (isBlock || !swTable_->responseEnabled()) {
      steps([&] { eh.resolvedEntryStateIs(success()); });
   }
   if (isConfirmed && !watch.isOvertaken()) {
      steps([&] { eh.hwIndexValidIs(true); });
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::doCompleteEntryHandleForTesting(Handle& eh, Index hwIndex) const {
   ZandorL3Tunnel::WriteWatch watch(eh);
   Nuv::AllSteps steps;
   steps([&] { eh.hwEntryIndexIs(hwIndex); });
   if (!watch.isOvertaken()) {
      steps([&] { eh.resolvedEntryStateIs(hwIndex == invalidIndex ? failed() : success()); });
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::rowsAre(Handle& eh, Index base) const {
   auto const& util = *swTable_->util();
   if constexpr (isBlock) {
      auto const block = eh.key();
      auto const count = block.size();
      eh.content_.unconfirmedRows = count;
      for (std::uint32_t position = 0; position < count; ++position) {
         auto const& entry = block.entryAt(position);
         util.hwEntryIs(base + position, entry, eh, holdOf(entry));
      }
   } else {
      util.hwEntryIs(base, eh.content_.entry, eh, holdOf(eh.content_.entry));
   }
}

// What an entry's row points at is held with the row, beyond the entry's own end. Nearly every entry needs
// one other at the most, which is then held itself.
template <class T>
HwTable::Hold
SwTable::Accessor<T>::holdOf(Entry const& entry) {
   HwTable::Hold hold;
   forEachNeededHandle(entry, [&](NeededHandle const& needed) {
      hold = hold ? Nuv::make<ZandorL3Tunnel::JointHold>(hold, needed) : HwTable::Hold(needed);
   });
   return hold;
}

template <class T>
void
SwTable::Accessor<T>::hwTableEntryDel(Handle& eh) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::hardware, "hwTableEntryDel ", swTable_->tblName(),
          " : key: ", eh.key());
   Index base = swTable_->heldHwIndex(eh.key());
   MIRELOG(T::traceFacility(), TraceLevel::hardware, "hwTableEntryDel {} at {}", eh.creationNumber(), base);
   bool isAwaited = false;
   auto const& util = swTable_->util();
   if (util && base != invalidIndex) {
      if (eh.entryType() == Handle::inDeletion()) {
         isAwaited = util->hwTable().awaitedRowDel(base, eh, swTable_);
      } else {
         for (std::uint32_t position = 0; position < rows(eh); ++position) {
            util->hwEntryDel(base + position, eh, swTable_);
         }
      }
   }
   eh.hwIndexValidIs(false);
   if (eh.entryType() == Handle::inDeletion() && !isAwaited) {
      eh.resolvedEntryStateIs(success());
   }
}

// Each of them is `unresolved` before `take(handle)` takes it away.
template <class T>
template <class Take>
void
SwTable::Accessor<T>::forEachResolved(Take&& take) const {
   Nuv::Ptr<T> alive(swTable_);
   Nuv::AllSteps steps;
   swTable_->handles().forEach([&](Handle& eh) {
      ZandorL3Tunnel::WriteWatch watch(eh);
      if (eh.isResolved()) {
         steps([&] { eh.entryStateIs(unresolved()); });
         if (!watch.isOvertaken()) {
            steps([&] { take(eh); });
         }
      }
   });
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::resolvedEntryDelAll() const {
   forEachResolved([this](Handle& eh) { resolvedEntryDel(eh); });
}

template <class T>
void
SwTable::Accessor<T>::hwTableEntryDelAll() const {
   forEachResolved([this](Handle& eh) {
      eh.isRowTakenIs(true);
      hwTableEntryDel(eh);
   });
}

template <class T>
void
SwTable::Accessor<T>::handleRowConfirmed(Handle& eh) const {
   if (!eh.isResolved() || completesForTesting()) {
      return;
   }
   if constexpr (isBlock) {
      if (--eh.content_.unconfirmedRows == 0) {
         eh.hwIndexValidIs(true);
      }
   } else {
      Nuv::Ptr<Handle> alive(&eh);
      ZandorL3Tunnel::WriteWatch watch(eh);
      Nuv::AllSteps steps;
      steps([&] { eh.hwIndexValidIs(true); });
      // After a refusal it is the predecessor's row that is confirmed here.
      if (!watch.isOvertaken() && !eh.isRowRefused()) {
         steps([&] { eh.resolvedEntryStateIs(success()); });
      }
      steps.finish();
   }
}

// Whoever is past waiting for this row hears nothing; that it was refused stays with the row.
template <class T>
void
SwTable::Accessor<T>::handleRowRefused(Handle& eh) const {
   bool isAwaited = awaitsAnswers() || eh.entryState() == inProgress();
   if (!eh.isResolved() || completesForTesting() || !isAwaited) {
      return;
   }
   eh.isRowRefusedIs(true);
   if constexpr (isBlock) {
      // A block succeeded with its write: it goes back before it fails.
      Nuv::Ptr<Handle> alive(&eh);
      ZandorL3Tunnel::WriteWatch watch(eh);
      Nuv::AllSteps steps;
      if (eh.entryState() == success()) {
         eh.resolvedEntryStateIs(inProgress());
         steps([&] { eh.entryStateIs(inProgress()); });
      }
      if (!watch.isOvertaken()) {
         steps([&] { eh.resolvedEntryStateIs(failed()); });
      }
      steps.finish();
   } else if (eh.entryState() == inProgress()) {
      eh.resolvedEntryStateIs(failed());
   }
}

template <class T>
void
SwTable::Accessor<T>::handleRowDeleted(Handle& eh) const {
   if (eh.entryType() == Handle::inDeletion() && !eh.isResolved()) {
      ACCESSOR_ASSERT(eh.resolvedEntryState() == inProgress(), "eh->resolvedEntryState() == inProgress()",
                      Nuv::text("key: ", eh.key()));
      eh.resolvedEntryStateIs(success());
   }
}

// All rows of a block come back together: each is confirmed once more. What was refused before is tried
// again.
template <class T>
void
SwTable::Accessor<T>::handleRowReturned(Handle& eh) const {
   Nuv::Ptr<Handle> alive(&eh);
   auto base = swTable_->heldHwIndex(eh.key());
   if (!eh.isResolved() || !swTable_->util() || !isInHwTable(eh, base)) {
      return;
   }
   if (eh.isRowRefused() && !eh.unresolvedEntry()) {
      handleEntry(eh);
   } else {
      rowsAre(eh, base);
   }
}

} // namespace Asic
