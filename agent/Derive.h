#pragma once

#include "agent/KernelState.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

enum class ViaKind : std::uint8_t {
   unicast, // to a neighbour whose address is known
   cpu,     // needs software: the neighbour is not known, or the destination is this machine
   drop,
};

/// One way that packets to a destination take.
struct DerivedVia {
   ViaKind kind{};
   std::optional<MacAddress> mac{};       // of the neighbour; only of a unicast via, and always there
   std::optional<int> device{};           // index of the routed device
   std::optional<MacAddress> sourceMac{}; // of the routed device: the frame's source; none: it has none
   std::optional<int> port{};             // index of the device that the frame leaves by, when that is known
   std::optional<std::uint16_t> vlan{};   // of the routed device; none: it is untagged
   std::optional<bool> tagged{}; // whether the frame leaves the port with that VLAN; known when the port is
   unsigned weight{1};           // share of the packets, relative to the other vias: 1 to 65536
   std::optional<IpAddress>
         gateway{};      // the neighbour; the destination itself when that is directly connected
   std::string reason{}; // empty for a unicast via with a port and a source

   bool operator==(DerivedVia const&) const = default;
};

struct Destination {
   IpAddress address{};
   std::vector<DerivedVia> vias{}; // one per next hop, in the order of the route
   std::string reason{};           // why there is no via, empty when there is one

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

/// @return the destinations that a next-hop object names, in no particular order.
/// @param objects receives the objects that it asked for, those that are missing included; may be null.
std::vector<IpAddress> namedDestinations(KernelState const& state, std::uint32_t id,
                                         std::vector<std::uint32_t>* objects = nullptr);

} // namespace L3TunnelAgent
