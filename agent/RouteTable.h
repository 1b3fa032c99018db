#pragma once

#include "agent/KernelObjects.h"

#include <functional>
#include <map>
#include <unordered_map>
#include <vector>

namespace L3TunnelAgent {

/// The routes of one table and family.
class RouteTable {
 public:
   /// The routes of one prefix, lowest metric first, equal ones in the kernel's order.
   using Routes = std::vector<Route>;

   /// @return the routes of exactly that prefix; null when there is none.
   Routes const* find(Prefix const& prefix) const;

   /// Calls edit(routes) with the routes of a prefix, none when there are none, to be changed in place.
   /// @return what edit returns.
   template <typename Edit>
   auto edit(Prefix const& prefix, Edit const& edit) {
      auto& byAddress = byLength_[prefix.length];
      auto& routes = byAddress[prefix.address];
      auto result = edit(routes);
      if (routes.empty()) {
         byAddress.erase(prefix.address);
      }
      if (byAddress.empty()) {
         byLength_.erase(prefix.length);
      }
      return result;
   }

   /// Calls visit(prefix, routes) for each prefix that contains the address, longest first, until it returns
   /// true. Lengths that no prefix has cost nothing.
   template <typename Visit>
   bool eachContaining(IpAddress const& address, Visit const& visit) const {
      for (auto const& [length, byAddress] : byLength_) {
         Prefix const prefix = Prefix::of(address, length);
         auto const found = byAddress.find(prefix.address);
         if (found != byAddress.end() && visit(prefix, found->second)) {
            return true;
         }
      }
      return false;
   }

   /// Calls visit(prefix, routes) for every prefix, in no particular order.
   template <typename Visit>
   void each(Visit const& visit) const {
      for (auto const& [length, byAddress] : byLength_) {
         for (auto const& [address, routes] : byAddress) {
            visit(Prefix{.address = address, .length = length}, routes);
         }
      }
   }

 private:
   // A lookup probes the lengths in use, longest first.
   std::map<std::uint8_t, std::unordered_map<IpAddress, Routes>, std::greater<>> byLength_;
};

} // namespace L3TunnelAgent
