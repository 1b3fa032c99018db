#include "agent/RouteTable.h"

namespace L3TunnelAgent {

RouteTable::Routes const*
RouteTable::find(Prefix const& prefix) const {
   auto const byAddress = byLength_.find(prefix.length);
   if (byAddress == byLength_.end()) {
      return nullptr;
   }
   auto const found = byAddress->second.find(prefix.address);
   return found == byAddress->second.end() ? nullptr : &found->second;
}

} // namespace L3TunnelAgent
