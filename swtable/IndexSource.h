#pragma once

#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/nuv/Export.h"
#include "swtable/AccessorBase.h"

namespace ZandorL3Tunnel {

/// Where a table's hardware indices come from. A data sheet names one of these:
/// the key is the index;
struct ZANDOR_EXPORT KeyIsIndex {};

/// or an allocator of type `A`: the table's own, or the chip's, which several tables share.
template <class A, bool isShared>
struct ZANDOR_EXPORT AllocatorSource {
   using AllocatorType = A;
};
template <class A>
using OwnAllocator = AllocatorSource<A, false>;
template <class A>
using SharedAllocator = AllocatorSource<A, true>;

/// How a table and its allocator come together and part, whatever the allocator's type.
class ZANDOR_EXPORT AllocatorUse {
 public:
   using Make = Nuv::Ptr<Asic::GenericIndexAllocator> (*)(Pelm::String const& name);

   /// An allocator for `table`, which must not be null, as large as its hardware table: the chip's of that
   /// type, which is never made smaller for it, or, with `makeOwn`, one of the table's own.
   static Nuv::Ptr<Asic::GenericIndexAllocator> initAllocator(Nuv::FwkType allocatorType,
                                                              Asic::SwTable const* table, Make makeOwn);

   /// The table parts with its allocator, and whatever it still holds there is given back.
   static void freeAllocator(Asic::GenericIndexAllocator& allocator, Nuv::FwkType allocatorType,
                             Asic::SwTable const& table);
};

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
   void allocatorIs(Nuv::Ptr<Allocator> const& allocator) { allocator_ = allocator; }

   /// Makes or finds the allocator, which is ready for use then.
   void init(Asic::SwTable const& table);

   /// Lets the allocator go, and gives back what the table holds there.
   void del(Asic::SwTable const& table);

   /// The index, or the run, that the key holds or can have from now on, for `table`. Quick when it is
   /// `likely` what the table has for the key already.
   Asic::Index acquire(Asic::SwTable const& table, Key const& key, Asic::Index likely = Asic::invalidIndex);

   /// Gives the key that very index; false, with nothing changed, when it cannot have it.
   bool request(Asic::SwTable const& table, Key const& key, Asic::Index index) {
      return allocator_ && allocator_->requestIndexForKey(index, Nuv::nuvType<Key>(), &key, &table);
   }

   /// What the key holds; the invalid index when it holds nothing. Quick when it is `likely`.
   Asic::Index held(Key const& key, Asic::Index likely = Asic::invalidIndex) const {
      if (allocator_ && allocator_->holdsAt(likely, Nuv::nuvType<Key>(), &key)) {
         return likely;
      }
      return allocator_ ? allocator_->indexForKey(Nuv::nuvType<Key>(), &key) : Asic::invalidIndex;
   }

   /// `table` uses the key's index no longer. Another table that shares the allocator may still do.
   void release(Asic::SwTable const& table, Key const& key) {
      if (allocator_) {
         allocator_->releaseIndexFromTable(Nuv::nuvType<Key>(), &key, &table);
      }
   }

 private:
   static Nuv::Ptr<Asic::GenericIndexAllocator> makeOwn(Pelm::String const& name) {
      return Nuv::make<Allocator>(name);
   }
   static Nuv::FwkType allocatorType();

   Nuv::Ptr<Allocator> allocator_;
};

template <class A, bool isShared, class Key>
void
IndexSource<AllocatorSource<A, isShared>, Key>::init(Asic::SwTable const& table) {
   auto made = AllocatorUse::initAllocator(allocatorType(), &table, isShared ? nullptr : &makeOwn);
   allocatorIs(Nuv::dynamicCast<Allocator>(made));
   ACCESSOR_ASSERT(allocator_, "shalloc", table.tblName());
   allocator_->initializedIs(true);
}

template <class A, bool isShared, class Key>
void
IndexSource<AllocatorSource<A, isShared>, Key>::del(Asic::SwTable const& table) {
   if (auto allocator = allocator_) {
      AllocatorUse::freeAllocator(*allocator, allocatorType(), table);
      allocatorIs(nullptr);
   }
}

template <class A, bool isShared, class Key>
Asic::Index
IndexSource<AllocatorSource<A, isShared>, Key>::acquire(Asic::SwTable const& table, Key const& key,
                                                        Asic::Index likely) {
   if (!allocator_) {
      return Asic::invalidIndex;
   }
   auto const& type = Nuv::nuvType<Key>();
   if (allocator_->holdsAt(likely, type, &key, &table)) {
      return likely;
   }
   if constexpr (std::derived_from<Allocator, Asic::AnySizedBlockAllocator>) {
      return allocator_->newIndexForBlock(type, &key, &table);
   } else {
      return allocator_->newIndexForKey(type, &key, &table);
   }
}

template <class A, bool isShared, class Key>
Nuv::FwkType
IndexSource<AllocatorSource<A, isShared>, Key>::allocatorType() {
   if constexpr (isShared) {
      return A::staticFwkType();
   } else {
      return {};
   }
}

} // namespace ZandorL3Tunnel
