#include "agent/RouteLookup.h"

#include <algorithm>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <optional>

namespace L3TunnelAgent {

namespace {

bool
applies(Rule const& rule, std::uint32_t destination) {
   if (rule.selective || rule.action != FR_ACT_TO_TBL) {
      return false;
   }
   return !rule.destination || Prefix::of(destination, rule.destination->length) == *rule.destination;
}

bool
inUse(KernelState const& state, NextHop const& hop) {
   if (hop.dead) {
      return false;
   }
   Link const* const link = state.link(hop.device);
   return !(hop.linkdown && link && link->ignoreLinkdown);
}

/// The next hops that a route names, inline or by an object, each with its weight in the route.
struct NamedHops {
   std::vector<NextHop> hops;
   bool blackhole{};
};

NamedHops
namedHops(KernelState const& state, Route const& route) {
   NamedHops named;
   if (!route.nextHopId) {
      named.hops = route.hops;
      return named;
   }
   // Dumps of routes and of objects are made one after the other, so an object may be missing.
   auto const addObject = [&](std::uint32_t id, unsigned weight) {
      auto const found = state.nextHops.find(id);
      if (found == state.nextHops.end() || !found->second.group.empty() || found->second.fdb) {
         return;
      }
      named.blackhole |= found->second.blackhole;
      named.hops.push_back(found->second.hop);
      named.hops.back().weight = weight;
   };
   auto const object = state.nextHops.find(*route.nextHopId);
   if (object == state.nextHops.end()) {
      return named;
   }
   for (auto const& member : object->second.group) {
      addObject(member.id, member.weight);
   }
   if (object->second.group.empty()) {
      addObject(*route.nextHopId, 1);
   }
   return named;
}

/// What one route does; nothing when none of its next hops is in use, so that the search goes on.
std::optional<RouteMatch>
match(KernelState const& state, Route const& route) {
   using Outcome = RouteMatch::Outcome;
   switch (route.type) {
   case RTN_BLACKHOLE:
      return RouteMatch{Outcome::drop, {}, "blackhole"};
   case RTN_UNREACHABLE:
      return RouteMatch{Outcome::drop, {}, "unreachable"};
   case RTN_PROHIBIT:
      return RouteMatch{Outcome::drop, {}, "prohibit"};
   case RTN_LOCAL:
      return RouteMatch{Outcome::local, {}, "local"};
   case RTN_BROADCAST:
      return RouteMatch{Outcome::local, namedHops(state, route).hops, "broadcast"};
   case RTN_MULTICAST:
      return RouteMatch{Outcome::local, namedHops(state, route).hops, "multicast"};
   case RTN_ANYCAST:
      return RouteMatch{Outcome::local, namedHops(state, route).hops, "anycast"};
   default:
      break;
   }
   NamedHops named = namedHops(state, route);
   if (named.blackhole) {
      return RouteMatch{Outcome::drop, {}, "blackhole"};
   }
   std::erase_if(named.hops, [&](NextHop const& hop) { return !inUse(state, hop); });
   if (named.hops.empty()) {
      return std::nullopt;
   }
   return RouteMatch{Outcome::forward, std::move(named.hops), ""};
}

/// Searches one table, longest prefix first.
/// @param why receives why a route that was met did not count.
/// @return nothing when the next rule is to be tried.
std::optional<RouteMatch>
searchTable(KernelState const& state, Rule const& rule, std::uint32_t destination, std::string& why) {
   auto const table = state.tables.find(rule.table);
   if (table == state.tables.end()) {
      return std::nullopt;
   }
   for (int length = 32; length >= 0; --length) {
      auto const* const routes =
            table->second.find(Prefix::of(destination, static_cast<std::uint8_t>(length)));
      if (!routes) {
         continue;
      }
      for (Route const& route : *routes) {
         if (route.tos != 0) {
            continue;
         }
         if (route.type == RTN_THROW) {
            why = "no route: throw";
            return std::nullopt;
         }
         auto found = match(state, route);
         if (!found) {
            why = "no route: next hops down";
            continue;
         }
         if (rule.suppressedLength && static_cast<std::uint32_t>(length) <= *rule.suppressedLength) {
            return std::nullopt;
         }
         return found;
      }
   }
   return std::nullopt;
}

} // namespace

RouteMatch
findRoute(KernelState const& state, std::uint32_t destination) {
   RouteMatch none{RouteMatch::Outcome::none, {}, "no route"};
   for (Rule const& rule : state.rules) {
      if (applies(rule, destination)) {
         if (auto found = searchTable(state, rule, destination, none.reason)) {
            return *std::move(found);
         }
      }
   }
   return none;
}

} // namespace L3TunnelAgent
