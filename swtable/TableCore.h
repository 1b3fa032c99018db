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
   /// Published attributes. A table with an allocator publishes that too.
   static constexpr auto attributeList() {
      auto common = std::tuple(Nuv::attribute("util", &TableCore::util),
                               Nuv::attribute("writeResponseSm", &TableCore::writeResponseSm));
      if constexpr (std::same_as<typename Sheet::Source, KeyIsIndex>) {
         return common;
      } else {
         return std::tuple_cat(std::tuple(Nuv::attribute("indexAllocator", &TableCore::indexAllocator)),
                               common);
      }
   }
   Nuv::FwkType fwkType() const override { return T::staticFwkType(); }

   /// Whether the chip's answers are awaited.
   static constexpr bool responseNeeded() { return true; }

   Nuv::Ptr<Util> const& util() const { return util_; }

   /// The handle at `key`, or null.
   Nuv::Ptr<EntryHandle const> entryHandle(Key const& key) const { return handles_.find(key); }
   bool entryHas(Key const& key) const { return handles_.find(key) != nullptr; }

   /// The index of the entry at `key`, for publication to other agents; invalid when there is none.
   Asic::Index hwIndexOnlyForCrossAgentCommunication(Key const& key) const {
      auto handle = handles_.find(key);
      return handle ? handle->hwEntryIndex() : Asic::invalidIndex;
   }

   /// The table's handles in their canonical order. They find; what they hold is the accessor's affair.
   Handles& handles() { return handles_; }
   Handles const& handles() const { return handles_; }

   Nuv::NotifieeList<ResolvedEntryNotifiee<Key>>& resolvedEntryNotifiees() { return resolvedEntryNotifiees_; }

   void cleanup() override;

   /// Whether the table was taken down. It takes no entries any more.
   bool isTakenDown() const { return isTakenDown_; }

   Asic::Index doAcquireHwIndex(Key const& key) { return source_.acquire(*this, key); }
   Asic::Index heldHwIndex(Key const& key) const { return source_.held(key); }
   void doReleaseHwIndex(Key const& key) { source_.release(*this, key); }

   /// The allocator of a table that has one; null before `doInit` and after `cleanup`.
   auto const& indexAllocator() const { return source_.allocator(); }

 protected:
   explicit TableCore(Pelm::String name) : Base(std::move(name)) {}

   T* self() const { return static_cast<T*>(const_cast<TableCore*>(this)); }
   Accessor accessor() const { return Accessor(self()); }

   void doInitComplete() override;
   Nuv::Ptr<Asic::SwTableBase::EntryHandle const> handleAt(std::uintptr_t address) const override {
      return handles_.at(address);
   }
   Pelm::String hwTableName() const override { return Sheet::hwTableName(); }
   void utilIs(Nuv::Ptr<Asic::HwTable> const& table) override;
   Asic::HwTable* hwTable() const override { return util_ ? &util_->hwTable() : nullptr; }

 private:
   Handles handles_;
   Nuv::NotifieeList<ResolvedEntryNotifiee<Key>> resolvedEntryNotifiees_;
   Nuv::Ptr<Util> util_;
   [[no_unique_address]] IndexSource<typename Sheet::Source, Key> source_;
   bool isTakenDown_{};
};

template <class T, class SheetType, class KeyType, class Base>
void
TableCore<T, SheetType, KeyType, Base>::doInitComplete() {
   if (responseNeeded()) {
      this->writeResponseSmIs(self());
   }
   source_.init(*this);
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
   isTakenDown_ = true;
   accessor().cleanup();
   source_.del(*this);
}

} // namespace ZandorL3Tunnel
