#include "agent/Derive.h"

#include "agent/Adjacency.h"
#include "agent/RouteLookup.h"

#include <set>

namespace L3TunnelAgent {

std::vector<IpAddress>
namedDestinations(KernelState const& state, VxlanKey const& key, VxlanEntry const& entry) {
   std::vector<IpAddress> result;
   Link const* const link = state.link(key.device);
   if (!link || link->kind != LinkKind::vxlan) {
      return result;
   }
   if (entry.nextHopId) {
      result = namedDestinations(state, *entry.nextHopId);
   }
   if (entry.destination) {
      result.push_back(*entry.destination);
   }
   return result;
}

int
boundTo(KernelState const& state, VxlanKey const& key, VxlanEntry const& entry) {
   Link const* const link = state.link(key.device);
   return entry.underlay != 0 || !link ? entry.underlay : link->underlay;
}

std::set<IpAddress>
boundDestinations(KernelState const& state) {
   std::set<IpAddress> result;
   std::set<std::uint32_t> objects; // that many entries may name
   for (auto const& [key, entry] : state.vxlanEntries()) {
      if (boundTo(state, key, entry) != 0 && (!entry.nextHopId || objects.insert(*entry.nextHopId).second)) {
         auto const named = namedDestinations(state, key, entry);
         result.insert(named.begin(), named.end());
      }
   }
   return result;
}

std::vector<IpAddress>
namedDestinations(KernelState const& state, std::uint32_t id, std::vector<std::uint32_t>* objects) {
   std::vector<IpAddress> result;
   auto const addObject = [&](std::uint32_t one) {
      auto const* const object = state.nextHop(one);
      if (objects) {
         objects->push_back(one);
      }
      if (object && object->hop.gateway) {
         result.push_back(*object->hop.gateway);
      }
      return object;
   };
   if (auto const* const object = addObject(id)) {
      for (auto const& member : object->group) {
         addObject(member.id);
      }
   }
   return result;
}

namespace {

DerivedVia
encapsulating(KernelState const& state, NeighbourKey const& key) {
   Link const* const link = state.link(key.device);
   return {.kind = ViaKind::cpu,
           .device = key.device,
           .sourceMac = link ? link->mac : std::nullopt,
           .gateway = key.address,
           .reason = "encapsulation"};
}

} // namespace

Destination
derive(KernelState const& state, IpAddress const& address, SearchObserver* observer,
       AdjacencyOf const& adjacencyOf) {
   Destination destination{.address = address, .vias = {}, .reason = {}};
   if (address.isMulticast()) { // no gateway ever gets these
      destination.vias = {{.kind = ViaKind::cpu, .reason = "multicast group"}};
      return destination;
   }
   RouteMatch match = findRoute(state, address, observer);
   DerivedVia via{.kind = ViaKind::cpu, .reason = match.reason};
   std::vector<DerivedVia> vias;
   switch (match.outcome) {
   case RouteMatch::Outcome::none:
      destination.reason = std::move(match.reason);
      break;
   case RouteMatch::Outcome::forward:
      vias.reserve(match.hops.size());
      for (NextHop const& hop : match.hops) {
         NeighbourKey const key{hop.device, hop.gateway.value_or(address)};
         vias.push_back(hop.encapsulated ? encapsulating(state, key) : adjacencyOf(key));
         vias.back().weight = hop.weight;
      }
      break;
   case RouteMatch::Outcome::local:
      if (!match.hops.empty()) {
         via.device = match.hops.front().device;
         Link const* const link = state.link(*via.device);
         via.sourceMac = link ? link->mac : std::nullopt;
      }
      vias.push_back(std::move(via));
      break;
   case RouteMatch::Outcome::drop:
      via.kind = ViaKind::drop;
      vias.push_back(std::move(via));
      break;
   }
   destination.vias = std::move(vias);
   return destination;
}

std::vector<Destination>
destinations(KernelState const& state) {
   std::set<IpAddress> addresses;
   for (auto const& [key, entry] : state.vxlanEntries()) {
      auto const named = namedDestinations(state, key, entry);
      addresses.insert(named.begin(), named.end());
   }
   std::vector<Destination> result;
   result.reserve(addresses.size());
   for (IpAddress const& address : addresses) {
      result.push_back(
            derive(state, address, nullptr, [&](NeighbourKey const& key) { return adjacency(state, key); }));
   }
   return result;
}

} // namespace L3TunnelAgent
