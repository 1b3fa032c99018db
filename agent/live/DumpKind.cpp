#include "agent/live/DumpKind.h"

#include "agent/Recording.h"

#include <array>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/neighbour.h>
#include <linux/netconf.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

constexpr std::array kinds{
      DumpKind{.tag = 11, .name = "IPv4 settings", .type = RTM_GETNETCONF, .family = AF_INET},
      DumpKind{.tag = 1,
               .name = "links",
               .type = RTM_GETLINK,
               .family = AF_UNSPEC,
               .extras = RTEXT_FILTER_SKIP_STATS},
      DumpKind{.tag = 9,
               .name = "bridge ports",
               .type = RTM_GETLINK,
               .family = AF_BRIDGE,
               .extras = RTEXT_FILTER_BRVLAN},
      DumpKind{.tag = 2, .name = "addresses", .type = RTM_GETADDR, .family = AF_UNSPEC},
      DumpKind{.tag = 3, .name = "neighbours", .type = RTM_GETNEIGH, .family = AF_UNSPEC},
      DumpKind{.tag = 4, .name = "forwarding entries", .type = RTM_GETNEIGH, .family = AF_BRIDGE},
      DumpKind{.tag = rulesTag, .name = "IPv4 rules", .type = RTM_GETRULE, .family = AF_INET},
      DumpKind{.tag = rulesTagV6, .name = "IPv6 rules", .type = RTM_GETRULE, .family = AF_INET6},
      DumpKind{.tag = 5, .name = "next-hop objects", .type = RTM_GETNEXTHOP, .family = AF_UNSPEC},
      DumpKind{.tag = 6, .name = "IPv4 routes", .type = RTM_GETROUTE, .family = AF_INET},
      DumpKind{.tag = 7, .name = "IPv6 routes", .type = RTM_GETROUTE, .family = AF_INET6},
};
constexpr std::size_t numRouteKinds = 3; // at the end

/// The fixed part of a request, of which all but the family is zero.
template <typename Fixed>
void
putFixed(nlmsghdr* header, std::uint8_t Fixed::*family, std::uint8_t value) {
   auto* const fixed = static_cast<Fixed*>(mnl_nlmsg_put_extra_header(header, sizeof(Fixed)));
   fixed->*family = value;
}

} // namespace

std::span<DumpKind const>
allDumps() {
   return kinds;
}

std::span<DumpKind const>
routeDumps() {
   return std::span(kinds).last(numRouteKinds);
}

std::vector<std::byte>
request(DumpKind const& kind, std::uint32_t sequence) {
   alignas(nlmsghdr) std::array<std::byte, 128> buffer{};
   nlmsghdr* const header = mnl_nlmsg_put_header(buffer.data());
   header->nlmsg_type = kind.type;
   header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   header->nlmsg_seq = sequence;
   switch (kind.type) {
   case RTM_GETLINK:
      putFixed(header, &ifinfomsg::ifi_family, kind.family);
      mnl_attr_put_u32(header, IFLA_EXT_MASK, kind.extras);
      break;
   case RTM_GETADDR:
      putFixed(header, &ifaddrmsg::ifa_family, kind.family);
      break;
   case RTM_GETNEIGH:
      putFixed(header, &ndmsg::ndm_family, kind.family);
      break;
   case RTM_GETNEXTHOP:
      putFixed(header, &nhmsg::nh_family, kind.family);
      break;
   case RTM_GETROUTE:
      putFixed(header, &rtmsg::rtm_family, kind.family);
      break;
   case RTM_GETNETCONF:
      putFixed(header, &netconfmsg::ncm_family, kind.family);
      break;
   default:
      putFixed(header, &fib_rule_hdr::family, kind.family);
      break;
   }
   return {buffer.begin(), buffer.begin() + header->nlmsg_len};
}

} // namespace L3TunnelAgent
