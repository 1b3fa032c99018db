#pragma once

#include "agent/Address.h"

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

// The forwarding state of a kernel as it told it, without any conclusion. Numbers whose meaning is the
// kernel's (types, states, flags) are kept as they are in its public headers.
namespace L3TunnelAgent {

enum class LinkKind : std::uint8_t { plain, vlan, bridge, vxlan };

struct Link {
   std::string name{};
   LinkKind kind{LinkKind::plain};
   std::optional<MacAddress> mac{};
   std::uint32_t flags{};               // IFF_*
   std::optional<int> lower{};          // the device that this one is stacked on
   std::optional<int> master{};         // the bridge that this one is a port of
   std::optional<std::uint16_t> vlan{}; // of a VLAN sub-interface
   bool vlanFiltering{};                // of a bridge
   bool ignoreLinkdown{};               // routes over it are left out while it has no carrier

   bool operator==(Link const&) const = default;
};

struct NeighbourKey {
   int device{};
   IpAddress address{};

   auto operator<=>(NeighbourKey const&) const = default;
};

struct Neighbour {
   std::uint16_t state{}; // NUD_*
   std::optional<MacAddress> mac{};

   bool operator==(Neighbour const&) const = default;
};

/// One MAC has one entry, but for zero and group addresses, which have one per remote destination.
struct VxlanKey {
   int device{};
   std::uint32_t sourceVni{}; // 0 unless the device carries many
   MacAddress mac{};
   std::optional<IpAddress> groupDestination{};

   auto operator<=>(VxlanKey const&) const = default;
};

struct VxlanEntry {
   std::optional<IpAddress> destination{};
   std::optional<std::uint32_t> nextHopId{};

   bool operator==(VxlanEntry const&) const = default;
};

struct BridgeKey {
   int bridge{};
   std::uint16_t vlan{}; // 0: the entry belongs to no VLAN
   MacAddress mac{};

   auto operator<=>(BridgeKey const&) const = default;
};

struct NextHop {
   int device{};
   std::optional<IpAddress> gateway{};
   unsigned weight{1};
   bool dead{};
   bool linkdown{};

   bool operator==(NextHop const&) const = default;
};

struct NextHopObject {
   struct Member {
      std::uint32_t id{};
      unsigned weight{1};

      bool operator==(Member const&) const = default;
   };

   std::vector<Member> group{}; // empty: the object is a single next hop
   NextHop hop{};
   bool blackhole{};
   bool fdb{}; // names tunnel destinations, not next hops of routes

   bool operator==(NextHopObject const&) const = default;
};

struct Route {
   std::uint8_t type{}; // RTN_*
   std::uint8_t tos{};
   std::uint32_t metric{};
   std::optional<std::uint32_t> nextHopId{};
   std::vector<NextHop> hops{}; // empty when nextHopId is set

   bool operator==(Route const&) const = default;
};

struct Prefix {
   std::uint32_t bits{}; // host order, zero beyond the length
   std::uint8_t length{};

   auto operator<=>(Prefix const&) const = default;

   /// @return the prefix of that length which contains the address. Lengths above 32 count as 32.
   static Prefix of(std::uint32_t address, std::uint8_t length);
};

/// The IPv4 routes of one table.
class RouteTable {
 public:
   /// Adds a route behind those of the same prefix and metric; one that is there already is not added twice.
   ///
   void add(Prefix prefix, Route route);

   /// Adds a route in the place of the first one of the same prefix, type of service and metric, if any.
   void replace(Prefix prefix, Route route);

   /// @return whether such a route was there and is removed.
   bool remove(Prefix prefix, Route const& route);

   /// @return the routes of exactly that prefix, lowest metric first; null when there is none.
   std::vector<Route> const* find(Prefix prefix) const;

   /// @return how many routes the table has.
   std::size_t size() const;

 private:
   // One hash map per prefix length: a lookup probes the lengths in use, longest first.
   std::array<std::unordered_map<std::uint32_t, std::vector<Route>>, 33> byLength_;
};

struct Rule {
   std::uint32_t priority{};
   std::uint8_t action{}; // FR_ACT_*
   std::uint32_t table{};
   std::optional<Prefix> destination{};             // applies to these destinations only
   std::optional<std::uint32_t> suppressedLength{}; // routes of this prefix length or shorter do not count
   bool selective{};                                // asks for more than the destination of a packet

   bool operator==(Rule const&) const = default;
};

struct KernelState {
   std::map<int, Link> links;
   std::map<NeighbourKey, Neighbour> neighbours;
   std::map<VxlanKey, VxlanEntry> vxlanEntries;
   std::map<BridgeKey, int> bridgeEntries;                          // to the port
   std::map<int, std::map<std::uint16_t, std::uint16_t>> portVlans; // BRIDGE_VLAN_INFO_* per device and VLAN
   std::unordered_map<std::uint32_t, NextHopObject> nextHops;
   std::map<std::uint32_t, RouteTable> tables;
   std::vector<Rule> rules{}; // by priority, equal ones in the kernel's order

   /// @return the link; null when the kernel told of none with that index.
   Link const* link(int index) const;

   /// @return the name of the link, or "#" and its index when the kernel told of none.
   std::string linkName(int index) const;

   /// Adds a rule behind those of the same priority; one that is there already is not added twice.
   void addRule(Rule const& rule);
};

} // namespace L3TunnelAgent
