#include "agent/Attributes.h"
#include "agent/Messages.h"

#include <arpa/inet.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/ip.h>
#include <linux/ipv6.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

constexpr std::uint16_t maximumVlan = 4095;

bool
isForeign(std::optional<std::uint16_t> const& tagProtocol) {
   return tagProtocol && *tagProtocol != htons(ETH_P_8021Q);
}

LinkKind
linkKind(std::string const& kind) {
   if (kind == "vlan") {
      return LinkKind::vlan;
   }
   if (kind == "bridge") {
      return LinkKind::bridge;
   }
   if (kind == "vxlan") {
      return LinkKind::vxlan;
   }
   return LinkKind::plain;
}

void
readInfo(Attributes const& info, Link& link) {
   link.kind = linkKind(info.text(L3TUNNEL_ATTRIBUTE(IFLA_INFO_KIND)).value_or(""));
   if (link.kind == LinkKind::plain) {
      return;
   }
   auto const data = info.nested(L3TUNNEL_ATTRIBUTE(IFLA_INFO_DATA));
   if (!data) {
      return;
   }
   if (link.kind == LinkKind::vlan) {
      link.vlan = data->u16(L3TUNNEL_ATTRIBUTE(IFLA_VLAN_ID));
      link.foreignTag = isForeign(data->u16(L3TUNNEL_ATTRIBUTE(IFLA_VLAN_PROTOCOL)));
   } else if (link.kind == LinkKind::vxlan) {
      auto const source = data->address(L3TUNNEL_ATTRIBUTE(IFLA_VXLAN_LOCAL));
      link.source = source ? source : data->address(L3TUNNEL_ATTRIBUTE(IFLA_VXLAN_LOCAL6));
      link.port = ntohs(data->u16(L3TUNNEL_ATTRIBUTE(IFLA_VXLAN_PORT)).value_or(0));
      link.underlay = data->index(L3TUNNEL_ATTRIBUTE(IFLA_VXLAN_LINK)).value_or(0);
   } else {
      link.vlanFiltering = data->u8(L3TUNNEL_ATTRIBUTE(IFLA_BR_VLAN_FILTERING)).value_or(0) != 0;
   }
}

bool
isSetting(Attributes const& values, AttributeName name, std::size_t position) {
   auto const all = values.bytes(name).value_or(std::span<std::byte const>());
   // An older kernel has fewer of them.
   std::size_t const offset = position * sizeof(std::uint32_t);
   return all.size() >= offset + sizeof(std::uint32_t) && read<std::uint32_t>(all.subspan(offset)) != 0;
}

/// The device's own settings: one for all devices comes in a message of its own.
void
readFamilies(Attributes const& families, Link& link) {
   if (auto const v4 = families.nested(AttributeName{AF_INET, "AF_INET"})) {
      link.ignoreLinkdown = isSetting(*v4, L3TUNNEL_ATTRIBUTE(IFLA_INET_CONF),
                                      IPV4_DEVCONF_IGNORE_ROUTES_WITH_LINKDOWN - 1); // counted from 1
   }
   if (auto const v6 = families.nested(AttributeName{AF_INET6, "AF_INET6"})) {
      link.ignoreLinkdownV6 =
            isSetting(*v6, L3TUNNEL_ATTRIBUTE(IFLA_INET6_CONF), DEVCONF_IGNORE_ROUTES_WITH_LINKDOWN);
   }
}

Link
readLink(ifinfomsg const& fixed, Attributes const& attributes) {
   Link link;
   link.flags = fixed.ifi_flags;
   link.name = attributes.text(L3TUNNEL_ATTRIBUTE(IFLA_IFNAME)).value_or("");
   if (link.name.empty()) {
      attributes.fail("IFLA_IFNAME", "is missing");
   }
   if (auto const address = attributes.bytes(L3TUNNEL_ATTRIBUTE(IFLA_ADDRESS))) {
      link.mac = MacAddress::fromBytes(*address);
   }
   link.lower = attributes.index(L3TUNNEL_ATTRIBUTE(IFLA_LINK));
   link.master = attributes.index(L3TUNNEL_ATTRIBUTE(IFLA_MASTER));
   if (auto const info = attributes.nested(L3TUNNEL_ATTRIBUTE(IFLA_LINKINFO))) {
      readInfo(*info, link);
   }
   // With this attribute indices count in another network namespace and name no device here.
   if (attributes.has(IFLA_LINK_NETNSID)) {
      link.lower.reset();
      link.underlay = 0;
   }
   if (auto const families = attributes.nested(L3TUNNEL_ATTRIBUTE(IFLA_AF_SPEC))) {
      readFamilies(*families, link);
   }
   return link;
}

/// One entry per VLAN, or a pair of entries for the first and the last one of a range.
PortVlans
readVlans(Attributes const& bridge) {
   std::vector<VlanRange> ranges;
   std::optional<std::uint16_t> rangeBegin;
   bridge.each([&](std::uint16_t type, std::span<std::byte const> value) {
      if (type != IFLA_BRIDGE_VLAN_INFO) {
         return;
      }
      if (value.size() != sizeof(bridge_vlan_info)) {
         bridge.fail("IFLA_BRIDGE_VLAN_INFO", std::to_string(value.size()) + " bytes instead of " +
                                                    std::to_string(sizeof(bridge_vlan_info)));
      }
      auto const info = read<bridge_vlan_info>(value);
      if (info.vid > maximumVlan) {
         bridge.fail("IFLA_BRIDGE_VLAN_INFO", "VLAN " + std::to_string(info.vid));
      }
      if (info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) {
         rangeBegin = info.vid;
         return;
      }
      std::uint16_t const first =
            info.flags & BRIDGE_VLAN_INFO_RANGE_END ? rangeBegin.value_or(info.vid) : info.vid;
      ranges.push_back(
            {first, info.vid, static_cast<std::uint16_t>(info.flags & ~BRIDGE_VLAN_INFO_RANGE_END)});
   });
   return PortVlans(ranges);
}

/// Whether a port's own driver speaks, of which the bridge's settings are no part.
bool
isOfDriver(Attributes const& bridge) {
   return (bridge.u16(L3TUNNEL_ATTRIBUTE(IFLA_BRIDGE_FLAGS)).value_or(0) & BRIDGE_FLAGS_SELF) != 0;
}

} // namespace

void
applyLink(KernelState& state, nlmsghdr const* header) {
   std::string const message = messageName(header->nlmsg_type);
   auto const fixed = fixedPart<ifinfomsg>(message, header);
   Attributes const attributes(message, header, sizeof fixed);
   bool const removed = header->nlmsg_type == RTM_DELLINK;
   if (fixed.ifi_family == AF_BRIDGE) { // about the device as a port: it stays when it is one no more
      if (removed) {
         state.portVlansDel(fixed.ifi_index);
      } else if (auto const bridge = attributes.nested(L3TUNNEL_ATTRIBUTE(IFLA_AF_SPEC))) {
         if (!isOfDriver(*bridge)) {
            state.portVlansAre(fixed.ifi_index, readVlans(*bridge));
         }
      }
   } else if (fixed.ifi_family != AF_UNSPEC) { // a protocol's own view of the device, without most of it
      return;
   } else if (removed) {
      state.linkDel(fixed.ifi_index);
   } else {
      state.linkIs(fixed.ifi_index, readLink(fixed, attributes));
   }
}

} // namespace L3TunnelAgent
