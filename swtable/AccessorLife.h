#pragma once

// How handles and tables end; part of Accessor.h.

#include "swtable/Accessor.h"

namespace Asic {

template <class T>
void
SwTable::Accessor<T>::cleanup(Handle& eh) const {
   // The handle may be the last that keeps the table alive.
   Nuv::Ptr<T> table(swTable_);
   unresolvedEntryDel(eh);
   bool isRegistered = table->handles().find(eh.key()) != nullptr;
   handleLeaves(eh, isRegistered, *table, eh.key());
   eh.swTableDel();
   resolvedEntryDel(eh);
   table->handles().del(eh);
}

template <class T>
void
SwTable::Accessor<T>::cleanup() const {
   auto& handles = swTable_->handles();
   handles.forEach([this](Handle& eh) {
      eh.swTableDel();
      unresolvedEntryDel(eh);
   });
   handles.forEach([this](Handle& eh) { resolvedEntryDel(eh); });
   handles.forEach([&](Handle& eh) {
      if (handles.del(eh) && eh.entryType() != Handle::referenceOnly()) {
         eh.referenceDel();
      }
   });
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
