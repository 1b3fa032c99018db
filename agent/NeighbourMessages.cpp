#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

std::optional<MacAddress>
readMac(Attributes const& attributes) {
   auto const bytes = attributes.bytes(L3TUNNEL_ATTRIBUTE(NDA_LLADDR));
   return bytes ? MacAddress::fromBytes(*bytes) : std::nullopt;
}

MacAddress
requiredMac(Attributes const& attributes) {
   auto const mac = readMac(attributes);
   if (!mac) {
      attributes.fail("NDA_LLADDR", "is no Ethernet address");
   }
   return *mac;
}

void
applyIpNeighbour(KernelState& state, bool removed, ndmsg const& fixed, Attributes const& attributes) {
   if (fixed.ndm_flags & NTF_PROXY) { // an address that is answered for, not a neighbour
      return;
   }
   auto const address = attributes.address(L3TUNNEL_ATTRIBUTE(NDA_DST));
   if (!address) {
      attributes.fail("NDA_DST", "is missing");
   }
   if (address->isMulticast()) { // no next hop, and the kernel does not tell when one comes
      return;
   }
   NeighbourKey const key{.device = fixed.ndm_ifindex, .address = *address};
   if (removed) {
      state.neighbourDel(key);
   } else {
      state.neighbourIs(key, {.state = fixed.ndm_state, .mac = readMac(attributes)});
   }
}

void
applyVxlanEntry(KernelState& state, bool removed, ndmsg const& fixed, Attributes const& attributes) {
   auto const destination = attributes.address(L3TUNNEL_ATTRIBUTE(NDA_DST));
   auto const nextHopId = attributes.u32(L3TUNNEL_ATTRIBUTE(NDA_NH_ID));
   // Addresses that any device listens to have neither, nor have the echoes that some kernels send of each
   // change.
   if (!destination && !nextHopId) {
      return;
   }
   MacAddress const mac = requiredMac(attributes);
   int const underlay = attributes.index(L3TUNNEL_ATTRIBUTE(NDA_IFINDEX)).value_or(0);
   VxlanKey key{.device = fixed.ndm_ifindex,
                .sourceVni = attributes.u32(L3TUNNEL_ATTRIBUTE(NDA_SRC_VNI)).value_or(0),
                .mac = mac};
   if (mac.isGroupOrZero()) {
      key.groupDestination = destination;
      key.remoteVni = attributes.u32(L3TUNNEL_ATTRIBUTE(NDA_VNI)).value_or(0);
      key.remotePort = attributes.u16(L3TUNNEL_ATTRIBUTE(NDA_PORT)).value_or(0);
      key.remoteDevice = underlay;
   }
   if (removed) {
      state.vxlanEntryDel(key);
   } else {
      state.vxlanEntryIs(key, {.destination = destination, .nextHopId = nextHopId, .underlay = underlay});
   }
}

void
applyBridgeEntry(KernelState& state, bool removed, ndmsg const& fixed, Attributes const& attributes) {
   auto const bridge = attributes.index(L3TUNNEL_ATTRIBUTE(NDA_MASTER));
   if (!bridge) {
      return;
   }
   // A MAC that moves to another port is announced on its new port only, so the port is no part of the key.
   BridgeKey const key{.bridge = *bridge,
                       .vlan = attributes.u16(L3TUNNEL_ATTRIBUTE(NDA_VLAN)).value_or(0),
                       .mac = requiredMac(attributes)};
   if (removed) {
      state.bridgeEntryDel(key);
   } else {
      state.bridgeEntryIs(key, fixed.ndm_ifindex);
   }
}

} // namespace

void
applyNeighbour(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<ndmsg>(message, header);
   Attributes const attributes(message, header, sizeof fixed);
   bool const removed = header->nlmsg_type == RTM_DELNEIGH;
   if (fixed.ndm_family == AF_INET || fixed.ndm_family == AF_INET6) {
      applyIpNeighbour(state, removed, fixed, attributes);
   } else if (fixed.ndm_family == AF_BRIDGE && (fixed.ndm_flags & NTF_SELF)) {
      applyVxlanEntry(state, removed, fixed, attributes);
   } else if (fixed.ndm_family == AF_BRIDGE) {
      applyBridgeEntry(state, removed, fixed, attributes);
   }
}

} // namespace L3TunnelAgent
