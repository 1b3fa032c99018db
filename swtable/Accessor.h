#pragma once

#include "platform/asic/SwTableUtil.h"
#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Export.h"
#include "swtable/AccessorBase.h"
#include "swtable/LeavingHandle.h"
#include "swtable/TableEntryHandle.h"

#include <optional>

/// What every software table does with its entries. One accessor serves keyed tables, whose entries take one
/// row each, and block tables, whose entries take a run of rows. It holds nothing but its table.
///
/// `T` should be a `KeyedTable` or a `BlockTable`: it has a `Key`, an `Entry`, handles by key, and answers
/// for hardware indices (`doAcquireHwIndex`, `heldHwIndex`, `doReleaseHwIndex`) and for its util.
template <class T>
class ZANDOR_EXPORT Asic::SwTable::Accessor : private ZandorL3Tunnel::AccessorBase {
 public:
   using Key = typename T::Key;
   using Entry = typename T::Entry;
   using Handle = ZandorL3Tunnel::TableEntryHandle<T>;
   using Waiting = ZandorL3Tunnel::WaitingEntry<T>;
   using HandlePtr = Nuv::Ptr<SwTableBase::EntryHandle const>;
   using ResponseFunction = SwTableBase::ResponseFunction;

   static constexpr bool isBlock = ZandorL3Tunnel::BlockKey<Key>;
   static constexpr bool entriesMayWait = isBlock || HasDependentFields<Entry>;

   explicit Accessor(T* table) : swTable_(table) {}

   HandlePtr entryRef(Key const& key, Entry const& entry) const;
   void entryRef(Key const& key, Entry const& entry, HandlePtr& held) const;
   HandlePtr entryCommit(Key const& key, Entry const& entry, ResponseFunction handler) const;
   HandlePtr entryBlockRef(Key const& block) const;
   HandlePtr entryBlockCommit(Key const& block, ResponseFunction handler) const;
   void handleEntryBlock(Key const& block) const;
   void entryRemove(Key const& key) const;
   void entryRemoveAll() const;
   HandlePtr entryWeakRef(Key const& key) const;
   std::optional<Entry> entry(Key const& key) const;
   std::optional<Entry> resolvedEntry(Key const& key) const;
   bool resolvedEntryHas(Key const& key) const;
   Nuv::Ptr<Waiting> unresolvedEntryIs(Key const& key, Entry const& entry) const;
   void unresolvedEntryDel(Key const& key) const;
   void unresolvedEntryDelAll() const;

   void handleEntryState(Handle& eh) const {
      MIRELOG(T::traceFacility(), ZandorL3Tunnel::TraceLevel::state, "entryState {} of {}", eh.entryState(),
              eh.creationNumber());
      AccessorBase::handleEntryState(eh, eh.responseHandler_, eh.key());
   }
   void handleResolvedEntryState(Handle& eh) const;
   void handleRowConfirmed(Handle& eh) const;
   void handleRowRefused(Handle& eh) const;
   void handleRowDeleted(Handle& eh) const;
   void handleRowReturned(Handle& eh) const;
   void handleEntry(Key const& key) const;
   void syncEntries() const;
   void resolvedEntryDelAll() const;
   void hwTableEntryDelAll() const;
   void doResolve(Handle& eh, Waiting& ue) const;
   bool isThere(SwTableBase::EntryHandle const& needed) const;

   void cleanup(Handle& eh) const;
   void cleanup() const;

 private:
   Nuv::Ptr<Handle> entryHandleIs(Key const& key) const;
   template <class Take>
   HandlePtr entryBlockIs(Key const& block, char const* function, Take&& take) const;
   void leave(Handle& eh) const;
   bool isRowBeingCleared(Handle const& eh) const;
   void beginDeleteDance(Handle& eh, bool isRegistered) const;
   void completeDeleteDance(Handle& eh) const;
   using Leaving = ZandorL3Tunnel::LeavingHandle<T>;
   void releaseHwIndex(Handle& eh, Leaving const& leaving) const;
   void write(Handle& eh, Entry const& entry) const;
   void writeWaiting(Handle& eh, Entry const& entry) const;
   void unresolvedEntryIs(Handle& eh, ZandorL3Tunnel::WaitingValue<T, Key> value) const;
   void unresolvedEntryDel(Handle& eh) const;
   void unresolvedEntryDrop(Handle& eh) const;
   static bool isResolving(Handle const& eh);
   void initUnresolvedEntry(Handle& eh, Waiting& ue) const;
   template <class Take>
   void forEachResolved(Take&& take) const;
   void resolvedEntryIs(Handle& eh, Entry entry) const;
   bool resolvedAtOnce(Handle& eh, Entry const& entry) const;
   void resolvedEntryDel(Handle& eh) const;
   void resolvedEntryChanged(Handle& eh) const;
   void handleEntry(Handle& eh) const;
   void hwTableEntryIs(Handle& eh) const;
   void hwTableEntryDel(Handle& eh) const;
   void rowsAre(Handle& eh, Index base) const;
   void rowsIssued(Handle& eh) const;
   void doCompleteEntryHandleForTesting(Handle& eh, Index hwIndex) const;
   bool isInHwTable(Handle const& eh, Index base) const;
   bool awaitsAnswers() const { return swTable_->responseEnabled() && !completesForTesting(); }
   void checkBlockSize(Key const& block) const;

   static std::uint32_t rows(Handle const& eh);
   static std::uint64_t traceNumber(Nuv::Ptr<Handle> const& eh) { return eh ? eh->creationNumber() : 0; }
   // A key that is no number is told by its hash in the ring, where messages have no room for more.
   static std::uint64_t traceKey(Key const& key) {
      if constexpr (std::integral<Key>) {
         return key;
      } else {
         return Nuv::hashOf(key, Nuv::hashSeed());
      }
   }
   template <class Visit>
   static void forEachNeeded(Handle const& eh, Waiting const& ue, Visit&& visit);
   static bool hasUnsetHandle(Handle const& eh, Waiting const& ue);
   template <class Has>
   static void traceUnsetHandle(Has&& has);
   static HwTable::Hold holdOf(Entry const& entry);

   T* swTable_;
};

#include "swtable/AccessorHardware.h"
#include "swtable/AccessorLife.h"
#include "swtable/AccessorWaiting.h"
#include "swtable/AccessorWrite.h"
