#pragma once

#include "agent/tests/MessageBuilder.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

// Messages of a kernel, for tests that build a machine of their own. The family is the address's.
namespace L3TunnelAgent {

inline constexpr unsigned runningFlags = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;

inline std::uint8_t
familyOf(std::string const& address) {
   return IpAddress::parse(address).value().family == IpAddress::Family::v4 ? AF_INET : AF_INET6;
}

inline MessageBuilder
linkMessage(int index, char const* name, char const* kind, unsigned flags = runningFlags) {
   MessageBuilder message(RTM_NEWLINK, ifinfomsg{.ifi_index = index, .ifi_flags = flags});
   message.text(IFLA_IFNAME, name).mac(IFLA_ADDRESS, "02:00:00:00:00:99");
   message.nest(IFLA_LINKINFO, [&](MessageBuilder& info) { info.text(IFLA_INFO_KIND, kind); });
   return message;
}

inline MessageBuilder
routeMessage(std::uint16_t type, std::string const& to, std::uint8_t length, std::uint8_t kind = RTN_UNICAST,
             std::uint32_t table = RT_TABLE_MAIN, std::uint16_t flags = 0) {
   MessageBuilder message(type,
                          rtmsg{.rtm_family = familyOf(to),
                                .rtm_dst_len = length,
                                .rtm_table = RT_TABLE_COMPAT,
                                .rtm_type = kind},
                          flags);
   message.ip(RTA_DST, to).u32(RTA_TABLE, table).u32(RTA_PRIORITY, 1024);
   return message;
}

inline MessageBuilder
neighbourMessage(int device, std::string const& address, std::string const& mac) {
   MessageBuilder message(
         RTM_NEWNEIGH,
         ndmsg{.ndm_family = familyOf(address), .ndm_ifindex = device, .ndm_state = NUD_REACHABLE});
   message.ip(NDA_DST, address).mac(NDA_LLADDR, mac);
   return message;
}

/// A forwarding entry of a vxlan device that sends what it floods to `destination` too.
inline MessageBuilder
tunnelMessage(std::uint16_t type, int device, std::string const& destination) {
   MessageBuilder message(type, ndmsg{.ndm_family = AF_BRIDGE, .ndm_ifindex = device, .ndm_flags = NTF_SELF});
   message.mac(NDA_LLADDR, "00:00:00:00:00:00").ip(NDA_DST, destination);
   return message;
}

} // namespace L3TunnelAgent
