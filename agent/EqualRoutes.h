#pragma once

#include "agent/KernelState.h"

#include <algorithm>
#include <utility>

// Which of the routes of a prefix and metric a message of the kernel is about.
namespace L3TunnelAgent {

bool areEqualRank(Route const& one, Route const& other);

/// @return whether one of the next hops has the device and gateway of another.
bool isOneOf(NextHop const& hop, std::vector<NextHop> const& hops);

/// Whether it looks like one that the kernel made of a router advertisement.
bool isAdvertised(Route const& route);

/// Whether the kernel makes one IPv6 route of this and others of that kind and metric.
bool isShared(Route const& route);

/// Makes different words for one shared route the same: the kernel names its next hops from the one that was
/// added last on, and when it is asked for, from the first, and who made that one.
void sharedIsAlike(Route& route);

/// @return the routes of one metric, of all that are ordered by it.
std::pair<RouteTable::Routes::iterator, RouteTable::Routes::iterator> ofMetric(RouteTable::Routes& routes,
                                                                               std::uint32_t metric);

/// @return the first route of a metric that a condition holds for; the end of all when there is none.
template <typename Condition>
RouteTable::Routes::iterator
findOfMetric(RouteTable::Routes& routes, std::uint32_t metric, Condition const& condition) {
   auto const range = ofMetric(routes, metric);
   auto const found = std::find_if(range.first, range.second, condition);
   return found == range.second ? routes.end() : found;
}

/// @return the route that one is told instead of; the end when it is one more.
RouteTable::Routes::iterator replaced(RouteTable::Routes& routes, Route const& route, RoutePlace place,
                                      IpAddress::Family family);

/// Whether a message that replaces, where the same route stands further behind, only tells of that one: the
/// kernel tells so of the routes of a next-hop object that was replaced. It lets nobody put one IPv4 route
/// twice.
bool isToldAnew(RouteKey const& key, Route const& route);

/// Puts a route before all of its metric, or behind them.
void insert(RouteTable::Routes& routes, Route route, RoutePlace place);

/// @return the route that has all next hops of another.
RouteTable::Routes::iterator findWithHops(RouteTable::Routes& routes, Route const& route);

} // namespace L3TunnelAgent
