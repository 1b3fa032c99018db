#pragma once

#include "agent/tests/live/Namespace.h"

namespace L3TunnelAgent::Live {

/// Two ports that have carrier, with a router behind each that needs not be asked for, and a vxlan device.
inline void
twoPortsAre(Namespace const& space) {
   space.ip(R"(link add swp1 type veth peer name peer1
link add swp2 type veth peer name peer2
link set swp1 up
link set swp2 up
link set peer1 up
link set peer2 up
addr add 10.1.1.0/31 dev swp1
addr add 10.1.2.0/31 dev swp2
neigh add 10.1.1.1 lladdr 02:00:00:00:00:01 dev swp1 nud permanent
neigh add 10.1.2.1 lladdr 02:00:00:00:00:02 dev swp2 nud permanent
link add vx type vxlan id 1 dstport 4789 nolearning
link set vx up)");
}

} // namespace L3TunnelAgent::Live
