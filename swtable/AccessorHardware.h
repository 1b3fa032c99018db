#pragma once

// From resolved values to rows and back; part of Accessor.h.

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
SwTable::Accessor<T>::resolvedEntryIs(Handle& eh, Entry const& entry) const {
   if (eh.isResolved() && eh.content_.entry == entry) {
      return;
   }
   eh.content_.entry = entry;
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
   DUOLOG(_defaultTraceHandle(), TraceLevel::hardware, "handleEntry ", swTable_->tblName(),
          " : key: ", eh.key());
   if (!eh.isResolved()) {
      hwTableEntryDel(eh);
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
SwTable::Accessor<T>::hwTableEntryIs(Handle& eh) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(_defaultTraceHandle(), TraceLevel::hardware, "hwTableEntryIs ", swTable_->tblName(),
          " : key: ", eh.key());
   Index base = swTable_->doAcquireHwIndex(eh.key());
   if (!swTable_->util()) {
      return;
   }
   auto const& hardware = swTable_->util()->hwTable();
   auto count = rows(eh);
   bool isInTable = count == 0 || (hardware.contains(base) && hardware.contains(base + (count - 1)));
   if (base == invalidIndex || !isInTable) {
      eh.resolvedEntryStateIs(failed());
      return;
   }
   WriteWatch watch(eh);
   Nuv::AllSteps steps;
   rowsAre(eh, base);
   steps([&] { eh.hwEntryIndexIs(base); });
   if (isBlock && !watch.isOvertaken()) {
      steps([&] { eh.resolvedEntryStateIs(success()); });
   }
   if (count == 0 && !watch.isOvertaken()) {
      steps([&] { eh.hwIndexValidIs(true); });
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::rowsAre(Handle& eh, Index base) const {
   auto const& util = *swTable_->util();
   if constexpr (isBlock) {
      auto const block = eh.key();
      eh.content_.unconfirmedRows = block.size();
      for (std::uint32_t position = 0; position < block.size(); ++position) {
         auto entry = block.entry(position);
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
   DUOLOG(_defaultTraceHandle(), TraceLevel::hardware, "hwTableEntryDel ", swTable_->tblName(),
          " : key: ", eh.key());
   Index base = swTable_->heldHwIndex(eh.key());
   if (base != invalidIndex) {
      if (auto const& util = swTable_->util()) {
         for (std::uint32_t position = 0; position < rows(eh); ++position) {
            util->hwEntryDel(base + position, eh, swTable_);
         }
      }
      // Who wrote the key anew while this one ended has its index now.
      if (!swTable_->handles().has(eh.key())) {
         swTable_->doReleaseHwIndex(eh.key());
      }
   }
   eh.hwIndexValidIs(false);
}

template <class T>
void
SwTable::Accessor<T>::handleRowConfirmed(Handle& eh) const {
   using ZandorL3Tunnel::WriteWatch;
   WriteWatch watch(eh);
   if constexpr (isBlock) {
      if (--eh.content_.unconfirmedRows == 0) {
         eh.hwIndexValidIs(true);
      }
   } else {
      Nuv::AllSteps steps;
      steps([&] { eh.hwIndexValidIs(true); });
      if (!watch.isOvertaken()) {
         steps([&] { eh.resolvedEntryStateIs(success()); });
      }
      steps.finish();
   }
}

} // namespace Asic
