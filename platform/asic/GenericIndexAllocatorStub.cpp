#include "platform/asic/GenericIndexAllocatorStub.h"

#include "platform/asic/SwTable.h"

namespace Asic {

Nuv::Ptr<GenericIndexAllocator>
GenericIndexAllocatorStub::createSharedAllocator(Nuv::FwkType allocatorType, Nuv::FwkType tableType,
                                                 SwTable const* table) {
   auto const& shared = table->chipInfo().sharedAllocators;
   return shared ? shared->allocatorFor(allocatorType, tableType, table) : nullptr;
}

void
GenericIndexAllocatorStub::freeSharedAllocator(Nuv::FwkType allocatorType, Nuv::FwkType,
                                               SwTable const* table) {
   if (auto const& shared = table->chipInfo().sharedAllocators) {
      shared->allocatorDel(allocatorType, table);
   }
}

} // namespace Asic
