#include "platform/asic/SharedAllocators.h"

#include <algorithm>

namespace Asic {

std::vector<SharedAllocators::Shared>::iterator
SharedAllocators::find(Nuv::FwkType type) {
   return std::find_if(allocators_.begin(), allocators_.end(),
                       [type](Shared const& shared) { return shared.type == type; });
}

Nuv::Ptr<GenericIndexAllocator>
SharedAllocators::allocatorFor(Nuv::FwkType type, SwTable const* table, Make make) {
   auto found = find(type);
   if (found == allocators_.end()) {
      found = allocators_.insert(found, Shared{type, make(), {}});
   }
   if (std::find(found->tables.begin(), found->tables.end(), table) == found->tables.end()) {
      found->tables.push_back(table);
   }
   return found->allocator;
}

void
SharedAllocators::allocatorDel(Nuv::FwkType type, SwTable const* table) {
   auto found = find(type);
   if (found == allocators_.end()) {
      return;
   }
   std::erase(found->tables, table);
   if (found->tables.empty()) {
      allocators_.erase(found);
   }
}

std::size_t
SharedAllocators::sharers(Nuv::FwkType type) const {
   auto found = const_cast<SharedAllocators*>(this)->find(type);
   return found == allocators_.end() ? 0 : found->tables.size();
}

} // namespace Asic
