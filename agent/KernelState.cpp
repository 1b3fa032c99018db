#include "agent/KernelState.h"

#include <algorithm>

namespace L3TunnelAgent {

Prefix
Prefix::of(std::uint32_t address, std::uint8_t length) {
   if (length == 0) {
      return {};
   }
   length = std::min<std::uint8_t>(length, 32);
   return {.bits = address & ~std::uint32_t{0} << (32 - length), .length = length};
}

void
RouteTable::add(Prefix prefix, Route route) {
   auto& routes = byLength_.at(prefix.length)[prefix.bits];
   if (std::find(routes.begin(), routes.end(), route) != routes.end()) {
      return;
   }
   auto const behind =
         std::upper_bound(routes.begin(), routes.end(), route.metric,
                          [](std::uint32_t metric, Route const& r) { return metric < r.metric; });
   routes.insert(behind, std::move(route));
}

void
RouteTable::replace(Prefix prefix, Route route) {
   auto& routes = byLength_.at(prefix.length)[prefix.bits];
   auto const found = std::find_if(routes.begin(), routes.end(), [&](Route const& r) {
      return r.tos == route.tos && r.metric == route.metric;
   });
   if (found == routes.end()) {
      add(prefix, std::move(route));
   } else {
      *found = std::move(route);
   }
}

bool
RouteTable::remove(Prefix prefix, Route const& route) {
   auto& byBits = byLength_.at(prefix.length);
   auto const entry = byBits.find(prefix.bits);
   if (entry == byBits.end()) {
      return false;
   }
   auto& routes = entry->second;
   auto const same = [&](Route const& r) { return r.tos == route.tos && r.metric == route.metric; };
   // The flags of next hops change unannounced, so the exact route is only the first choice among equals.
   auto found = std::find(routes.begin(), routes.end(), route);
   if (found == routes.end()) {
      found = std::find_if(routes.begin(), routes.end(), same);
   }
   if (found == routes.end()) {
      return false;
   }
   routes.erase(found);
   if (routes.empty()) {
      byBits.erase(entry);
   }
   return true;
}

std::vector<Route> const*
RouteTable::find(Prefix prefix) const {
   auto const& byBits = byLength_.at(prefix.length);
   if (byBits.empty()) {
      return nullptr;
   }
   auto const entry = byBits.find(prefix.bits);
   return entry == byBits.end() ? nullptr : &entry->second;
}

std::size_t
RouteTable::size() const {
   std::size_t size = 0;
   for (auto const& byBits : byLength_) {
      for (auto const& [bits, routes] : byBits) {
         size += routes.size();
      }
   }
   return size;
}

Link const*
KernelState::link(int index) const {
   auto const found = links.find(index);
   return found == links.end() ? nullptr : &found->second;
}

std::string
KernelState::linkName(int index) const {
   Link const* const found = link(index);
   return found ? found->name : "#" + std::to_string(index);
}

void
KernelState::addRule(Rule const& rule) {
   if (std::find(rules.begin(), rules.end(), rule) != rules.end()) {
      return;
   }
   auto const behind =
         std::upper_bound(rules.begin(), rules.end(), rule.priority,
                          [](std::uint32_t priority, Rule const& r) { return priority < r.priority; });
   rules.insert(behind, rule);
}

} // namespace L3TunnelAgent
