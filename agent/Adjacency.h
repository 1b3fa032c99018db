#pragma once

#include "agent/Derive.h"

#include <optional>
#include <vector>

namespace L3TunnelAgent {

/// What an adjacency was derived from, besides its neighbour: where there is nothing, the key at which it
/// would be.
struct AdjacencyInputs {
   std::vector<int> links{};
   std::optional<BridgeKey> bridgeEntry{};
   std::vector<int> portVlans{};

   bool operator==(AdjacencyInputs const&) const = default;
};

/// @return how packets leave for a neighbour: what a via over a next hop of that device and gateway says, but
/// for its weight.
/// @param inputs receives what that depends on; may be null.
DerivedVia adjacency(KernelState const& state, NeighbourKey const& key, AdjacencyInputs* inputs = nullptr);

/// @return the entry of a neighbour: as the kernel told it, or on a device that does not ask for addresses,
/// as the kernel makes it when it needs one, which it does not tell. Nothing when there is none.
std::optional<Neighbour> neighbourOf(KernelState const& state, NeighbourKey const& key);

/// @return whether a neighbour's entry has an address that frames can be sent to.
bool isUsable(Neighbour const& neighbour);

/// @return whether a neighbour's state is one of those that the kernel sends in, with an address or without.
bool isResolved(Neighbour const& neighbour);

/// @return the name of a neighbour's state, as far as it is not usable.
std::string unusableState(Neighbour const& neighbour);

} // namespace L3TunnelAgent
