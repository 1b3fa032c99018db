#pragma once

#include "platform/asic/SwMergedTable.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/HashMap.h"
#include "swtable/HandleCollection.h"
#include "swtable/IndexSource.h"
#include "swtable/ResponseHandler.h"
#include "tables/EgrL3NextHop2.h"
#include "tables/IngL3NextHop2Table.h"
#include "tables/L3NextHop2SharedAllocator.h"
#include "types/L3UnderlayNextHopKey.h"

#include <array>

namespace ZandorL3Tunnel {

/// Underlay next hops: one key takes the same index in the ingress and in the egress next-hop table. It has
/// the index from its first write until both member tables have let go of it.
class ZANDOR_EXPORT L3NextHop2Table final : public Asic::SwMergedTable {
 public:
   class EntryHandle;
   class MergedEntry;
   class UnresolvedMergedEntry;
   class IndexDeallocatorSm;

   using Key = L3UnderlayNextHopKey;
   using HandlePtr = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
   using Handles = HandleCollection<EntryHandle, Key>;
   using ResponseFunction = Asic::SwTableBase::ResponseFunction;

   /// Observer of the table's attributes.
   class Notifiee : public Nuv::Notifiee {
    public:
      /// A member table came, or goes.
      virtual void handleIngL3NextHop2Table() {}
      virtual void handleEgrL3NextHop2() {}
   };

   L3NextHop2Table();
   ~L3NextHop2Table() override;

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3NextHop2Table"; }
   static constexpr auto attributeList() {
      return std::tuple(Nuv::attribute("ingL3NextHop2Table", &L3NextHop2Table::ingL3NextHop2Table),
                        Nuv::attribute("egrL3NextHop2", &L3NextHop2Table::egrL3NextHop2),
                        Nuv::attribute("indexAllocator", &L3NextHop2Table::indexAllocator),
                        Nuv::attribute("entryHandle", &L3NextHop2Table::collection),
                        Nuv::attribute("mergedEntry", &L3NextHop2Table::collection),
                        Nuv::attribute("unresolvedMergedEntry", &L3NextHop2Table::collection),
                        Nuv::attribute("mappedEntryHandle", &L3NextHop2Table::collection),
                        Nuv::attribute("indexDeallocatorSm", &L3NextHop2Table::indexDeallocatorSm));
   }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }

   /// Writes both halves of the next hop at the key's index. A pair that is in place already is left as it
   /// is. Without a free index the handle is `failed` and nothing is written. With `needsExplicitRemove` the
   /// entry stays until `entryRemove`, else as long as somebody holds the handle. Null once the table was
   /// taken down.
   /// `handler` replaces the handle's response handler, also when it is empty, and hears each progress and
   /// each failure, up to the first success; of a pair that is in place already it hears the next change.
   HandlePtr entryWriteWithResponseHandler(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                                           EgrL3NextHop2::Entry const& egrEntry, ResponseFunction handler,
                                           Asic::AutoRemoveType autoRemoveType);
   HandlePtr entryWrite(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                        EgrL3NextHop2::Entry const& egrEntry, Asic::AutoRemoveType autoRemoveType) {
      return entryWriteWithResponseHandler(key, ingEntry, egrEntry, {}, autoRemoveType);
   }
   HandlePtr entryCommitWithResponseHandler(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                                            EgrL3NextHop2::Entry const& egrEntry, ResponseFunction handler) {
      return entryWriteWithResponseHandler(key, ingEntry, egrEntry, std::move(handler),
                                           Asic::needsExplicitRemove());
   }
   HandlePtr entryCommit(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                         EgrL3NextHop2::Entry const& egrEntry) {
      return entryWrite(key, ingEntry, egrEntry, Asic::needsExplicitRemove());
   }
   HandlePtr entryRef(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                      EgrL3NextHop2::Entry const& egrEntry) {
      return entryWrite(key, ingEntry, egrEntry, Asic::AutoRemoveType::automatic);
   }

   /// A commit at that very index. When the key cannot have it, the allocator chooses: the handle tells which
   /// index it is.
   HandlePtr entryWriteAtIndex(Asic::Index index, Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                               EgrL3NextHop2::Entry const& egrEntry);

   /// From now on `newKey` stands for the entry at `existingKey`, which must be there, and holds it as a
   /// commit does, until `entryRemove(newKey)`. It takes no index and writes nothing. The keys must differ,
   /// and the type must be `needsExplicitRemove`. An earlier mapping of `newKey` is replaced.
   HandlePtr entryMapToKey(Key const& newKey, Key const& existingKey, Asic::AutoRemoveType autoRemoveType);

   /// Gives the commit at `key` back: the entry goes with its last holder. A key that stands for another's
   /// entry stands for it no longer, and nothing else. Without either it does nothing.
   void entryRemove(Key const& key);

   /// Gives every commit and every mapping back.
   void entryRemoveAll();

   /// Whether the key has an entry or stands for another key's.
   bool entryHas(Key const& key) const { return entryHandle(key) != nullptr; }
   /// The handle that the key stands for, or else its own; null without both.
   Nuv::Ptr<EntryHandle const> entryHandle(Key const& key) const;

   /// The handle at `key`, or a new one, which the table holds until its entry is written or it is let go;
   /// null once the table was taken down. Mappings do not count.
   HandlePtr entryHandleIs(Key const& key);
   bool entryHandleHas(Key const& key) const { return handles_.has(key); }

   /// Lets the handle at `key` go, and the mappings to it: halves that nobody else holds go, and a handle
   /// that users hold is inert. Without one it does nothing. `...DelAll` lets every handle and every mapping
   /// go, as taking the table down does.
   void entryHandleDel(Key const& key);
   void entryHandleDelAll();

   /// The handle that the key stands for; null when it is not mapped. `...Is` maps the key to the handle of
   /// an entry of this table, in place of an earlier one; `...Del` ends that.
   HandlePtr mappedEntryHandle(Key const& key) const;
   bool mappedEntryHandleHas(Key const& key) const { return mapped_.has(key); }
   void mappedEntryHandleIs(Key const& key, HandlePtr const& handle);
   void mappedEntryHandleDel(Key const& key);
   void mappedEntryHandleDelAll();
   std::size_t mappedEntryHandles() const { return mapped_.size(); }

   /// The pair that is in place at the key, if any; a key that stands for another's entry shows that one's.
   /// `...Is` puts a pair in place, without writing anything: its halves should be at the key's index.
   /// `...Del` takes it back: halves that nobody else holds go, and the entry is `unresolved` and without an
   /// index until it is written again. Both concern the key's own entry, and do nothing without one.
   MergedEntry mergedEntry(Key const& key) const;
   bool mergedEntryHas(Key const& key) const;
   void mergedEntryIs(Key const& key, MergedEntry const& entry);
   void mergedEntryDel(Key const& key);
   void mergedEntryDelAll();

   /// The same for the pair that is waited for. `...Is` makes one at the key's own entry in place of an
   /// earlier one, which waits for nothing until it is told to; null without an entry. `...Del` drops it, and
   /// the entry is `unresolved` until it is written again.
   Nuv::Ptr<UnresolvedMergedEntry> unresolvedMergedEntry(Key const& key) const;
   bool unresolvedMergedEntryHas(Key const& key) const;
   Nuv::Ptr<UnresolvedMergedEntry> unresolvedMergedEntryIs(Key const& key);
   void unresolvedMergedEntryDel(Key const& key);
   void unresolvedMergedEntryDelAll();

   /// The index of the entry at `key`, for publication to other agents; invalid when there is none.
   Asic::Index hwIndexOnlyForCrossAgentCommunication(Key const& key) const;

   /// The member entries at the key's index; empty when there are none.
   std::optional<IngL3NextHop2Table::Entry> ingL3NextHop2TableEntry(Key const& key) const;
   std::optional<EgrL3NextHop2::Entry> egrL3NextHop2Entry(Key const& key) const;

   /// The member tables: null before the table's initialisation. `...Is` makes one, `...Del` lets it go;
   /// observers hear of both.
   Nuv::Ptr<IngL3NextHop2Table> const& ingL3NextHop2Table() const { return ingL3NextHop2Table_; }
   Nuv::Ptr<EgrL3NextHop2> const& egrL3NextHop2() const { return egrL3NextHop2_; }
   Nuv::Ptr<IngL3NextHop2Table> ingL3NextHop2TableIs();
   Nuv::Ptr<EgrL3NextHop2> egrL3NextHop2Is();
   void ingL3NextHop2TableDel();
   void egrL3NextHop2Del();
   void notifieeIs(Notifiee& notifiee) { notifieeList_.notifieeIs(notifiee); }

   Nuv::Ptr<IndexDeallocatorSm> const& indexDeallocatorSm() const { return indexDeallocatorSm_; }
   Nuv::Ptr<L3NextHop2SharedAllocator> const& indexAllocator() const { return source_.allocator(); }
   /// Another allocator instead, before the first entry is written. It keeps back the same indices.
   void indexAllocatorIs(Nuv::Ptr<L3NextHop2SharedAllocator> const& allocator);

   Handles const& handles() const { return handles_; }

   /// The same as of each of the two member tables.
   static void doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group);
   static void doRecoverHwTable(Nuv::Ptr<Asic::HwTableRecoverGroup> const& group, Asic::UnitId unit,
                                Nuv::Ptr<Kallo::EntityManager> const& entityManager,
                                Asic::ChipInfo const& chipInfo);
   void doPublishHwTableMountInfo() override;

   /// Switches the member tables with it: off, neither writes rows, and taking them down clears none.
   void hasNotificationActiveIs(bool active) override;

   /// As many as both member tables have.
   Asic::Index numEntries() const override;

   void cleanup() override;

 protected:
   HandlePtr handleAt(std::uintptr_t address) const override { return handles_.at(address); }
   void doInitEnclosed(Asic::UnitId, Nuv::Ptr<Kallo::EntityManager> const&, Asic::ChipInfo const&) override;
   void doInitComplete() override;

 private:
   // So many handles and what belongs to them are some megabytes.
   static constexpr std::size_t manyHandles = 8192;

   bool hasMemberTables() const { return ingL3NextHop2Table_ && egrL3NextHop2_; }
   void doEnclosingInit();
   void doReserveIndicesAtTableInit();
   Nuv::Ptr<EntryHandle> handleAtKey(Key const& key) const;
   Nuv::Ptr<EntryHandle> ownHandle(Key const& key);
   void mappingIs(Key const& key, Nuv::Ptr<EntryHandle> const& handle);
   static void mappingDel(Nuv::Ptr<EntryHandle>& handle);
   static void lastReferenceDel(Nuv::Ptr<EntryHandle>& handle);
   static void failsAgain(EntryHandle& handle);
   void ingL3NextHop2TableIs(Nuv::Ptr<IngL3NextHop2Table> table);
   void egrL3NextHop2Is(Nuv::Ptr<EgrL3NextHop2> table);
   Nuv::Ptr<EntryHandle> writtenHandle(Key const& key, Asic::AutoRemoveType autoRemoveType);
   bool isInPlace(EntryHandle const& handle, IngL3NextHop2Table::Entry const& ingEntry,
                  EgrL3NextHop2::Entry const& egrEntry) const;
   bool isInPlace(EntryHandle const& handle, Asic::Index index, IngL3NextHop2Table::Entry const& ingEntry,
                  EgrL3NextHop2::Entry const& egrEntry) const;
   static Nuv::Ptr<UnresolvedMergedEntry> unresolvedMergedEntryIs(EntryHandle& handle);
   static void unresolvedMergedEntryDel(EntryHandle& handle);
   static void mergedEntryDel(EntryHandle& handle);
   void unresolvedMergedEntryIs(EntryHandle& handle, MergedEntry entry);
   Nuv::PublishedCollection collection() const { return {}; }
   void cleanup(EntryHandle& handle);
   void endExpected(EntryHandle const& handle) const;
   void leave(EntryHandle& handle);
   void pairsDel(EntryHandle& handle);
   void letGo(EntryHandle& handle);

   Nuv::Ptr<IngL3NextHop2Table> ingL3NextHop2Table_;
   Nuv::Ptr<EgrL3NextHop2> egrL3NextHop2_;
   IndexSource<SharedAllocator<L3NextHop2SharedAllocator>, Key> source_;
   Nuv::Ptr<IndexDeallocatorSm> indexDeallocatorSm_;
   Handles handles_;
   Nuv::HashMap<Key, Nuv::Ptr<EntryHandle>> mapped_;
   Nuv::NotifieeList<Notifiee> notifieeList_;
   bool isTakenDown_{};
};

/// The handles of one next hop's halves: a set.
class ZANDOR_EXPORT L3NextHop2Table::MergedEntry {
 public:
   static constexpr std::size_t numMemberTables() { return 2; }

   /// Number of handles held.
   std::size_t mergedEntryHandles() const { return size_; }
   void mergedEntryHandleIs(HandlePtr handle);
   void mergedEntryHandleDel(HandlePtr const& handle);
   void mergedEntryHandleDelAll() { *this = {}; }

   HandlePtr const* begin() const { return handles_.data(); }
   HandlePtr const* end() const { return handles_.data() + size_; }

   explicit operator bool() const { return size_ != 0; }
   friend bool operator==(MergedEntry const&, MergedEntry const&) = default;
   friend void appendText(Pelm::String& out, MergedEntry const&) { out.append("None"); }

   /// A merged entry holds references, which no text can give: stops the process.
   friend ZANDOR_EXPORT void parseText(Nuv::TextRange&, MergedEntry&);

 private:
   std::array<HandlePtr, 2> handles_;
   std::size_t size_{};
};

/// The handle of one merged next hop; its index is valid when both halves' are.
class ZANDOR_EXPORT L3NextHop2Table::EntryHandle final : public Asic::SwTable::EntryHandle {
 public:
   static constexpr char const* typeName() { return L3NextHop2Table::typeName(); }

   EntryHandle(Key const& key, L3NextHop2Table* table);
   ~EntryHandle() override;

   Key const& key() const { return key_; }
   L3NextHop2Table* table() const { return static_cast<L3NextHop2Table*>(swTable()); }

   /// The pair that is in place.
   MergedEntry const& mergedEntry() const { return mergedEntry_; }
   /// The pair that is waited for, or null.
   Nuv::Ptr<UnresolvedMergedEntry> const& unresolvedMergedEntry() const { return unresolvedMergedEntry_; }

   // The member tables' handles hear the chip.
   void handleRowConfirmed() override {}

 protected:
   void cleanup() override;
   void handleEntryState() override;

 private:
   friend class L3NextHop2Table;

   Key key_;
   MergedEntry mergedEntry_;
   Nuv::Ptr<UnresolvedMergedEntry> unresolvedMergedEntry_;
   ResponseHandler responseHandler_;
   std::uint32_t mappings_{};
};

/// A pair that waits for its halves.
class ZANDOR_EXPORT L3NextHop2Table::UnresolvedMergedEntry final
    : public Asic::SwMergedTable::UnresolvedMergedEntry {
 public:
   explicit UnresolvedMergedEntry(EntryHandle& handle) : handle_(&handle) {}
   ~UnresolvedMergedEntry() override { neededEntryHandleSmDelAll(); }

   /// Begins to wait for the pair, which must be whole. Resolves at once as far as it can.
   void initUnresolvedMergedEntry(MergedEntry entry);

   /// The pair is waited for no longer: whatever its halves still say changes nothing.
   void detach() { handle_ = nullptr; }

   /// May run any number of times.
   void doResolve() override;
   void markFailedNeededEntry() override { setEntryState(Asic::SwTableBase::failedNeededEntry()); }
   void setEntryState(Asic::SwTableBase::EntryState) override;

 private:
   EntryHandle* handle_;
   MergedEntry entry_;
   Room<MergedEntry::numMemberTables()> room_{*this};
};

/// Gives a next hop's index back once neither member table has an entry there. It follows the member tables
/// of its merged table, which must outlive it.
class ZANDOR_EXPORT L3NextHop2Table::IndexDeallocatorSm final : public Nuv::Object {
 public:
   explicit IndexDeallocatorSm(L3NextHop2Table& table);

   /// Off, no index is given back; all three reactors follow.
   void hasNotificationActiveIs(bool active) override;

   /// A member table's entry at `index` came, changed or went: gives the index back once neither table has
   /// one.
   void handleResolvedEntry(Asic::Index index);

   /// Whether the reactors on the merged table and on the two member tables are active.
   bool mergedTableSmActive() const { return mergedTable_.isActive; }
   bool ingSmActive() const { return ingSm_.isActive; }
   bool egrSmActive() const { return egrSm_.isActive; }

 private:
   struct NuvMergedTable final : Notifiee {
      explicit NuvMergedTable(IndexDeallocatorSm& to) : owner(to) {}
      void handleIngL3NextHop2Table() override;
      void handleEgrL3NextHop2() override;

      IndexDeallocatorSm& owner;
      bool isActive{};
   };

   struct MemberTableSm : ResolvedEntryNotifiee<Asic::Index> {
      explicit MemberTableSm(IndexDeallocatorSm& to) : owner(to) {}
      void handleResolvedEntry(Asic::Index const& index) override;

      IndexDeallocatorSm& owner;
      bool isActive{};
   };
   struct NuvNuv_MergedTable_IngL3NextHop2TableIn final : MemberTableSm {
      using MemberTableSm::MemberTableSm;
   };
   struct NuvNuv_MergedTable_EgrL3NextHop2In final : MemberTableSm {
      using MemberTableSm::MemberTableSm;
   };

   L3NextHop2Table& table_;
   NuvMergedTable mergedTable_;
   NuvNuv_MergedTable_IngL3NextHop2TableIn ingSm_;
   NuvNuv_MergedTable_EgrL3NextHop2In egrSm_;
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<L3NextHop2Table> l3NextHop2TableFactory();

} // namespace ZandorL3Tunnel
