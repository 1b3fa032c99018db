#include "agent/EqualRoutes.h"

#include <linux/rtnetlink.h>
#include <tuple>

namespace L3TunnelAgent {

namespace {

using Routes = RouteTable::Routes;

bool
isToSame(NextHop const& one, NextHop const& other) {
   return one.device == other.device && one.gateway == other.gateway;
}

/// @return the route that an IPv6 one is told instead of; the end when it is one more.
Routes::iterator
replacedV6(Routes& routes, Route const& route, RoutePlace place) {
   auto const [first, last] = ofMetric(routes, route.metric);
   bool const shared = isShared(route);
   if (first == last || (place != RoutePlace::instead && !shared)) {
      return routes.end();
   }
   auto const found = std::find_if(first, last, [&](Route const& r) { return isShared(r) == shared; });
   if (found != last) {
      return found;
   }
   return place == RoutePlace::instead ? first : routes.end();
}

} // namespace

bool
areEqualRank(Route const& one, Route const& other) {
   return one.tos == other.tos && one.metric == other.metric;
}

bool
isOneOf(NextHop const& hop, std::vector<NextHop> const& hops) {
   return std::any_of(hops.begin(), hops.end(), [&](NextHop const& other) { return isToSame(hop, other); });
}

bool
isAdvertised(Route const& route) {
   return route.protocol == RTPROT_RA && route.hops.size() == 1;
}

bool
isShared(Route const& route) {
   return route.type == RTN_UNICAST && !route.hops.empty() && !isAdvertised(route) &&
          std::all_of(route.hops.begin(), route.hops.end(), [](auto const& hop) { return hop.gateway; });
}

void
sharedIsAlike(Route& route) {
   route.protocol = RTPROT_UNSPEC;
   std::sort(route.hops.begin(), route.hops.end(), [](NextHop const& one, NextHop const& other) {
      return std::tie(one.device, one.gateway) < std::tie(other.device, other.gateway);
   });
}

std::pair<RouteTable::Routes::iterator, RouteTable::Routes::iterator>
ofMetric(Routes& routes, std::uint32_t metric) {
   auto const first = std::lower_bound(routes.begin(), routes.end(), metric,
                                       [](Route const& r, std::uint32_t value) { return r.metric < value; });
   return {first, std::upper_bound(first, routes.end(), metric,
                                   [](std::uint32_t value, Route const& r) { return value < r.metric; })};
}

RouteTable::Routes::iterator
replaced(Routes& routes, Route const& route, RoutePlace place, IpAddress::Family family) {
   if (family == IpAddress::Family::v6) {
      return replacedV6(routes, route, place);
   }
   if (place != RoutePlace::instead) {
      return routes.end();
   }
   return findOfMetric(routes, route.metric, [&](Route const& r) { return areEqualRank(r, route); });
}

bool
isToldAnew(RouteKey const& key, Route const& route) {
   return key.prefix.address.family == IpAddress::Family::v4 || route.nextHopId;
}

void
insert(Routes& routes, Route route, RoutePlace place) {
   auto const range = ofMetric(routes, route.metric);
   routes.insert(place == RoutePlace::before ? range.first : range.second, std::move(route));
}

RouteTable::Routes::iterator
findWithHops(Routes& routes, Route const& route) {
   auto const isGone = [&](NextHop const& hop) { return isOneOf(hop, route.hops); };
   auto const hasThem = [&](Route const& r) {
      return !route.hops.empty() && r.type == route.type &&
             std::count_if(r.hops.begin(), r.hops.end(), isGone) == std::ssize(route.hops);
   };
   return findOfMetric(routes, route.metric, hasThem);
}

} // namespace L3TunnelAgent
