#pragma once

// Writing and removing entries; part of Accessor.h.

#include "swtable/Accessor.h"

namespace Asic {

template <class T>
Nuv::Ptr<typename SwTable::Accessor<T>::Handle>
SwTable::Accessor<T>::entryHandleIs(Key const& key) const {
   if (swTable_->isTakenDown()) {
      return nullptr;
   }
   return swTable_->handles().findOrMake(key, [&] { return Nuv::make<Handle>(key, swTable_); });
}

template <class T>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryRef(Key const& key, Entry const& entry) const {
   HandlePtr eh;
   entryRef(key, entry, eh);
   return eh;
}

template <class T>
void
SwTable::Accessor<T>::entryRef(Key const& key, Entry const& entry, HandlePtr& held) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::write, swTable_->tblName(), " : Writing entry : ", entry,
          ", at key : ", key);
   auto eh = entryHandleIs(key);
   MIRELOG(T::traceFacility(), TraceLevel::write, "entryRef key {} handle {}", traceKey(key),
           traceNumber(eh));
   held = eh;
   if (eh) {
      referenced(*eh);
      write(*eh, entry);
   }
}

template <class T>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryCommit(Key const& key, Entry const& entry, ResponseFunction handler) const {
   using namespace ZandorL3Tunnel;
   DUOLOG(defaultTraceHandle(), TraceLevel::write, swTable_->tblName(), " : Writing entry : ", entry,
          ", at key : ", key);
   auto eh = entryHandleIs(key);
   MIRELOG(T::traceFacility(), TraceLevel::write, "entryCommit key {} handle {}", traceKey(key),
           traceNumber(eh));
   if (!eh) {
      return nullptr;
   }
   committed(*eh);
   // The handler before ends last: its own end may lead back here.
   auto const before = eh->responseHandler_;
   eh->responseHandler_.functionIs(std::move(handler));
   Nuv::AllSteps steps;
   WriteWatch watch(*eh);
   if (!HasDependentFields<Entry> && !(eh->isResolved() && eh->content_.entry == entry)) {
      DUOLOG(defaultTraceHandle(), TraceLevel::write, swTable_->tblName(), " : Writing new entry : ", entry,
             ", at key : ", key, "; setting entryState to unresolved",
             " to ensure callback gets triggered by entryState change.");
      steps([&] { eh->entryStateIs(unresolved()); });
   }
   if (!watch.isOvertaken()) {
      steps([&] { write(*eh, entry); });
   }
   steps.finish();
   return eh;
}

template <class T>
void
SwTable::Accessor<T>::write(Handle& eh, Entry const& entry) const {
   if constexpr (HasDependentFields<Entry>) {
      writeWaiting(eh, entry);
   } else {
      resolvedEntryIs(eh, entry);
   }
}

template <class T>
void
SwTable::Accessor<T>::checkBlockSize(Key const& block) const {
   if (block.getBlockSize() != block.size()) {
      throw Nuv::Exception(Nuv::text("Unsupported behavior: entryInternals: ", block.getBlockSize(),
                                     ", blockSize: ", block.size()));
   }
}

// `take` says who holds the handle from now on.
template <class T>
template <class Take>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryBlockIs(Key const& block, char const* function, Take&& take) const {
   using namespace ZandorL3Tunnel;
   checkBlockSize(block);
   auto eh = entryHandleIs(block);
   MIRELOG(T::traceFacility(), TraceLevel::write, "{} rows {} handle {}", function, block.size(),
           traceNumber(eh));
   if (!eh) {
      return nullptr;
   }
   bool isThere = eh->isResolved() || eh->unresolvedEntry();
   DUOLOG(defaultTraceHandle(), TraceLevel::write, swTable_->tblName(), " ", function,
          isThere ? " : Found an existing entry : " : " : Writing new entry : ", block);
   take(*eh);
   // A new block's state is `unresolved` already: there is nothing to announce.
   if (!isThere) {
      unresolvedEntryIs(*eh, {});
   }
   return eh;
}

template <class T>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryBlockRef(Key const& block) const {
   return entryBlockIs(block, "entryBlockRef", [](Handle& eh) { referenced(eh); });
}

template <class T>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryBlockCommit(Key const& block, ResponseFunction handler) const {
   return entryBlockIs(block, "entryBlockCommit", [&](Handle& eh) {
      committed(eh);
      eh.responseHandler_.functionIs(std::move(handler));
   });
}

template <class T>
void
SwTable::Accessor<T>::handleEntryBlock(Key const& block) const {
   handleEntry(block);
}

// The last reference goes in the open: what observers of the end throw leaves through the caller.
template <class T>
void
SwTable::Accessor<T>::entryRemove(Key const& key) const {
   Nuv::Ptr<T> alive(swTable_);
   auto eh = swTable_->handles().find(key);
   MIRELOG(T::traceFacility(), ZandorL3Tunnel::TraceLevel::write, "entryRemove key {} handle {}",
           traceKey(key), traceNumber(eh));
   removed(eh.get(), eh ? &eh->responseHandler_ : nullptr, *swTable_, key);
   if (auto* handle = eh.detach()) {
      handle->referenceDel();
   }
}

template <class T>
void
SwTable::Accessor<T>::entryRemoveAll() const {
   Nuv::Ptr<T> alive(swTable_);
   swTable_->handles().forEach(
         [this](Handle& eh) { removed(&eh, &eh.responseHandler_, *swTable_, eh.key()); });
}

template <class T>
typename SwTable::Accessor<T>::HandlePtr
SwTable::Accessor<T>::entryWeakRef(Key const& key) const {
   auto eh = swTable_->handles().find(key);
   ACCESSOR_ASSERT(eh, "eh", Nuv::text("expect a valid entryHandle, key: ", key));
   return eh;
}

template <class T>
void
SwTable::Accessor<T>::syncEntries() const {
   swTable_->handles().forEach([](Handle const& eh) {
      ACCESSOR_ASSERT(!eh.isResolved(),
                      isBlock ? "!swTable_->resolvedEntryBlocks()" : "!swTable_->resolvedEntrys()", "");
   });
   ACCESSOR_ASSERT(swTable_->util(), "hwTable()", swTable_->tblName());
   swTable_->util()->hwTable().recover();
}

template <class T>
std::optional<typename SwTable::Accessor<T>::Entry>
SwTable::Accessor<T>::entry(Key const& key) const {
   auto eh = swTable_->handles().find(key);
   if (eh && eh->unresolvedEntry()) {
      return eh->unresolvedEntry()->value().entry;
   }
   return resolvedEntry(key);
}

template <class T>
std::optional<typename SwTable::Accessor<T>::Entry>
SwTable::Accessor<T>::resolvedEntry(Key const& key) const {
   auto eh = swTable_->handles().find(key);
   return eh && eh->isResolved() ? std::optional<Entry>(eh->content_.entry) : std::nullopt;
}

template <class T>
bool
SwTable::Accessor<T>::resolvedEntryHas(Key const& key) const {
   auto const* eh = swTable_->handles().peek(key);
   return eh && eh->isResolved();
}

template <class T>
Nuv::Ptr<typename SwTable::Accessor<T>::Waiting>
SwTable::Accessor<T>::unresolvedEntryIs(Key const& key, Entry const& entry) const {
   auto eh = swTable_->handles().find(key);
   if (!eh || eh->entryType() == Handle::inDeletion()) {
      return nullptr;
   }
   writeWaiting(*eh, entry);
   return eh->unresolvedEntry();
}

template <class T>
void
SwTable::Accessor<T>::unresolvedEntryDel(Key const& key) const {
   if (auto eh = swTable_->handles().find(key); eh && eh->unresolvedEntry() && !isResolving(*eh)) {
      unresolvedEntryDrop(*eh);
   }
}

template <class T>
void
SwTable::Accessor<T>::unresolvedEntryDelAll() const {
   Nuv::Ptr<T> alive(swTable_);
   swTable_->handles().forEach([this](Handle& eh) {
      if (eh.unresolvedEntry() && !isResolving(eh)) {
         unresolvedEntryDrop(eh);
      }
   });
}

// The value that is to be in hardware, if any, is the entry's again, unless its row was taken away.
template <class T>
void
SwTable::Accessor<T>::unresolvedEntryDrop(Handle& eh) const {
   ZandorL3Tunnel::WriteWatch watch(eh);
   unresolvedEntryDel(eh);
   // One write, the removal just made, is this one's own.
   if (watch.writesSince() == 1) {
      bool isInForce = eh.isResolved() && !eh.isRowTaken();
      eh.entryStateIs(!isInForce ? unresolved() : eh.isRowRefused() ? failed() : eh.resolvedEntryState());
   }
}

} // namespace Asic
