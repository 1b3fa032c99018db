#include "platform/asic/SharedAllocators.h"

#include <algorithm>

namespace Asic {

namespace {

Nuv::Ptr<GenericIndexAllocator>
newAllocator(Nuv::FwkType type) {
   for (auto const* info : Nuv::TypeInfo::registered()) {
      if (&info->module() == type.module) {
         auto made = Nuv::dynamicCast<GenericIndexAllocator>(info->make(info->name()));
         if (made && made->fwkType() == type) {
            return made;
         }
      }
   }
   return nullptr;
}

} // namespace

std::vector<SharedAllocators::Shared>::const_iterator
SharedAllocators::find(Nuv::FwkType type) const {
   return std::find_if(allocators_.begin(), allocators_.end(),
                       [type](Shared const& shared) { return shared.type == type; });
}

Nuv::Ptr<GenericIndexAllocator>
SharedAllocators::allocatorFor(Nuv::FwkType type, Nuv::FwkType tableType, SwTable const* table) {
   auto found = find(type);
   auto allocator = found == allocators_.end() ? newAllocator(type) : found->allocator;
   if (allocator) {
      if (found == allocators_.end()) {
         allocators_.push_back({type, allocator});
      }
      allocator->sharerIs(tableType, table);
   }
   return allocator;
}

void
SharedAllocators::allocatorDel(Nuv::FwkType type, SwTable const* table) {
   auto found = find(type);
   if (found != allocators_.end() && !found->allocator->tableDel(table)) {
      allocators_.erase(found);
   }
}

std::size_t
SharedAllocators::sharers(Nuv::FwkType type) const {
   auto found = find(type);
   return found == allocators_.end() ? 0 : found->allocator->sharers();
}

} // namespace Asic
