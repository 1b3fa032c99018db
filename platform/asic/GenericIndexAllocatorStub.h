#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// How a table comes by an allocator that it shares with other tables of its chip.
struct ZANDOR_EXPORT GenericIndexAllocatorStub {
   /// The chip's allocator of type `A`, made on first request. Null when the table knows no chip yet.
   template <class A>
   static Nuv::Ptr<A> createSharedAllocator(SwTable const& table) {
      auto const& shared = table.chipInfo().sharedAllocators;
      if (!shared) {
         return nullptr;
      }
      return Nuv::dynamicCast<A>(shared->allocatorFor(A::staticFwkType(), &table, [] {
         return Nuv::Ptr<GenericIndexAllocator>(Nuv::make<A>(A::typeName()));
      }));
   }

   /// Gives the table's share back.
   template <class A>
   static void freeSharedAllocator(SwTable const& table) {
      if (auto const& shared = table.chipInfo().sharedAllocators) {
         shared->allocatorDel(A::staticFwkType(), &table);
      }
   }
};

} // namespace Asic
