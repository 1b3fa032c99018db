#pragma once

#include "agent/Derivation.h"
#include "agent/Explain.h"

#include <cstdlib>

namespace L3TunnelAgent {

/// Aborts unless a derivation, kept as its state changed, has what is derived from that state at once. Each
/// destination must also be explained.
inline void
checkAgainstScratch(KernelState const& state, Derivation const& derivation) {
   auto const expected = destinations(state);
   if (derivation.destinations().size() != expected.size()) {
      std::abort();
   }
   for (auto const& destination : expected) {
      auto const found = derivation.destinations().find(destination.address);
      if (found == derivation.destinations().end() || !(found->second == destination) ||
          explainRoute(state, destination.address).empty()) {
         std::abort();
      }
   }
}

} // namespace L3TunnelAgent
