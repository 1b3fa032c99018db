#pragma once

#include "agent/KernelObjects.h"

#include <set>

namespace L3TunnelAgent {

/// What became different in a KernelState, by key: each may have come, gone or changed, once or often. What
/// was only said again is not here.
struct Changes {
   std::set<int> links{};
   std::set<NeighbourKey> neighbours{};
   std::set<VxlanKey> vxlanEntries{};
   std::set<BridgeKey> bridgeEntries{};
   std::set<int> portVlans{};
   std::set<std::uint32_t> nextHops{};
   std::set<RouteKey> routes{};
   std::set<IpAddress::Family> rules{};

   bool operator==(Changes const&) const = default;

   /// Takes those of another over, which has only what both had then.
   void merge(Changes& other) {
      links.merge(other.links);
      neighbours.merge(other.neighbours);
      vxlanEntries.merge(other.vxlanEntries);
      bridgeEntries.merge(other.bridgeEntries);
      portVlans.merge(other.portVlans);
      nextHops.merge(other.nextHops);
      routes.merge(other.routes);
      rules.merge(other.rules);
   }

   bool empty() const { return *this == Changes{}; }
};

} // namespace L3TunnelAgent
