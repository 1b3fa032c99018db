#pragma once

#include "agent/tests/live/Destinations.h"

#include <cstddef>

namespace L3TunnelAgent::Live {

/// @return the fewest rows whose writing or clearing leads from the one to the other, where all destinations
/// forward, a set of ways is a run of rows that no other set uses, and nothing that is pointed at may change
/// beneath: the runs of sets that come and of those that go, a group's row for each destination whose set
/// changes, two rows for each next hop that comes or goes, and one for each interface.
std::size_t fewestRows(Destinations const& before, Destinations const& after);

} // namespace L3TunnelAgent::Live
