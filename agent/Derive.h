#pragma once

#include "agent/KernelState.h"

#include <cstdint>
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
   std::optional<MacAddress> mac{};     // of the neighbour; only of a unicast via, and always there
   std::optional<int> device{};         // index of the routed device; its MAC is the source of the frame
   std::optional<int> port{};           // index of the device that the frame leaves by, when that is known
   std::optional<std::uint16_t> vlan{}; // of the routed device; none: it is untagged
   std::optional<bool> tagged{}; // whether the frame leaves the port with that VLAN; known when the port is
   unsigned weight{1};           // share of the packets, relative to the other vias: 1 to 65536
   std::optional<IpAddress>
         gateway{};      // the neighbour; the destination itself when that is directly connected
   std::string reason{}; // empty for a unicast via whose port is known

   bool operator==(DerivedVia const&) const = default;
};

struct Destination {
   IpAddress address{};
   std::vector<DerivedVia> vias{}; // one per next hop, in the order of the route
   std::string reason{};           // why there is no via, empty when there is one

   bool operator==(Destination const&) const = default;
};

/// @return the IPv4 tunnel destinations that forwarding entries of vxlan devices name, each one once, ordered
/// by address, with the ways that the routing of the state gives to them.
std::vector<Destination> destinations(KernelState const& state);

} // namespace L3TunnelAgent
