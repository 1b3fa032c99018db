#pragma once

#include "agent/KernelState.h"

#include <cstdint>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What the kernel does with a packet to a destination.
struct RouteMatch {
   enum class Outcome : std::uint8_t {
      none,    // there is no route
      forward, // to one of the next hops
      local,   // it is for this machine, or for many
      drop,
   };

   Outcome outcome{Outcome::none};
   std::vector<NextHop> hops{}; // those in use; of a local outcome: the device, when the route names one
   std::string reason{};        // empty when it is forwarded
};

/// Finds the route of a packet of which nothing but the destination is known: rules that ask for more, and
/// routes of a type of service, do not apply to it.
/// @param destination an IPv4 address in host order.
RouteMatch findRoute(KernelState const& state, std::uint32_t destination);

} // namespace L3TunnelAgent
