#pragma once

#include "agent/views/Sections.h"

#include <string>

namespace L3TunnelAgent {

/// The entries that a destination stands on, each with its state and indented beneath the one that needs it:
/// group, blocks, next hops, interfaces.
std::string entryTree(View const& view, ProgrammedDestination const& destination, Paint const& paint);

/// The entry that a destination in progress waits for, the last one in the chain of those that wait for each
/// other; empty when it waits for none.
std::string waitsFor(ProgrammedDestination const& destination);

} // namespace L3TunnelAgent
