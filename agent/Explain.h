#pragma once

#include "agent/KernelState.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// Tells why packets to a destination go where they go, as far as the kernel said: who names the destination;
/// each rule in turn with its table, and there each prefix that contains the destination, with its next-hop
/// objects and next hops; then for each next hop in use its device, neighbour, forwarding entry and port.
/// What is missing is named with the cause.
/// @return lines of text; two spaces in front of a line put it below the last one with fewer.
std::vector<std::string> explainRoute(KernelState const& state, IpAddress const& destination);

} // namespace L3TunnelAgent
