#pragma once

#include "platform/asic/SwMergedTable.h"
#include "platform/nuv/Export.h"
#include "swtable/HandleCollection.h"
#include "swtable/IndexSource.h"
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

   L3NextHop2Table();
   ~L3NextHop2Table() override;

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3NextHop2Table"; }
   static constexpr auto attributeList() {
      return std::tuple(Nuv::attribute("ingL3NextHop2Table", &L3NextHop2Table::ingL3NextHop2Table),
                        Nuv::attribute("egrL3NextHop2", &L3NextHop2Table::egrL3NextHop2),
                        Nuv::attribute("indexAllocator", &L3NextHop2Table::indexAllocator));
   }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }

   /// Writes both halves of the next hop at the key's index. A pair that is in place already is left as it
   /// is. Without a free index the handle is `failed` and nothing is written. With `needsExplicitRemove` the
   /// entry stays until `entryRemove`, else as long as somebody holds the handle. Null once the table was
   /// taken down.
   HandlePtr entryWrite(Key const& key, IngL3NextHop2Table::Entry const& ingEntry,
                        EgrL3NextHop2::Entry const& egrEntry, Asic::AutoRemoveType autoRemoveType);

   /// Gives the commit at `key` back: the entry goes with its last holder. Without a commit it does nothing.
   void entryRemove(Key const& key);

   /// Gives every commit back.
   void entryRemoveAll();

   bool entryHas(Key const& key) const;
   Nuv::Ptr<EntryHandle const> entryHandle(Key const& key) const;

   /// The member entries at the key's index; empty when there are none.
   std::optional<IngL3NextHop2Table::Entry> ingL3NextHop2TableEntry(Key const& key) const;
   std::optional<EgrL3NextHop2::Entry> egrL3NextHop2Entry(Key const& key) const;

   Nuv::Ptr<IngL3NextHop2Table> const& ingL3NextHop2Table() const { return ingL3NextHop2Table_; }
   Nuv::Ptr<EgrL3NextHop2> const& egrL3NextHop2() const { return egrL3NextHop2_; }
   Nuv::Ptr<L3NextHop2SharedAllocator> const& indexAllocator() const { return source_.allocator(); }

   Handles const& handles() const { return handles_; }

   /// As many as both member tables have.
   Asic::Index numEntries() const override;

   void cleanup() override;

 protected:
   HandlePtr handleAt(std::uintptr_t address) const override { return handles_.at(address); }
   void doInitEnclosed(Asic::UnitId, Nuv::Ptr<Kallo::EntityManager> const&, Asic::ChipInfo const&) override;
   void doInitComplete() override;

 private:
   void doEnclosingInit();
   void doReserveIndicesAtTableInit();
   Nuv::Ptr<EntryHandle> writtenHandle(Key const& key, Asic::AutoRemoveType autoRemoveType);
   bool isInPlace(EntryHandle const& handle, Asic::Index index, IngL3NextHop2Table::Entry const& ingEntry,
                  EgrL3NextHop2::Entry const& egrEntry) const;
   void unresolvedMergedEntryIs(EntryHandle& handle, MergedEntry const& entry);
   void cleanup(EntryHandle& handle);
   void leave(EntryHandle& handle);

   Nuv::Ptr<IngL3NextHop2Table> ingL3NextHop2Table_;
   Nuv::Ptr<EgrL3NextHop2> egrL3NextHop2_;
   IndexSource<SharedAllocator<L3NextHop2SharedAllocator>, Key> source_;
   std::unique_ptr<IndexDeallocatorSm> indexDeallocatorSm_;
   Handles handles_;
   bool isTakenDown_{};
};

/// The handles of one next hop's halves: a set.
class ZANDOR_EXPORT L3NextHop2Table::MergedEntry {
 public:
   static constexpr std::size_t numMemberTables() { return 2; }

   /// Number of handles held.
   std::size_t mergedEntryHandles() const { return size_; }
   void mergedEntryHandleIs(HandlePtr const& handle);

   HandlePtr const* begin() const { return handles_.data(); }
   HandlePtr const* end() const { return handles_.data() + size_; }

   explicit operator bool() const { return size_ != 0; }
   friend bool operator==(MergedEntry const&, MergedEntry const&) = default;
   friend void appendText(Pelm::String& out, MergedEntry const&) { out.append("None"); }

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
};

/// A pair that waits for its halves.
class ZANDOR_EXPORT L3NextHop2Table::UnresolvedMergedEntry final
    : public Asic::SwMergedTable::UnresolvedMergedEntry {
 public:
   explicit UnresolvedMergedEntry(EntryHandle& handle) : handle_(&handle) {}

   /// Begins to wait for the pair, which must be whole. Resolves at once as far as it can.
   void initUnresolvedMergedEntry(MergedEntry const& entry);

   /// The pair is waited for no longer: whatever its halves still say changes nothing.
   void detach() { handle_ = nullptr; }

   /// May run any number of times.
   void doResolve() override;
   void markFailedNeededEntry() override { setEntryState(Asic::SwTableBase::failedNeededEntry()); }
   void setEntryState(Asic::SwTableBase::EntryState) override;

 private:
   EntryHandle* handle_;
   MergedEntry entry_;
};

/// Gives a next hop's index back once neither member table has an entry there.
class ZANDOR_EXPORT L3NextHop2Table::IndexDeallocatorSm {
 public:
   explicit IndexDeallocatorSm(L3NextHop2Table& table);

 private:
   struct MemberTableSm final : ResolvedEntryNotifiee<Asic::Index> {
      explicit MemberTableSm(IndexDeallocatorSm& owner) : owner_(owner) {}
      void handleResolvedEntry(Asic::Index const& index) override { owner_.handleResolvedEntry(index); }

      IndexDeallocatorSm& owner_;
   };

   void handleResolvedEntry(Asic::Index index);

   L3NextHop2Table& table_;
   MemberTableSm ingSm_;
   MemberTableSm egrSm_;
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<L3NextHop2Table> l3NextHop2TableFactory();

} // namespace ZandorL3Tunnel
