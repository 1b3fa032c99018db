#include "agent/Adjacency.h"

#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/neighbour.h>

namespace L3TunnelAgent {

namespace {

constexpr unsigned resolvedStates =
      NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT | NUD_NOARP;

/// Derives one adjacency and keeps what it looked at.
class Adjacency {
 public:
   Adjacency(KernelState const& state, AdjacencyInputs& inputs) : state_(state), inputs_(inputs) {}

   DerivedVia derive(NeighbourKey const& key) {
      DerivedVia via{.kind = ViaKind::cpu, .device = key.device, .gateway = key.address};
      Link const* const device = link(key.device);
      if (!device) {
         via.reason = "device unknown";
         return via;
      }
      via.sourceMac = device->mac;
      auto const neighbour = neighbourOf(state_, key);
      if (!neighbour) {
         via.reason = "neighbour unresolved: no entry";
      } else if (!isUsable(*neighbour)) {
         via.reason = "neighbour unresolved: " + unusableState(*neighbour);
      } else {
         via.kind = ViaKind::unicast;
         via.mac = neighbour->mac;
      }
      findPort(*device, via);
      if (!via.sourceMac && via.reason.empty()) {
         via.reason = "no source address";
      }
      return via;
   }

 private:
   Link const* link(int index) {
      inputs_.links.push_back(index);
      return state_.link(index);
   }

   PortVlans const* portVlans(int device) {
      inputs_.portVlans.push_back(device);
      return state_.portVlans(device);
   }

   std::optional<std::uint16_t> portVlanOf(int device) {
      if (auto const* const vlans = portVlans(device)) {
         for (auto const& range : vlans->ranges()) {
            if (range.flags & BRIDGE_VLAN_INFO_PVID) {
               return range.first;
            }
         }
      }
      return std::nullopt;
   }

   bool leavesTagged(int port, std::uint16_t vlan) {
      auto const* const vlans = portVlans(port);
      return !vlans || !(vlans->flags(vlan).value_or(0) & BRIDGE_VLAN_INFO_UNTAGGED);
   }

   std::optional<int> bridgePort(BridgeKey const& key) {
      inputs_.bridgeEntry = key;
      return state_.bridgePort(key);
   }

   /// @return why frames cannot leave the chip by a device; null when they can.
   char const* whyNoPort(int index) {
      Link const* const port = link(index);
      if (!port) {
         return "port unknown: no such device";
      }
      if (port->isLoopback()) {
         return "port unknown: loopback";
      }
      switch (port->kind) {
      case LinkKind::vxlan:
         return "port unknown: a vxlan device";
      case LinkKind::vlan:
         return "port unknown: tagged twice";
      case LinkKind::bridge:
         return "port unknown: a bridge on another";
      case LinkKind::plain:
         break;
      }
      return nullptr;
   }

   /// @param vlan what the frame is tagged with there; nothing: it is untagged.
   void leaveBy(int port, std::optional<std::uint16_t> vlan, DerivedVia& via) {
      if (char const* const reason = whyNoPort(port)) {
         return noPort(via, reason);
      }
      via.port = port;
      via.tagged = vlan.has_value();
      if (vlan) {
         via.vlan = vlan;
      }
   }

   /// Why a neighbour is not known says more.
   static void noPort(DerivedVia& via, char const* reason) {
      if (via.kind == ViaKind::unicast) {
         via.reason = reason;
      }
   }

   /// Fills in the port below a VLAN sub-interface, which puts its tag on frames that come without one.
   void leaveBelow(Link const& sub, DerivedVia& via) {
      if (sub.foreignTag) {
         noPort(via, "port unknown: not an 802.1Q tag");
      } else if (!sub.lower) {
         noPort(via, "port unknown: lower device elsewhere");
      } else if (!sub.vlan) {
         noPort(via, "port unknown: VLAN unknown");
      } else {
         leaveBy(*sub.lower, sub.vlan, via);
      }
   }

   /// Fills in the port behind a bridge, which the forwarding database names by the neighbour's MAC.
   /// @param via its VLAN is that of the routed device.
   void findBridgePort(int bridgeIndex, Link const& bridge, DerivedVia& via) {
      // The bridge itself sends in its own port VLAN; where it does not look at VLANs a tag is just carried
      // along.
      std::optional<std::uint16_t> vlan;
      if (bridge.vlanFiltering) {
         vlan = via.vlan ? via.vlan : portVlanOf(bridgeIndex);
      }
      std::optional<int> port;
      if (via.mac && (vlan || !bridge.vlanFiltering)) {
         port = bridgePort({bridgeIndex, vlan.value_or(0), *via.mac});
      }
      if (!port) {
         return noPort(via, "fdb-miss");
      }
      auto const tag = vlan ? (leavesTagged(*port, *vlan) ? vlan : std::nullopt) : via.vlan;
      Link const* const named = link(*port);
      if (!tag && named && named->kind == LinkKind::vlan) {
         leaveBelow(*named, via);
      } else {
         leaveBy(*port, tag, via);
      }
   }

   /// Fills in the VLAN and the port of a via whose device, and MAC if known, are there.
   void findPort(Link const& device, DerivedVia& via) {
      if (device.kind == LinkKind::bridge) {
         return findBridgePort(*via.device, device, via);
      }
      if (device.kind != LinkKind::vlan) {
         return leaveBy(*via.device, std::nullopt, via);
      }
      via.vlan = device.vlan;
      Link const* const lower = device.lower ? link(*device.lower) : nullptr;
      if (lower && lower->kind == LinkKind::bridge && !device.foreignTag) {
         return findBridgePort(*device.lower, *lower, via);
      }
      leaveBelow(device, via);
   }

   KernelState const& state_;
   AdjacencyInputs& inputs_;
};

} // namespace

std::optional<Neighbour>
neighbourOf(KernelState const& state, NeighbourKey const& key) {
   if (Neighbour const* const told = state.neighbour(key)) {
      return *told;
   }
   Link const* const device = state.link(key.device);
   if (!device || !(device->flags & IFF_NOARP)) {
      return std::nullopt;
   }
   return Neighbour{.state = NUD_NOARP, .mac = device->mac};
}

bool
isResolved(Neighbour const& neighbour) {
   return (neighbour.state & resolvedStates) != 0;
}

bool
isUsable(Neighbour const& neighbour) {
   return isResolved(neighbour) && neighbour.mac;
}

std::string
unusableState(Neighbour const& neighbour) {
   if (neighbour.state & NUD_FAILED) {
      return "FAILED";
   }
   if (neighbour.state & NUD_INCOMPLETE) {
      return "INCOMPLETE";
   }
   return isResolved(neighbour) ? "no Ethernet address" : "no state";
}

DerivedVia
adjacency(KernelState const& state, NeighbourKey const& key, AdjacencyInputs* inputs) {
   AdjacencyInputs unheard;
   return Adjacency(state, inputs ? *inputs : unheard).derive(key);
}

} // namespace L3TunnelAgent
