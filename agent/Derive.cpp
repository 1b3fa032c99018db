#include "agent/Derive.h"

#include "agent/RouteLookup.h"

#include <linux/if_bridge.h>
#include <linux/neighbour.h>
#include <set>

namespace L3TunnelAgent {

namespace {

constexpr unsigned resolvedStates =
      NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT | NUD_NOARP;

std::set<IpAddress>
tunnelDestinations(KernelState const& state) {
   std::set<IpAddress> result;
   auto const add = [&](std::optional<IpAddress> const& address) {
      if (address && address->family == IpAddress::Family::v4) {
         result.insert(*address);
      }
   };
   auto const addObject = [&](std::uint32_t id) -> NextHopObject const* {
      auto const found = state.nextHops.find(id);
      if (found == state.nextHops.end()) {
         return nullptr;
      }
      add(found->second.hop.gateway);
      return &found->second;
   };
   for (auto const& [key, entry] : state.vxlanEntries) {
      Link const* const link = state.link(key.device);
      if (!link || link->kind != LinkKind::vxlan) {
         continue;
      }
      add(entry.destination);
      if (!entry.nextHopId) {
         continue;
      }
      if (auto const* const object = addObject(*entry.nextHopId)) {
         for (auto const& member : object->group) {
            addObject(member.id);
         }
      }
   }
   return result;
}

std::optional<std::uint16_t>
portVlanOf(KernelState const& state, int device) {
   auto const found = state.portVlans.find(device);
   if (found != state.portVlans.end()) {
      for (auto const& [vlan, flags] : found->second) {
         if (flags & BRIDGE_VLAN_INFO_PVID) {
            return vlan;
         }
      }
   }
   return std::nullopt;
}

bool
leavesTagged(KernelState const& state, int port, std::uint16_t vlan) {
   auto const vlans = state.portVlans.find(port);
   if (vlans == state.portVlans.end()) {
      return true;
   }
   auto const found = vlans->second.find(vlan);
   return found == vlans->second.end() || !(found->second & BRIDGE_VLAN_INFO_UNTAGGED);
}

/// Fills in the port behind a bridge, which the forwarding database names by the neighbour's MAC.
/// @param via its VLAN is that of the routed device.
void
findBridgePort(KernelState const& state, int bridgeIndex, Link const& bridge, DerivedVia& via) {
   // The bridge itself sends in its own port VLAN; where it does not look at VLANs a tag is just carried
   // along.
   std::optional<std::uint16_t> vlan;
   if (bridge.vlanFiltering) {
      vlan = via.vlan ? via.vlan : portVlanOf(state, bridgeIndex);
   }
   auto const found = via.mac && (vlan || !bridge.vlanFiltering)
                            ? state.bridgeEntries.find({bridgeIndex, vlan.value_or(0), *via.mac})
                            : state.bridgeEntries.end();
   if (found == state.bridgeEntries.end()) {
      if (via.kind == ViaKind::unicast) {
         via.reason = "fdb-miss";
      }
      return;
   }
   via.port = found->second;
   via.tagged = vlan ? leavesTagged(state, found->second, *vlan) : via.vlan.has_value();
   if (*via.tagged && !via.vlan) {
      via.vlan = vlan;
   }
}

/// Fills in the VLAN and the port of a via whose device, and MAC if known, are there.
void
findPort(KernelState const& state, DerivedVia& via) {
   Link const& link = *state.link(*via.device);
   if (link.kind == LinkKind::bridge) {
      return findBridgePort(state, *via.device, link, via);
   }
   if (link.kind != LinkKind::vlan) {
      via.port = via.device;
      via.tagged = false;
      return;
   }
   via.vlan = link.vlan;
   if (!link.lower) {
      return;
   }
   Link const* const lower = state.link(*link.lower);
   if (lower && lower->kind == LinkKind::bridge) {
      return findBridgePort(state, *link.lower, *lower, via);
   }
   via.port = link.lower;
   via.tagged = true;
}

std::string
stateName(std::uint16_t state) {
   if (state & NUD_FAILED) {
      return "FAILED";
   }
   if (state & NUD_INCOMPLETE) {
      return "INCOMPLETE";
   }
   return (state & resolvedStates) ? "no Ethernet address" : "no state";
}

DerivedVia
viaOf(KernelState const& state, NextHop const& hop, IpAddress const& destination) {
   DerivedVia via{.kind = ViaKind::cpu, .device = hop.device, .weight = hop.weight};
   via.gateway = hop.gateway.value_or(destination);
   if (!state.link(hop.device)) {
      via.reason = "device unknown";
      return via;
   }
   auto const neighbour = state.neighbours.find({hop.device, *via.gateway});
   if (neighbour == state.neighbours.end()) {
      via.reason = "neighbour unresolved: no entry";
   } else if (!(neighbour->second.state & resolvedStates) || !neighbour->second.mac) {
      via.reason = "neighbour unresolved: " + stateName(neighbour->second.state);
   } else {
      via.kind = ViaKind::unicast;
      via.mac = neighbour->second.mac;
   }
   findPort(state, via);
   return via;
}

Destination
derive(KernelState const& state, IpAddress const& address) {
   Destination destination{.address = address, .vias = {}, .reason = {}};
   RouteMatch match = findRoute(state, address.v4());
   DerivedVia via{.kind = ViaKind::cpu, .reason = match.reason};
   switch (match.outcome) {
   case RouteMatch::Outcome::none:
      destination.reason = std::move(match.reason);
      break;
   case RouteMatch::Outcome::forward:
      destination.vias.reserve(match.hops.size());
      for (NextHop const& hop : match.hops) {
         destination.vias.push_back(viaOf(state, hop, address));
      }
      break;
   case RouteMatch::Outcome::local:
      via.kind = ViaKind::cpu;
      if (!match.hops.empty()) {
         via.device = match.hops.front().device;
      }
      destination.vias.push_back(std::move(via));
      break;
   case RouteMatch::Outcome::drop:
      via.kind = ViaKind::drop;
      destination.vias.push_back(std::move(via));
      break;
   }
   return destination;
}

} // namespace

std::vector<Destination>
destinations(KernelState const& state) {
   std::vector<Destination> result;
   for (IpAddress const& address : tunnelDestinations(state)) {
      result.push_back(derive(state, address));
   }
   return result;
}

} // namespace L3TunnelAgent
