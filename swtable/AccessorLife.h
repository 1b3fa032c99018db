#pragma once

// How handles and tables end; part of Accessor.h.

#include "swtable/Accessor.h"

namespace Asic {

// The handle is not found any more before anybody hears of its end: who writes its key meanwhile begins a new
// one.
template <class T>
void
SwTable::Accessor<T>::cleanup(Handle& eh) const {
   // The handle may be the last that keeps the table alive.
   Nuv::Ptr<T> table(swTable_);
   handleLeaves(eh, table->handles().hasHandle(eh), *table, eh.key());
   table->handles().del(eh);
   leave(eh);
}

template <class T>
void
SwTable::Accessor<T>::cleanup() const {
   Nuv::AllSteps steps;
   for (auto const& eh : swTable_->handles().takeAll()) {
      bool isHeldByTable = eh->entryType() != Handle::referenceOnly();
      steps([&] { leave(*eh); });
      if (isHeldByTable) {
         steps([&] { eh->referenceDel(); });
      }
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::leave(Handle& eh) const {
   Nuv::AllSteps steps;
   steps([&] { eh.swTableDel(); });
   steps([&] { resolvedEntryDel(eh); });
   steps([&] { unresolvedEntryDel(eh); });
   steps.finish();
}

} // namespace Asic

namespace ZandorL3Tunnel {

template <class T>
TableEntryHandle<T>::TableEntryHandle(Key key, T* table) : EntryHandle(table), key_(std::move(key)) {}

template <class T>
TableEntryHandle<T>::~TableEntryHandle() = default;

template <class T>
void
TableEntryHandle<T>::handleRowConfirmed() {
   if (auto* owner = table()) {
      Accessor(owner).handleRowConfirmed(*this);
   }
}

template <class T>
void
TableEntryHandle<T>::cleanup() {
   if (auto* owner = table()) {
      Accessor(owner).cleanup(*this);
   }
}

template <class T>
void
TableEntryHandle<T>::handleEntryState() {
   Accessor(table()).handleEntryState(*this);
}

template <class T>
void
TableEntryHandle<T>::handleResolvedEntryState() {
   Accessor(table()).handleResolvedEntryState(*this);
}

} // namespace ZandorL3Tunnel
