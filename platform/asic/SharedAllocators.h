#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/nuv/Export.h"

#include <vector>

namespace Asic {

class SwTable;

/// The allocators of one chip that several tables share, one for each type of allocator. An allocator lives
/// here while at least one table shares it.
class ZANDOR_EXPORT SharedAllocators : public Nuv::Object {
 public:
   using Make = Nuv::Ptr<GenericIndexAllocator> (*)();

   /// The allocator of type `type`, made on first request; `table` shares it from now on.
   Nuv::Ptr<GenericIndexAllocator> allocatorFor(Nuv::FwkType type, SwTable const* table, Make make);

   /// `table` shares the allocator no longer. One that nobody shares is let go.
   void allocatorDel(Nuv::FwkType type, SwTable const* table);

   /// How many tables share the allocator of type `type`.
   std::size_t sharers(Nuv::FwkType type) const;

 private:
   struct Shared {
      Nuv::FwkType type;
      Nuv::Ptr<GenericIndexAllocator> allocator;
      std::vector<SwTable const*> tables;
   };

   std::vector<Shared>::iterator find(Nuv::FwkType type);

   std::vector<Shared> allocators_;
};

} // namespace Asic
