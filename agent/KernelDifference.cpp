#include "agent/Adjacency.h"
#include "agent/KernelState.h"

#include <algorithm>
#include <linux/rtnetlink.h>

// What differs between two states of a kernel, key by key.
namespace L3TunnelAgent {

namespace {

/// Adds the keys that only one of both maps has, and those whose values are not the same.
template <typename Map, typename Keys, typename AreSame>
void
addDiffering(Map const& some, Map const& others, Keys& keys, AreSame const& areSame) {
   for (auto const& [key, value] : some) {
      auto const found = others.find(key);
      if (found == others.end() || !areSame(value, found->second)) {
         keys.insert(key);
      }
   }
   for (auto const& [key, value] : others) {
      if (!some.contains(key)) {
         keys.insert(key);
      }
   }
}

/// The kernel does not tell of every state that a neighbour passes through: it counts where frames go, and
/// why there are none to send.
bool
isSameNeighbour(Neighbour const& one, Neighbour const& other) {
   return one.mac == other.mac && isResolved(one) == isResolved(other) &&
          (isUsable(one) || unusableState(one) == unusableState(other));
}

} // namespace

bool
KernelState::becomes(KernelState other) {
   auto differing = differenceTo(other);
   bool const differs = !differing.empty();
   differing.merge(changes_);
   other.changes_ = std::move(differing);
   other.doubts_ += doubts_;
   *this = std::move(other);
   return differs;
}

KernelState
KernelState::withoutRoutes() const {
   KernelState copy;
   copy.links_ = links_;
   copy.tunnelEnds_ = tunnelEnds_;
   copy.ignoreLinkdown_ = ignoreLinkdown_;
   copy.neighbours_ = neighbours_;
   copy.vxlanEntries_ = vxlanEntries_;
   copy.bridgeEntries_ = bridgeEntries_;
   copy.portVlans_ = portVlans_;
   copy.addresses_ = addresses_;
   copy.addressesDumped_ = addressesDumped_;
   copy.rules_ = rules_;
   copy.entriesOfObject_ = entriesOfObject_;
   copy.messages_ = messages_;
   return copy;
}

Changes
KernelState::differenceTo(KernelState const& other) const {
   Changes changes;
   std::equal_to<> const same;
   addDiffering(links_, other.links_, changes.links, [&](Link const& one, Link const& another) {
      return one == another && ignoresLinkdown(one, Family::v4) == other.ignoresLinkdown(another, Family::v4);
   });
   addDiffering(neighbours_, other.neighbours_, changes.neighbours, isSameNeighbour);
   addDiffering(vxlanEntries_, other.vxlanEntries_, changes.vxlanEntries, same);
   addDiffering(bridgeEntries_, other.bridgeEntries_, changes.bridgeEntries, same);
   addDiffering(portVlans_, other.portVlans_, changes.portVlans, same);
   addDiffering(nextHops_, other.nextHops_, changes.nextHops,
                [&](auto const& one, auto const& others) { return isSameObject(one, other, others); });

   auto const addRoutes = [&](KernelState const& some, KernelState const& others) {
      for (auto const& [id, routes] : some.tables_) {
         routes.each([&, table = id.second](Prefix const& prefix, Routes const& ofPrefix) {
            RouteKey const key{.table = table, .prefix = prefix};
            auto const* const found = others.routes(key);
            if (!found || !some.areSameRoutes(key, ofPrefix, others, *found)) {
               changes.routes.insert(key);
            }
         });
      }
   };
   addRoutes(*this, other);
   addRoutes(other, *this);

   for (auto const family : {Family::v4, Family::v6}) {
      if (rules(family) != other.rules(family) || outerHeader(family) != other.outerHeader(family)) {
         changes.rules.insert(family);
      }
   }
   return changes;
}

bool
KernelState::isSameObject(NextHopObject const& one, KernelState const& other,
                          NextHopObject const& others) const {
   return one.group == others.group && one.blackhole == others.blackhole && one.fdb == others.fdb &&
          one.hop.isSame(others.hop) && hopState(one.hop) == other.hopState(others.hop);
}

bool
KernelState::areSameRoutes(RouteKey const& key, Routes const& some, KernelState const& other,
                           Routes const& others) const {
   auto const areSame = [&](Route const& one, Route const& another) {
      // Nobody asks for carrier on the way to the machine itself, and the kernel marks none there.
      bool const isOwn = one.type == RTN_LOCAL || one.type == RTN_ANYCAST;
      return one.isSame(another) &&
             (isOwn || std::equal(one.hops.begin(), one.hops.end(), another.hops.begin(), another.hops.end(),
                                  [&](NextHop const& a, NextHop const& b) {
                                     auto const family = key.prefix.address.family;
                                     return hopState(a, family) == other.hopState(b, family);
                                  }));
   };
   return std::equal(some.begin(), some.end(), others.begin(), others.end(), areSame);
}

} // namespace L3TunnelAgent
