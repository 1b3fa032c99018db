#pragma once

#include "agent/PortVlans.h"
#include "agent/Prefix.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What a kernel tells about its forwarding, object by object. Numbers whose meaning is the kernel's (types,
// states, flags) are kept as they are in its public headers.
namespace L3TunnelAgent {

/// Number of the message that told of something, to compare by which of two came later. It is no content:
/// all are equal.
struct MessageNumber {
   std::uint64_t value{};

   bool operator==(MessageNumber const&) const { return true; }
};

enum class LinkKind : std::uint8_t { plain, vlan, bridge, vxlan };

struct Link {
   std::string name{};
   LinkKind kind{LinkKind::plain};
   std::optional<MacAddress> mac{};
   std::uint32_t flags{};               // IFF_*
   std::optional<int> lower{};          // the device that this one is stacked on
   int underlay{};                      // of a vxlan device: the only one that its packets leave by; 0: any
   std::optional<int> master{};         // the bridge that this one is a port of
   std::optional<std::uint16_t> vlan{}; // of a VLAN sub-interface
   bool foreignTag{};                   // a VLAN sub-interface whose tags are not those of 802.1Q
   bool vlanFiltering{};                // of a bridge
   bool ignoreLinkdown{};               // IPv4 routes over it are left out while it has no carrier: its own
   bool ignoreLinkdownV6{};             // setting; and IPv6 ones. KernelState::ignoresLinkdown counts all
   std::optional<IpAddress> source{};   // of a vxlan device's packets, where it is set
   std::uint16_t port{};                // that a vxlan device's packets go to; 0: not told
   MessageNumber told{};
   MessageNumber off{};   // the last message that told it so, up to this one
   MessageNumber ready{}; // up and with carrier, likewise

   bool operator==(Link const&) const = default;

   /// @return whether what is sent there comes back.
   bool isLoopback() const;

   /// @return whether the device is switched on.
   bool isUp() const;

   /// @return whether the kernel takes it for one with carrier.
   bool hasCarrier() const;
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

/// One MAC has one entry, but for zero and group addresses, which have one per remote destination: only with
/// these is there anything in the fields of the remote.
struct VxlanKey {
   int device{};
   std::uint32_t sourceVni{}; // 0 unless the device carries many
   MacAddress mac{};
   std::optional<IpAddress> groupDestination{};
   std::uint32_t remoteVni{};  // 0: the device's own
   std::uint16_t remotePort{}; // in the order of the wire; 0: the device's own
   int remoteDevice{};         // that it is reached over; 0: any

   auto operator<=>(VxlanKey const&) const = default;
};

struct VxlanEntry {
   std::optional<IpAddress> destination{};
   std::optional<std::uint32_t> nextHopId{};
   int underlay{}; // the only device that its packets leave by; 0: what its vxlan device says

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
   bool dead{};         // as its own message said; KernelState::hopState says how it is now
   bool linkdown{};     // as above
   bool unaddressed{};  // dead since its device lost its last IPv4 address
   bool encapsulated{}; // its packets get one more header, which only software writes
   MessageNumber told{};

   bool operator==(NextHop const&) const = default;

   /// @return whether both are one next hop to the kernel, whatever state it was in when it was told.
   bool isSame(NextHop const& other) const {
      return device == other.device && gateway == other.gateway && weight == other.weight &&
             encapsulated == other.encapsulated;
   }
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
   std::uint8_t scope{}; // RT_SCOPE_*
   std::uint32_t metric{};
   std::optional<std::uint32_t> nextHopId{};
   std::vector<NextHop> hops{};                // empty when nextHopId is set
   std::optional<IpAddress> preferredSource{}; // an address of this machine
   std::uint8_t protocol{};                    // who made it: RTPROT_*

   bool operator==(Route const&) const = default;

   /// @return whether both are one route to the kernel, whatever state their next hops were in when told.
   bool isSame(Route const& other) const;
};

/// An address of this machine, with the length of the network that it is in.
struct InterfaceAddress {
   IpAddress address{};
   std::uint8_t length{};
   IpAddress peer{}; // at the other end of the device; the address itself where none is set

   auto operator<=>(InterfaceAddress const&) const = default;
};

/// A place for routes: the family is the prefix's.
struct RouteKey {
   std::uint32_t table{};
   Prefix prefix{};

   auto operator<=>(RouteKey const&) const = default;
};

struct PortRange {
   std::uint16_t first{};
   std::uint16_t last{};

   bool operator==(PortRange const&) const = default;
};

/// What it asks for of packets that tunnels send is put into words here, as far as that is known of them:
/// they are made by this machine, are UDP, and have neither a mark nor an owner.
struct Rule {
   std::uint32_t priority{};
   std::uint8_t action{}; // FR_ACT_*
   std::uint32_t table{};
   std::optional<Prefix> destination{};             // applies to these destinations only
   std::optional<std::uint32_t> suppressedLength{}; // routes of this prefix length or shorter do not count
   bool selective{};                                // asks for something that is not known of such packets
   std::optional<std::uint32_t> target{};           // priority of the rule that it jumps to
   std::optional<Prefix> source{};                  // applies to these sources only
   std::optional<PortRange> port{};                 // and to these destination ports
   bool foreign{};                                  // asks for something that no such packet is
   bool inverted{};                                 // applies to just those that it would not apply to
   std::string selectors{};                         // as they were told, which tells rules apart

   bool operator==(Rule const&) const = default;
};

} // namespace L3TunnelAgent
