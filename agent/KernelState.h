#pragma once

#include "agent/BridgeEntries.h"
#include "agent/Changes.h"
#include "agent/RouteTable.h"
#include "agent/SeededHash.h"

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace L3TunnelAgent {

/// Where a route goes among those of its prefix, type of service and metric.
enum class RoutePlace : std::uint8_t {
   behind,  // all of them
   before,  // all of them
   instead, // of the first of them, unless the same route is there; behind the others when there is none
};

/// What is known of the packets that all tunnels of a family send, besides where they go.
struct OuterHeader {
   std::optional<IpAddress> source{}; // of which their routes are looked up; zero while it is still open
   std::optional<std::uint16_t> port{};

   bool operator==(OuterHeader const&) const = default;
};

/// The forwarding state of a kernel as it told it, without any conclusion but one: what the kernel does to
/// next hops and routes when a link goes down or away, of which it tells nothing but the link itself.
///
/// Whatever becomes different is noted for takeChanges(). What is said again changes nothing and notes
/// nothing.
class KernelState {
 public:
   using Family = IpAddress::Family;
   using NextHops = MapByNumber<std::uint32_t, NextHopObject>;

   /// A state without anything but the rules that a kernel begins with.
   KernelState();

   std::map<int, Link> const& links() const { return links_; }
   std::map<NeighbourKey, Neighbour> const& neighbours() const { return neighbours_; }
   std::map<VxlanKey, VxlanEntry> const& vxlanEntries() const { return vxlanEntries_; }
   BridgeEntries::Map const& bridgeEntries() const { return bridgeEntries_.map(); } // to the port
   std::map<int, PortVlans> const& portVlans() const { return portVlans_; }
   NextHops const& nextHops() const { return nextHops_; }

   /// @return the rules by priority, equal ones in the kernel's order.
   std::vector<Rule> const& rules(Family family) const {
      return rules_[static_cast<std::size_t>(family)].list;
   }

   /// Each of these returns null when the kernel told of none.
   Link const* link(int index) const;
   Neighbour const* neighbour(NeighbourKey const& key) const;
   NextHopObject const* nextHop(std::uint32_t id) const;
   PortVlans const* portVlans(int device) const;
   RouteTable const* table(Family family, std::uint32_t id) const;
   RouteTable::Routes const* routes(RouteKey const& key) const;

   /// @return the port that a bridge's forwarding entry names; nothing without an entry.
   std::optional<int> bridgePort(BridgeKey const& key) const;

   /// @return the name of the link, or "#" and its index when the kernel told of none.
   std::string linkName(int index) const;

   struct HopState {
      bool dead{};
      bool linkdown{};

      bool operator==(HopState const&) const = default;
   };

   /// @return how a next hop of an IPv4 route or of an object is: as its own message said, until a later
   /// message told of its link. One that is dead for want of an address is, whatever its link says.
   HopState hopState(NextHop const& hop) const { return linkedState(hop, Family::v4); }

   /// @return the same for a route of that family: a next hop that is left out for want of carrier is dead to
   /// it.
   HopState hopState(NextHop const& hop, Family family) const;

   /// @return whether routes of that family over the link are left out while it has no carrier.
   bool ignoresLinkdown(Link const& link, Family family) const;

   /// The link is as told. When it is switched off or has no carrier, what the kernel drops with that goes.
   void linkIs(int index, Link link);

   /// The link is no more, nor anything that needs it: its neighbours, forwarding entries, VLANs, next hops
   /// and routes.
   void linkDel(int index);

   /// Whether IPv4 routes are left out over whatever has no carrier, beside each device's own setting. There
   /// is no such setting of IPv6: what sets that for all devices sets each of them.
   void ignoreLinkdownIs(bool ignore);

   /// The device's own setting, as its link may say too. One that the kernel told of no link of has none.
   void ignoreLinkdownIs(int device, Family family, bool ignore);

   void neighbourIs(NeighbourKey const& key, Neighbour const& neighbour);
   void neighbourDel(NeighbourKey const& key);
   void vxlanEntryIs(VxlanKey const& key, VxlanEntry const& entry);
   void vxlanEntryDel(VxlanKey const& key);

   /// The device has that IPv4 address: next hops that were dead for want of one are back.
   /// @param dumped whether it answers a request for all addresses, which brings nothing back. Before the
   /// first that does, which address is a device's last is not known.
   void addressIs(int device, InterfaceAddress const& address, bool dumped = false);

   /// With its last IPv4 address a device's inline next hops are dead, and routes of which all are go; with
   /// the last of an address in the machine, the routes of the main table that prefer it as a source.
   void addressDel(int device, InterfaceAddress const& address);

   void bridgeEntryIs(BridgeKey const& key, int port);
   void bridgeEntryDel(BridgeKey const& key);
   void portVlansAre(int device, PortVlans const& vlans);
   void portVlansDel(int device);

   void nextHopIs(std::uint32_t id, NextHopObject object);

   /// The object is no more, nor are the routes and forwarding entries that use it. It leaves its groups, and
   /// a group without members goes the same way.
   void nextHopDel(std::uint32_t id);

   /// A route that is there already stays where it is, and is told anew. IPv6 routes of one metric whose next
   /// hops all have gateways are one route of the kernel, so the last one told is all of it; but those that
   /// it makes of router advertisements stay apart, each with its one next hop.
   void routeIs(RouteKey const& key, Route route, RoutePlace place = RoutePlace::behind);

   /// Removes the route, or from an IPv6 one some of its next hops.
   /// @return whether there was such a route.
   bool routeDel(RouteKey const& key, Route route);

   /// Adds a rule behind those of its priority; one that is there already is not added twice.
   /// @param dumped whether it answers a request for all rules: the first that does replaces those that a
   /// kernel begins with.
   void ruleIs(Family family, Rule const& rule, bool dumped = false);
   void ruleDel(Family family, Rule const& rule);

   /// A request for all rules is answered: where no rule did, there is none.
   void rulesAreDumped(Family family);

   /// @return what the vxlan devices that have tunnels of that family agree in.
   OuterHeader outerHeader(Family family) const;

   /// @return what became different since this was called last, or since the beginning.
   Changes takeChanges() { return std::exchange(changes_, {}); }
   bool hasChanges() const { return !changes_.empty(); }

   /// Takes the place of what is known by what was read anew, and notes what differs: nothing else.
   /// @param other its own notes are dropped.
   /// @return whether they differ.
   bool becomes(KernelState other);

   /// @return a copy that knows no next-hop object and no route, to be read anew. Nothing is noted in it.
   KernelState withoutRoutes() const;

   /// @return how often the kernel may have dropped next-hop objects or routes without telling, or told of a
   /// route in words that leave its place open, so that what is concluded here is worth asking for.
   std::uint64_t doubts() const { return doubts_; }

 private:
   struct Rules {
      std::vector<Rule> list;
      bool dumped{};
   };

   /// What a vxlan device says of its packets.
   using TunnelEnd = std::pair<std::optional<IpAddress>, std::uint16_t>;

   using Routes = RouteTable::Routes;
   using RouteUses = std::map<RouteKey, std::size_t>; // how often the routes of a prefix use something

   Changes differenceTo(KernelState const& other) const;
   bool isSameObject(NextHopObject const& one, KernelState const& other, NextHopObject const& others) const;
   bool areSameRoutes(RouteKey const& key, Routes const& some, KernelState const& other,
                      Routes const& others) const;

   HopState linkedState(NextHop const& hop, Family family) const;
   static std::optional<TunnelEnd> tunnelEnd(Link const* link);
   void tunnelEndChanged(std::optional<TunnelEnd> const& before, std::optional<TunnelEnd> const& now);
   void hopsGoWithDevice(int device);
   void routesGoDown(int device);
   void routesGoAway(int device);
   void entriesGoAway(int device);
   void nextHopsDel(std::set<std::uint32_t> gone);
   bool nextHopDelAlone(std::uint32_t id, std::set<std::uint32_t>& groups);
   bool membersDel(std::uint32_t group, std::set<std::uint32_t> const& members);
   void markedBy(NextHop const& hop);
   void markIsOwn(NextHop& hop, Family family) const;
   void nextHopIndexed(std::uint32_t id, NextHopObject const& object, bool present);
   bool takeInto(RouteKey const& key, Route const& shared, Routes& all);
   bool allDead(Route const& route, Family family) const;
   bool isSameState(Route const& one, Route const& other, Family family) const;
   void hopsAre(int device, bool dead);
   void routesGoWithAddresses(int device);
   void routesGoWithSource(IpAddress const& source);
   void routeIndexed(RouteKey const& key, Route const& route, bool present);

   template <typename Edit>
   bool editRoutes(RouteKey const& key, Edit const& edit);

   template <typename Drops>
   void dropRoutes(RouteKey const& key, Drops const& drops);

   std::map<int, Link> links_;
   std::map<TunnelEnd, std::size_t> tunnelEnds_; // how many vxlan devices have it
   bool ignoreLinkdown_{};                       // of all devices, IPv4
   std::map<NeighbourKey, Neighbour> neighbours_;
   std::map<VxlanKey, VxlanEntry> vxlanEntries_;
   BridgeEntries bridgeEntries_;
   std::map<int, PortVlans> portVlans_;
   std::map<int, std::set<InterfaceAddress>> addresses_; // IPv4
   bool addressesDumped_{};
   NextHops nextHops_;
   std::map<std::pair<Family, std::uint32_t>, RouteTable> tables_;
   std::array<Rules, 2> rules_;

   // Who uses what: only what is there is a key.
   MapByNumber<int, std::set<std::uint32_t>> objectsOfDevice_;
   MapByNumber<std::uint32_t, std::set<std::uint32_t>> groupsOfMember_;
   MapByNumber<std::uint32_t, std::set<VxlanKey>> entriesOfObject_;
   MapByNumber<int, RouteUses> routesOfDevice_;
   MapByNumber<std::uint32_t, RouteUses> routesOfObject_;
   std::unordered_map<IpAddress, RouteUses> routesOfSource_;

   std::set<int> markedDevices_; // over which a hop was told dead or without carrier since its link was told
   Changes changes_;
   std::uint64_t messages_{};
   std::uint64_t doubts_{};
};

} // namespace L3TunnelAgent
