#pragma once

#include "agent/KernelState.h"
#include "agent/ViaList.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace L3TunnelAgent {

struct Destination {
   IpAddress address{};
   ViaList vias{};       // one per next hop, in the order of the route
   std::string reason{}; // why there is no via, empty when there is one

   bool operator==(Destination const&) const = default;
};

/// @return the tunnel destinations that forwarding entries of vxlan devices name, each one once, ordered by
/// address, with the ways that the routing of the state gives to them. All is derived from scratch.
std::vector<Destination> destinations(KernelState const& state);

class SearchObserver;

/// How packets leave for a neighbour.
using AdjacencyOf = std::function<DerivedVia(NeighbourKey const&)>;

/// @return one destination's ways, whether a vxlan device names it or not.
/// @param observer hears of the search for its route; may be null.
/// @param adjacencyOf what adjacency() says, or said and still would.
Destination derive(KernelState const& state, IpAddress const& address, SearchObserver* observer,
                   AdjacencyOf const& adjacencyOf);

/// @return the destinations that one forwarding entry names, in no particular order: none unless its device
/// is a vxlan device.
std::vector<IpAddress> namedDestinations(KernelState const& state, VxlanKey const& key,
                                         VxlanEntry const& entry);

/// @return the device that alone the kernel sends the packets of a forwarding entry by, when the entry or its
/// vxlan device is set so, or 0: no derivation looks at it.
int boundTo(KernelState const& state, VxlanKey const& key, VxlanEntry const& entry);

/// @return the destinations that forwarding entries which are bound to a device name.
std::set<IpAddress> boundDestinations(KernelState const& state);

/// @return the destinations that a next-hop object names, in no particular order.
/// @param objects receives the objects that it asked for, those that are missing included; may be null.
std::vector<IpAddress> namedDestinations(KernelState const& state, std::uint32_t id,
                                         std::vector<std::uint32_t>* objects = nullptr);

} // namespace L3TunnelAgent
