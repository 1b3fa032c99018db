#pragma once

#include "platform/asic/UtilFactory.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/TypeInfo.h"
#include "plugin/UtilLoader.h"
#include "swtable/Accessor.h"
#include "swtable/HandleCollection.h"
#include "swtable/IndexSource.h"

#include <optional>

namespace ZandorL3Tunnel {

/// Observer of a table's resolved entries: hears the key of each one that comes, changes or goes.
template <class Key>
class ZANDOR_EXPORT ResolvedEntryNotifiee : public Nuv::Notifiee {
 public:
   virtual void handleResolvedEntry(Key const& key) = 0;
};

/// What keyed tables and block tables are alike: the handles by key, the util, the index source.
///
/// `T` should be the table's own class, with a static `staticFwkType()`. `SheetType` should be its data
/// sheet: the static `typeName()` and `hwTableName()`, the types `Entry` and `Source` (one of those in
/// IndexSource.h).
template <class T, class SheetType, class KeyType, class Base>
class ZANDOR_EXPORT TableCore : public Base {
 public:
   using Sheet = SheetType;
   using Key = KeyType;
   using Entry = typename Sheet::Entry;
   using EntryHandle = TableEntryHandle<T>;
   using UnresolvedEntry = WaitingEntry<T>;
   using Util = Asic::SwTable::EntryUtil<Entry>;
   using UtilLoader = ZandorL3Tunnel::UtilLoader<T>;
   using HandlePtr = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
   using Handles = HandleCollection<EntryHandle, Key>;
   using Accessor = Asic::SwTable::Accessor<T>;

   static Pelm::String typeName() { return Sheet::typeName(); }
   /// Published attributes: the allocator of a table that has one, the collections, and what is used for
   /// hardware.
   static constexpr auto attributeList() {
      return std::tuple_cat(allocatorAttribute(), collectionAttributes(),
                            std::tuple(Nuv::attribute("util", &TableCore::util),
                                       Nuv::attribute("writeResponseSm", &TableCore::writeResponseSm)));
   }
   Nuv::FwkType fwkType() const override { return T::staticFwkType(); }

   /// The table's source of messages in the ring trace.
   static Trace::Facility const& traceFacility() {
      static Trace::Facility const facility(facilityName());
      return facility;
   }

   /// Whether the chip's answers are awaited, unless the table's `responseEnabled` says otherwise.
   static constexpr bool responseNeeded() { return true; }

   /// Whether the key is a type of its own, rather than a hardware index.
   static constexpr bool isExternalKeyType() { return !std::same_as<typename Sheet::Source, KeyIsIndex>; }
   /// Whether the table's entries are written by a merged table only.
   static constexpr bool isOwnedByMergeTable() {
      return requires {
         Sheet::isOwnedByMergeTable();
      };
   }
   /// Whether rows that outlived their table are known again after `syncEntries`, and purged when nobody
   /// writes them: so where the key says which row it is.
   static constexpr bool supportsStaleEntryPurge() { return !isExternalKeyType(); }
   /// Number of fields of an entry that follow from handles.
   static constexpr unsigned numDependentFields() {
      if constexpr (Asic::HasDependentFields<Entry>) {
         return std::tuple_size_v<decltype(Entry::dependentFields())>;
      } else {
         return 0;
      }
   }
   /// Whether users say how many rows an entry takes, rather than its type.
   static constexpr bool getBlockSizeDefinedByUser() { return BlockKey<Key>; }

   /// Takes the rows that the chip has, from an earlier run, into account: writing an equal one again costs
   /// nothing then, and `Asic::HwTable::purge` clears those that nobody wrote again. To be called before the
   /// first entry is written, with a hardware table.
   void syncEntries() { accessor().syncEntries(); }

   /// Adds to `group` the mount of what is published of this type's hardware tables.
   static void doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group) {
      Util::doMountHwTableMountInfo(group, typeName());
   }

   /// Adds the hardware table that this type uses on `unit` to those that `group` recovers, if there is one.
   static void doRecoverHwTable(Nuv::Ptr<Asic::HwTableRecoverGroup> const& group, Asic::UnitId unit,
                                Nuv::Ptr<Kallo::EntityManager> const& entityManager,
                                Asic::ChipInfo const& chipInfo) {
      Util::doRecoverHwTable(group, unit, entityManager, chipInfo, Sheet::hwTableName());
   }

   Nuv::Ptr<Util> const& util() const { return util_; }

   /// The handle at `key`, or null.
   Nuv::Ptr<EntryHandle const> entryHandle(Key const& key) const { return handles_.find(key); }
   bool entryHas(Key const& key) const { return handles_.find(key) != nullptr; }

   /// The index of the entry at `key`, for publication to other agents; invalid when there is none.
   Asic::Index hwIndexOnlyForCrossAgentCommunication(Key const& key) const {
      auto handle = handles_.find(key);
      return handle ? handle->hwIndexForDependentField() : Asic::invalidIndex;
   }

   /// The table's handles in their canonical order. They find; what they hold is the accessor's affair.
   Handles& handles() { return handles_; }
   Handles const& handles() const { return handles_; }

   /// The handle whose end is being told now, null when none is; for the accessor alone.
   LeavingHandle<T> const*& leavingHandle() { return leavingHandle_; }

   Nuv::NotifieeList<ResolvedEntryNotifiee<Key>>& resolvedEntryNotifiees() { return resolvedEntryNotifiees_; }

   void cleanup() override;

   /// Whether the table was taken down. It takes no entries any more.
   bool isTakenDown() const { return isTakenDown_; }

   /// The index that the key holds or can have from now on; the invalid index when none is free.
   std::optional<Asic::Index> doAcquireHwIndex(Key const& key) { return source_.acquire(*this, key); }
   Asic::Index heldHwIndex(Key const& key) const { return source_.held(key); }
   void doReleaseHwIndex(Key const& key) { source_.release(*this, key); }

   /// The allocator of a table that has one; null before `doInit` and after `cleanup`.
   auto const& indexAllocator() const { return source_.allocator(); }
   /// Another allocator instead, before the first entry is written.
   void indexAllocatorIs(auto const& allocator) {
      NUV_ASSERT(handles_.size() == 0, this->tblName());
      source_.allocatorIs(allocator);
   }

 protected:
   explicit TableCore(Pelm::String name) : Base(std::move(name)) {}

   T* self() const { return static_cast<T*>(const_cast<TableCore*>(this)); }
   Accessor accessor() const { return Accessor(self()); }

   void doInitComplete() override;
   void doInitAllocator() { source_.init(*this); }
   Nuv::Ptr<Asic::SwTableBase::EntryHandle const> handleAt(std::uintptr_t address) const override {
      return handles_.at(address);
   }
   Pelm::String hwTableName() const override { return Sheet::hwTableName(); }
   Pelm::String tableType() const override { return typeName(); }
   void utilIs(Nuv::Ptr<Asic::HwTable> const& table) override;
   Asic::HwTable* hwTable() const override { return util_ ? &util_->hwTable() : nullptr; }

 private:
   static constexpr auto allocatorAttribute() {
      if constexpr (std::same_as<typename Sheet::Source, KeyIsIndex>) {
         return std::tuple();
      } else {
         return std::tuple(Nuv::attribute("indexAllocator", &TableCore::indexAllocator));
      }
   }

   static constexpr auto collectionAttributes() {
      auto collection = [](char const* name) { return Nuv::attribute(name, &TableCore::collection); };
      if constexpr (BlockKey<Key>) {
         return std::tuple(collection("entryHandle"), collection("unresolvedEntryBlock"),
                           collection("resolvedEntryBlock"));
      } else if constexpr (Asic::HasDependentFields<Entry>) {
         return std::tuple(collection("entryHandle"), collection("unresolvedEntry"),
                           collection("resolvedEntry"));
      } else {
         return std::tuple(collection("entryHandle"), collection("resolvedEntry"));
      }
   }
   Nuv::PublishedCollection collection() const { return {}; }

   // The type's name without what parts it.
   static Pelm::String facilityName() {
      auto name = typeName();
      std::erase(name, ':');
      return name;
   }

   Handles handles_;
   Nuv::NotifieeList<ResolvedEntryNotifiee<Key>> resolvedEntryNotifiees_;
   Nuv::Ptr<Util> util_;
   [[no_unique_address]] IndexSource<typename Sheet::Source, Key> source_;
   LeavingHandle<T> const* leavingHandle_{};
   bool isTakenDown_{};
};

template <class T, class SheetType, class KeyType, class Base>
void
TableCore<T, SheetType, KeyType, Base>::doInitComplete() {
   if (responseNeeded()) {
      this->writeResponseSmIs(self());
   }
   doInitAllocator();
}

template <class T, class SheetType, class KeyType, class Base>
void
TableCore<T, SheetType, KeyType, Base>::utilIs(Nuv::Ptr<Asic::HwTable> const& table) {
   Ancillary::Core::Loader::Singleton::instantiate<UtilLoader>();
   util_ = Nuv::dynamicCast<Util>(Asic::UtilFactory::utilFor(typeName(), table));
}

template <class T, class SheetType, class KeyType, class Base>
void
TableCore<T, SheetType, KeyType, Base>::cleanup() {
   if (isTakenDown_) {
      return;
   }
   // Who hears of it may let go of the table.
   Nuv::Ptr<T> alive(self());
   isTakenDown_ = true;
   Nuv::AllSteps steps;
   steps([&] { accessor().cleanup(); });
   source_.del(*this);
   steps.finish();
}

} // namespace ZandorL3Tunnel
