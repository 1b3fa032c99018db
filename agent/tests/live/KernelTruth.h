#pragma once

#include "agent/tests/live/Destinations.h"
#include "agent/tests/live/Namespace.h"

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace L3TunnelAgent::Live {

/// What `ip` and `bridge` print of a machine.
struct KernelFacts {
   nlohmann::json links;      ///< ip -d link
   nlohmann::json neighbours; ///< ip neigh show nud all
   nlohmann::json forwarding; ///< bridge fdb show
   nlohmann::json portVlans;  ///< bridge vlan show
   nlohmann::json nextHops;   ///< ip nexthop

   /// The route that the kernel finds for a destination: ip route get ADDRESS ipproto udp
   /// dport 4789 fibmatch.
   std::map<std::string, nlohmann::json> routes;
   /// What the kernel says where it finds none to forward by.
   std::map<std::string, std::string> refusals;
};

/// @return what the kernel of a namespace does with the tunnel destinations that its forwarding entries name,
/// as told by the kernel's own look-ups and tables: nothing of the agent's is used.
Destinations kernelTruth(KernelFacts const& facts);

/// Throws std::runtime_error when a command fails, as may be when devices go away meanwhile.
KernelFacts kernelFacts(Namespace const& space);
inline Destinations
kernelTruth(Namespace const& space) {
   return kernelTruth(kernelFacts(space));
}

/// @return the next hops that the kernel takes for that many flows to a destination, which differ by their
/// UDP source port, as "device gateway": its own choice, packet by packet, where its hash looks at ports.
std::set<std::string> sampledHops(Namespace const& space, std::string const& destination, int flows);

/// @return all next hops of the route that the kernel finds, in the same form.
std::set<std::string> routeHops(Namespace const& space, std::string const& destination);

} // namespace L3TunnelAgent::Live
