#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/nuv/Export.h"

#include <vector>

namespace Asic {

/// The allocators of one chip that several tables share, one for each type of allocator. An allocator lives
/// here while at least one table shares it.
class ZANDOR_EXPORT SharedAllocators : public Nuv::Object {
 public:
   /// The allocator of type `type`, made on first request by the class that its module registers, and named
   /// after that; `table`, of type `tableType`, shares it from now on. Null when there is no such class.
   Nuv::Ptr<GenericIndexAllocator> allocatorFor(Nuv::FwkType type, Nuv::FwkType tableType,
                                                SwTable const* table);

   /// `table` shares the allocator no longer, and what it holds is given back. An allocator that nobody
   /// shares is let go.
   void allocatorDel(Nuv::FwkType type, SwTable const* table);

   /// How many tables share the allocator of type `type`.
   std::size_t sharers(Nuv::FwkType type) const;

 private:
   struct Shared {
      Nuv::FwkType type;
      Nuv::Ptr<GenericIndexAllocator> allocator;
   };

   std::vector<Shared>::const_iterator find(Nuv::FwkType type) const;

   std::vector<Shared> allocators_;
};

} // namespace Asic
