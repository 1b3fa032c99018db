#include "agent/EqualRoutes.h"
#include "agent/Index.h"
#include "agent/KernelState.h"

#include <algorithm>
#include <linux/rtnetlink.h>

// Next-hop objects and routes of KernelState, with what the kernel does to them without telling.
namespace L3TunnelAgent {

namespace {

using Routes = RouteTable::Routes;

/// @return the keys of the routes that use something, so that the index may change while they are gone
/// through.
template <typename Index, typename Use>
std::vector<RouteKey>
usersOf(Index const& index, Use const& use) {
   std::vector<RouteKey> result;
   auto const found = index.find(use);
   if (found != index.end()) {
      result.reserve(found->second.size());
      for (auto const& [key, times] : found->second) {
         result.push_back(key);
      }
   }
   return result;
}

template <typename Index, typename Use>
void
useIs(Index& index, Use const& use, RouteKey const& key, bool present) {
   if (present) {
      ++index[use][key];
      return;
   }
   auto const found = index.find(use);
   if (--found->second.at(key) == 0) {
      indexDel(index, use, key);
   }
}

} // namespace

void
KernelState::nextHopIs(std::uint32_t id, NextHopObject object) {
   object.hop.told.value = ++messages_;
   auto const [place, added] = nextHops_.try_emplace(id);
   bool const differs =
         added || !(place->second == object) || !(hopState(place->second.hop) == hopState(object.hop));
   if (!added) {
      nextHopIndexed(id, place->second, false);
   }
   place->second = std::move(object);
   nextHopIndexed(id, place->second, true);
   markedBy(place->second.hop);
   if (differs) {
      changes_.nextHops.insert(id);
   }
}

void
KernelState::nextHopIndexed(std::uint32_t id, NextHopObject const& object, bool present) {
   auto const change = [&](auto& index, auto const& key) {
      if (present) {
         index[key].insert(id);
      } else {
         indexDel(index, key, id);
      }
   };
   if (object.hop.device != 0) {
      change(objectsOfDevice_, object.hop.device);
   }
   for (auto const& member : object.group) {
      change(groupsOfMember_, member.id);
   }
}

void
KernelState::nextHopDel(std::uint32_t id) {
   nextHopsDel({id});
}

/// Takes the objects, what uses them, and groups that they leave empty. A group is gone through once for all
/// that leave it together.
void
KernelState::nextHopsDel(std::set<std::uint32_t> gone) {
   while (!gone.empty()) {
      std::set<std::uint32_t> groups;
      std::erase_if(gone, [&](std::uint32_t id) { return !nextHopDelAlone(id, groups); });
      std::erase_if(groups, [&](std::uint32_t group) { return !membersDel(group, gone); });
      gone = std::move(groups);
   }
}

/// @param groups receives those that it was a member of.
/// @return whether it was there.
bool
KernelState::nextHopDelAlone(std::uint32_t id, std::set<std::uint32_t>& groups) {
   auto const found = nextHops_.find(id);
   if (found == nextHops_.end()) {
      return false;
   }
   nextHopIndexed(id, found->second, false);
   nextHops_.erase(found);
   changes_.nextHops.insert(id);
   groups.merge(indexed(groupsOfMember_, id));
   for (RouteKey const& key : usersOf(routesOfObject_, id)) {
      ++doubts_;
      dropRoutes(key, [&](Route const& route) { return route.nextHopId == id; });
   }
   for (VxlanKey const& key : indexed(entriesOfObject_, id)) {
      vxlanEntryDel(key);
   }
   return true;
}

/// @return whether the group is there and has no members any more.
bool
KernelState::membersDel(std::uint32_t group, std::set<std::uint32_t> const& members) {
   auto const found = nextHops_.find(group);
   if (found == nextHops_.end()) {
      return false;
   }
   std::erase_if(found->second.group, [&](auto const& member) {
      bool const leaves = members.contains(member.id);
      if (leaves) {
         indexDel(groupsOfMember_, member.id, group);
      }
      return leaves;
   });
   changes_.nextHops.insert(group);
   return found->second.group.empty();
}

/// What the kernel does when a device loses its carrier, is switched off or removed.
void
KernelState::hopsGoWithDevice(int device) {
   auto gone = indexed(objectsOfDevice_, device);
   std::erase_if(gone, [&](std::uint32_t id) { return nextHops_.at(id).blackhole; });
   nextHopsDel(std::move(gone));
}

/// Whether every next hop is dead, which its own mark means of IPv4 only where there is carrier.
bool
KernelState::allDead(Route const& route, Family family) const {
   return std::all_of(route.hops.begin(), route.hops.end(), [&](NextHop const& hop) {
      Link const* const over = link(hop.device);
      HopState const now = linkedState(hop, family);
      bool const isMeant = family == Family::v6 || !now.linkdown;
      return over ? !over->isUp() || hop.unaddressed || (now.dead && isMeant) : hop.dead;
   });
}

/// What the kernel does when a device is switched off. Local addresses of IPv4 stay, and with them their
/// routes.
void
KernelState::routesGoDown(int device) {
   for (RouteKey const& key : usersOf(routesOfDevice_, device)) {
      bool const isV4 = key.prefix.address.family == Family::v4;
      dropRoutes(key, [&](Route const& route) {
         return !route.hops.empty() && !(isV4 && route.scope == RT_SCOPE_HOST) &&
                allDead(route, key.prefix.address.family);
      });
   }
}

/// What the kernel does when a device is removed: an IPv4 route goes with the first of its devices, an IPv6
/// one with the last.
void
KernelState::routesGoAway(int device) {
   auto const over = [&](NextHop const& hop) { return hop.device == device; };
   for (RouteKey const& key : usersOf(routesOfDevice_, device)) {
      if (key.prefix.address.family == Family::v4) {
         dropRoutes(key, [&](Route const& route) {
            return std::any_of(route.hops.begin(), route.hops.end(), over);
         });
         continue;
      }
      editRoutes(key, [&](Routes& all) {
         for (auto route = all.begin(); route != all.end();) {
            if (std::none_of(route->hops.begin(), route->hops.end(), over)) {
               ++route;
               continue;
            }
            routeIndexed(key, *route, false);
            std::erase_if(route->hops, over);
            if (route->hops.empty()) {
               route = all.erase(route);
            } else {
               routeIndexed(key, *route++, true);
            }
         }
         return true;
      });
   }
}

/// What the kernel does when a device has lost its last IPv4 address: it keeps routes that use objects.
void
KernelState::routesGoWithAddresses(int device) {
   hopsAre(device, true);
   for (RouteKey const& key : usersOf(routesOfDevice_, device)) {
      if (key.prefix.address.family == Family::v4) {
         dropRoutes(key,
                    [&](Route const& route) { return !route.hops.empty() && allDead(route, Family::v4); });
      }
   }
}

void
KernelState::routesGoWithSource(IpAddress const& source) {
   for (RouteKey const& key : usersOf(routesOfSource_, source)) {
      if (key.table == RT_TABLE_MAIN) {
         dropRoutes(key, [&](Route const& route) { return route.preferredSource == source; });
      }
   }
}

/// IPv4 next hops over a device are dead, or back.
void
KernelState::hopsAre(int device, bool dead) {
   ++messages_;
   Link const* const over = link(device);
   bool const linkdown = !dead && over && !over->hasCarrier();
   auto const setAll = [&](Routes& routes) {
      bool differs = false;
      for (Route& route : routes) {
         for (NextHop& hop : route.hops) {
            auto const before = hopState(hop);
            if (hop.device == device && !(before == HopState{dead, linkdown} && hop.unaddressed == dead)) {
               hop.dead = hop.unaddressed = dead;
               hop.linkdown = linkdown;
               hop.told.value = messages_;
               differs |= !(before == hopState(hop));
            }
         }
      }
      return differs;
   };
   for (RouteKey const& key : usersOf(routesOfDevice_, device)) {
      if (key.prefix.address.family == Family::v4) {
         editRoutes(key, setAll);
      }
   }
}

/// Takes what a removed device had in the maps that begin their keys with it, and forwarding entries to it.
void
KernelState::entriesGoAway(int device) {
   while (true) {
      auto const first = neighbours_.lower_bound({.device = device});
      if (first == neighbours_.end() || first->first.device != device) {
         break;
      }
      neighbourDel(NeighbourKey(first->first));
   }
   while (true) {
      auto const first = vxlanEntries_.lower_bound({.device = device});
      if (first == vxlanEntries_.end() || first->first.device != device) {
         break;
      }
      vxlanEntryDel(VxlanKey(first->first));
   }
   for (BridgeKey const& key : bridgeEntries_.keysOf(device)) {
      bridgeEntryDel(key);
   }
   portVlansDel(device);
}

/// Takes out what looked like the kernel's own of an advertisement, but is a next hop of a shared route: it
/// was made by a program that reads advertisements itself.
/// @return whether there was any.
bool
KernelState::takeInto(RouteKey const& key, Route const& shared, Routes& all) {
   return std::erase_if(all, [&](Route const& route) {
             bool const isPart = route.metric == shared.metric && isAdvertised(route) &&
                                 isOneOf(route.hops.front(), shared.hops);
             if (isPart) {
                routeIndexed(key, route, false);
             }
             return isPart;
          }) != 0;
}

void
KernelState::routeIs(RouteKey const& key, Route route, RoutePlace place) {
   ++messages_;
   for (NextHop& hop : route.hops) {
      hop.told.value = messages_;
      markIsOwn(hop, key.prefix.address.family);
   }
   bool const isSharedV6 = key.prefix.address.family == Family::v6 && isShared(route);
   if (isSharedV6) {
      sharedIsAlike(route);
   }
   editRoutes(key, [&](Routes& all) {
      bool const hasTaken = isSharedV6 && route.hops.size() > 1 && takeInto(key, route, all);
      auto found = replaced(all, route, place, key.prefix.address.family);
      auto const same = findOfMetric(all, route.metric, [&](Route const& r) { return r.isSame(route); });
      if (found == all.end()) {
         found = same;
      } else if (same != all.end() && same != found && isToldAnew(key, route)) {
         found = same;
         ++doubts_;
      }
      if (found == all.end()) {
         routeIndexed(key, route, true);
         insert(all, std::move(route), place);
         return true;
      }
      bool const differs = !found->isSame(route) || !isSameState(*found, route, key.prefix.address.family);
      if (differs) {
         routeIndexed(key, *found, false);
         routeIndexed(key, route, true);
      }
      *found = std::move(route);
      return differs || hasTaken;
   });
}

bool
KernelState::routeDel(RouteKey const& key, Route route) {
   bool const isV4 = key.prefix.address.family == Family::v4;
   if (!isV4 && isShared(route)) {
      sharedIsAlike(route);
   }
   return routes(key) && editRoutes(key, [&](Routes& all) {
             auto found = findOfMetric(all, route.metric, [&](Route const& r) { return r.isSame(route); });
             if (found == all.end() && isV4) {
                found =
                      findOfMetric(all, route.metric, [&](Route const& r) { return areEqualRank(r, route); });
             }
             bool const whole = found != all.end();
             if (!whole && !isV4) {
                found = findWithHops(all, route);
             }
             if (found == all.end()) {
                return false;
             }
             routeIndexed(key, *found, false);
             if (!whole) {
                std::erase_if(found->hops, [&](NextHop const& hop) { return isOneOf(hop, route.hops); });
             }
             if (whole || found->hops.empty()) {
                all.erase(found);
             } else {
                routeIndexed(key, *found, true);
             }
             return true;
          });
}

template <typename Drops>
void
KernelState::dropRoutes(RouteKey const& key, Drops const& drops) {
   editRoutes(key, [&](Routes& all) {
      return std::erase_if(all, [&](Route const& route) {
                bool const gone = drops(route);
                if (gone) {
                   routeIndexed(key, route, false);
                }
                return gone;
             }) != 0;
   });
}

/// Calls edit(routes), which changes the routes of a key and their indices, and returns whether it did.
template <typename Edit>
bool
KernelState::editRoutes(RouteKey const& key, Edit const& edit) {
   bool const differs = tables_[{key.prefix.address.family, key.table}].edit(key.prefix, edit);
   if (differs) {
      changes_.routes.insert(key);
   }
   return differs;
}

/// Takes one route into the indices, or out of them.
void
KernelState::routeIndexed(RouteKey const& key, Route const& route, bool present) {
   for (NextHop const& hop : route.hops) {
      useIs(routesOfDevice_, hop.device, key, present);
      markedBy(hop);
   }
   if (route.nextHopId) {
      useIs(routesOfObject_, *route.nextHopId, key, present);
   }
   if (route.preferredSource) {
      useIs(routesOfSource_, *route.preferredSource, key, present);
   }
}

} // namespace L3TunnelAgent
