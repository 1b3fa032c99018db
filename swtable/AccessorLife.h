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
   MIRELOG(T::traceFacility(), ZandorL3Tunnel::TraceLevel::resolve, "cleanup {}", eh.creationNumber());
   bool isRegistered = table->handles().hasHandle(eh);
   handleLeaves(eh, isRegistered, *table, eh.key());
   bool mayDance = !isBlock && table->util() && awaitsAnswers() && table->hasNotificationActive();
   if (mayDance && (eh.isResolved() || isRowBeingCleared(eh))) {
      beginDeleteDance(eh, isRegistered);
      return;
   }
   table->handles().del(eh);
   leave(eh);
}

// So it is of a handle that was taken back into use and let go before it came to a row of its own.
template <class T>
bool
SwTable::Accessor<T>::isRowBeingCleared(Handle const& eh) const {
   Index base = swTable_->heldHwIndex(eh.key());
   return base != invalidIndex && swTable_->util()->hwTable().isRowDelAwaited(base, eh);
}

// The table holds the handle again until the chip has cleared the row: who writes or references the key
// meanwhile takes the handle back into use.
template <class T>
void
SwTable::Accessor<T>::beginDeleteDance(Handle& eh, bool isRegistered) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
          entriesMayWait ? " begin delete dance, key : " : " begin delete dance, key :", eh.key());
   ACCESSOR_ASSERT(isRegistered, "swTable_->entryHandleHas( key )", Nuv::text("key: ", eh.key()));
   Nuv::Ptr<Handle> alive(&eh);
   eh.referenceAdd();
   eh.entryTypeIs(Handle::inDeletion());
   eh.notifieeDelAll();
   eh.responseHandler_.functionIs({});
   eh.entryStateIs(inProgress());
   eh.hwIndexValidIs(false);
   eh.resolvedEntryStateIs(inProgress());
   Nuv::AllSteps steps;
   steps([&] { unresolvedEntryDel(eh); });
   // The end of what was waited for may have led to another write of this key.
   if (eh.entryType() == Handle::inDeletion()) {
      steps([&] { resolvedEntryDel(eh); });
   }
   // Who takes the handle back into use has no row until he writes one.
   if (!eh.isResolved()) {
      eh.hwEntryIndexIs(invalidIndex);
   }
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::completeDeleteDance(Handle& eh) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, swTable_->tblName(),
          entriesMayWait ? " delete dance complete, key : " : " delete dance complete, key :", eh.key());
   Nuv::Ptr<T> table(swTable_);
   Nuv::Ptr<Handle> alive(&eh);
   bool hasLeft = table->handles().del(eh);
   ACCESSOR_ASSERT(hasLeft || !table->handles().has(eh.key()), "!swTable_->entryHandleHas( key )",
                   Nuv::text("key: ", eh.key()));
   Nuv::AllSteps steps;
   steps([&] { leave(eh); });
   steps([&] { eh.referenceDel(); });
   steps.finish();
}

template <class T>
void
SwTable::Accessor<T>::handleResolvedEntryState(Handle& eh) const {
   if (eh.resolvedEntryState() != inProgress()) {
      eh.pendingEntryDelAll();
   }
   if (AccessorBase::handleResolvedEntryState(eh) && swTable_) {
      completeDeleteDance(eh);
   }
}

// Who wrote the key anew while this handle ended has its index now; who did so and has ended before it leaves
// the index to this handle, whose rows stand there still.
template <class T>
void
SwTable::Accessor<T>::releaseHwIndex(Handle& eh, Leaving const& leaving) const {
   auto base = swTable_->heldHwIndex(eh.key());
   if (base == invalidIndex) {
      return;
   }
   if (auto const& util = swTable_->util()) {
      for (std::uint32_t position = 0; position < rows(eh); ++position) {
         util->hwTable().ownerDel(base + position, eh);
      }
   }
   if constexpr (T::isExternalKeyType()) {
      if (!swTable_->handles().has(eh.key()) && !leaving.isKeyOfOuter()) {
         swTable_->doReleaseHwIndex(eh.key());
      }
   }
}

template <class T>
void
SwTable::Accessor<T>::cleanup() const {
   Nuv::Ptr<T> alive(swTable_);
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
   Leaving const leaving(*swTable_, eh);
   Nuv::AllSteps steps;
   steps([&] { eh.swTableDel(); });
   steps([&] { resolvedEntryDel(eh); });
   steps([&] { unresolvedEntryDel(eh); });
   steps([&] { releaseHwIndex(eh, leaving); });
   eh.responseHandler_.functionIs({});
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
TableEntryHandle<T>::handleRowRefused() {
   if (auto* owner = table()) {
      Accessor(owner).handleRowRefused(*this);
   }
}

template <class T>
void
TableEntryHandle<T>::handleRowDeleted() {
   if (auto* owner = table()) {
      Accessor(owner).handleRowDeleted(*this);
   }
}

template <class T>
void
TableEntryHandle<T>::handleRowReturned() {
   if (auto* owner = table()) {
      Accessor(owner).handleRowReturned(*this);
   }
}

template <class T>
Asic::Index
TableEntryHandle<T>::hwIndexForDependentField() const {
   if constexpr (BlockKey<Key>) {
      if (hwEntryIndex() == Asic::invalidIndex && table()) {
         // An empty block holds nothing, and may be pointed at all the same.
         return key_.size() == 0 && isHwIndexValid() ? 0 : table()->heldHwIndex(key_);
      }
   }
   return hwEntryIndex();
}

template <class T>
bool
TableEntryHandle<T>::isWrittenAs(Entry const& entry) const {
   if (entryType() == inDeletion()) {
      return false;
   }
   return unresolvedEntry_ ? unresolvedEntry_->value().entry == entry : isResolvedAs(entry);
}

template <class T>
void
TableEntryHandle<T>::pendingEntryEnq(Entry const& entry) {
   if (!pendingEntries_) {
      pendingEntries_ = std::make_unique<std::deque<Entry>>();
   }
   pendingEntries_->push_back(entry);
}

template <class T>
typename TableEntryHandle<T>::Entry
TableEntryHandle<T>::pendingEntryDeq() {
   NUV_ASSERT(pendingEntries() != 0, Nuv::text("key: ", key_));
   auto front = std::move(pendingEntries_->front());
   pendingEntries_->pop_front();
   return front;
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
