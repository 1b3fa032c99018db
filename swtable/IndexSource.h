#pragma once

#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/nuv/Export.h"
#include "swtable/AccessorBase.h"

namespace ZandorL3Tunnel {

/// Where a table's hardware indices come from. A data sheet names one of these:
/// the key is the index;
struct ZANDOR_EXPORT KeyIsIndex {};

/// or an allocator of type `A`: the table's own, or the chip's, which several tables share.
template <class A, bool isShared>
struct ZANDOR_EXPORT AllocatorSource {};
template <class A>
using OwnAllocator = AllocatorSource<A, false>;
template <class A>
using SharedAllocator = AllocatorSource<A, true>;

/// The indices of a table whose keys are indices.
template <class Source, class Key>
class ZANDOR_EXPORT IndexSource {
 public:
   void init(Asic::SwTable const&) {}
   void del(Asic::SwTable const&) {}
   Asic::Index acquire(Asic::SwTable const&, Key const& key) { return key; }
   Asic::Index held(Key const& key) const { return key; }
   void release(Asic::SwTable const&, Key const&) {}
};

/// The indices of a table that takes them from an allocator.
template <class A, bool isShared, class Key>
class ZANDOR_EXPORT IndexSource<AllocatorSource<A, isShared>, Key> {
 public:
   using Allocator = A;

   Nuv::Ptr<Allocator> const& allocator() const { return allocator_; }

   /// Makes or finds the allocator, as large as the hardware table is.
   void init(Asic::SwTable const& table);

   /// Lets the allocator go, and gives the table's share back.
   void del(Asic::SwTable const& table);

   /// The index, or the run, that the key holds or can have from now on, for `table`.
   Asic::Index acquire(Asic::SwTable const& table, Key const& key);

   /// What the key holds; the invalid index when it holds nothing.
   Asic::Index held(Key const& key) const {
      return allocator_ ? allocator_->indexForKey(Nuv::nuvType<Key>(), &key) : Asic::invalidIndex;
   }

   /// `table` uses the key's index no longer. Another table that shares the allocator may still do.
   void release(Asic::SwTable const& table, Key const& key) {
      if (allocator_) {
         allocator_->releaseIndexForKey(Nuv::nuvType<Key>(), &key, &table);
      }
   }

 private:
   Nuv::Ptr<Allocator> allocator_;
};

template <class A, bool isShared, class Key>
void
IndexSource<AllocatorSource<A, isShared>, Key>::init(Asic::SwTable const& table) {
   if constexpr (isShared) {
      DUOLOG(_defaultTraceHandle(), TraceLevel::resolve, "Creating shared allocator");
      allocator_ = Asic::GenericIndexAllocatorStub::createSharedAllocator<Allocator>(table);
   } else {
      allocator_ = Nuv::make<Allocator>(table.tblName());
   }
   ACCESSOR_ASSERT(allocator_, "shalloc", table.tblName());
   // A table without hardware has no bounds of its own to give the allocator.
   if (Asic::Index rows = table.numEntries(); rows != Asic::invalidIndex && rows > allocator_->numEntries()) {
      allocator_->numEntriesIs(rows);
   }
   allocator_->initializedIs(true);
}

template <class A, bool isShared, class Key>
void
IndexSource<AllocatorSource<A, isShared>, Key>::del(Asic::SwTable const& table) {
   if (!allocator_) {
      return;
   }
   if constexpr (isShared) {
      DUOLOG(_defaultTraceHandle(), TraceLevel::resolve,
             "Trying to delete shared allocator for table:", table.tblName());
      Asic::GenericIndexAllocatorStub::freeSharedAllocator<Allocator>(table);
   }
   allocator_ = nullptr;
}

template <class A, bool isShared, class Key>
Asic::Index
IndexSource<AllocatorSource<A, isShared>, Key>::acquire(Asic::SwTable const& table, Key const& key) {
   if (!allocator_) {
      return Asic::invalidIndex;
   }
   auto const& type = Nuv::nuvType<Key>();
   if constexpr (std::derived_from<Allocator, Asic::AnySizedBlockAllocator>) {
      return allocator_->newIndexForBlock(type, &key, key.size(), &table);
   } else {
      return allocator_->newIndexForKey(type, &key, &table);
   }
}

} // namespace ZandorL3Tunnel
