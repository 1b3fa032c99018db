#include "agent/tests/live/Storm.h"

#include <algorithm>
#include <fmt/format.h>
#include <linux/if.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <numeric>
#include <stdexcept>

namespace L3TunnelAgent::Live {

namespace {

// Numbers of next-hop objects.
constexpr std::uint32_t firstSingle = 1;
constexpr std::uint32_t firstGroup = 1000;

std::string
gateway(int nextHop) {
   return fmt::format("10.9.{}.2", nextHop);
}

std::string
destination(int number) {
   return fmt::format("10.{}.{}.{}", 100 + number / 40000, number / 200 % 200, 1 + number % 200);
}

} // namespace

Storm::Storm(Size size, std::uint32_t seed)
    : size_(size)
    , random_(seed)
    , injector_(space_)
    , peersInjector_(peers_)
    , isDown_(static_cast<std::size_t>(size.nextHops)) {
   makeDevices();
   for (int hop = 0; hop < size_.nextHops; ++hop) {
      neighbourIs(hop, 0);
      nextHopIs(hop);
   }
   std::vector<int> all(static_cast<std::size_t>(size_.nextHops));
   std::iota(all.begin(), all.end(), 0);
   for (int group = 0; group < size_.groups; ++group) {
      std::shuffle(all.begin(), all.end(), random_);
      groups_.emplace_back(all.begin(), all.begin() + 1 + group % size_.nextHops);
      groupIs(group, groups_.back());
   }
   makeTunnels();
   injector_.flush();
   if (injector_.refused()) {
      throw std::runtime_error(fmt::format("the kernel refused {} of {} messages, the last with error {}",
                                           injector_.refused(), injector_.sent(), injector_.lastError()));
   }
}

void
Storm::makeDevices() {
   space_.sysctl("net.ipv4.conf.all.ignore_routes_with_linkdown", "1");
   std::string lines =
         "link add vx type vxlan id 1 local 10.255.255.1 dstport 4789 nolearning\nlink set vx up";
   std::string peerLines;
   for (int hop = 0; hop < size_.nextHops; ++hop) {
      lines += fmt::format("\nlink add hop{0} type veth peer name peer{0} netns {1}\n"
                           "addr add 10.9.{0}.1/24 dev hop{0}\nlink set hop{0} up",
                           hop, peers_.name());
      peerLines += fmt::format("link set peer{} up\n", hop);
   }
   space_.ip(lines);
   peers_.ip(peerLines);
   tunnelDevice_ = space_.deviceIndex("vx");
   for (int hop = 0; hop < size_.nextHops; ++hop) {
      devices_.push_back(space_.deviceIndex(fmt::format("hop{}", hop)));
      peerDevices_.push_back(peers_.deviceIndex(fmt::format("peer{}", hop)));
   }
}

void
Storm::makeTunnels() {
   for (int each = 0; each < size_.destinations; ++each) {
      routeIs(each, each % size_.groups);
      tunnelIs(each, true);
   }
}

void
Storm::neighbourIs(int nextHop, std::uint8_t version) {
   auto message =
         Injector::making(RTM_NEWNEIGH, ndmsg{.ndm_family = AF_INET,
                                              .ndm_ifindex = devices_[static_cast<std::size_t>(nextHop)],
                                              .ndm_state = NUD_PERMANENT});
   message.ip(NDA_DST, gateway(nextHop))
         .mac(NDA_LLADDR, fmt::format("02:00:00:00:{:02x}:{:02x}", version, nextHop));
   injector_.put(message);
}

void
Storm::neighbourDel(int nextHop) {
   auto message =
         Injector::changing(RTM_DELNEIGH, ndmsg{.ndm_family = AF_INET,
                                                .ndm_ifindex = devices_[static_cast<std::size_t>(nextHop)]});
   injector_.put(message.ip(NDA_DST, gateway(nextHop)));
}

void
Storm::nextHopIs(int nextHop) {
   auto message = Injector::making(RTM_NEWNEXTHOP, nhmsg{.nh_family = AF_INET, .nh_protocol = RTPROT_STATIC});
   message.u32(NHA_ID, firstSingle + static_cast<std::uint32_t>(nextHop))
         .u32(NHA_OIF, static_cast<std::uint32_t>(devices_[static_cast<std::size_t>(nextHop)]))
         .ip(NHA_GATEWAY, gateway(nextHop));
   injector_.put(message);
}

void
Storm::groupIs(int group, std::vector<int> const& members) {
   std::vector<nexthop_grp> entries;
   for (int const member : members) {
      entries.push_back({.id = firstSingle + static_cast<std::uint32_t>(member)});
   }
   auto message =
         Injector::making(RTM_NEWNEXTHOP, nhmsg{.nh_family = AF_UNSPEC, .nh_protocol = RTPROT_STATIC});
   message.u32(NHA_ID, firstGroup + static_cast<std::uint32_t>(group))
         .bytes(NHA_GROUP, entries.data(), entries.size() * sizeof entries.front());
   injector_.put(message);
}

void
Storm::routeIs(int number, int group) {
   auto message = Injector::making(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET,
                                                       .rtm_dst_len = 32,
                                                       .rtm_table = RT_TABLE_MAIN,
                                                       .rtm_protocol = RTPROT_STATIC,
                                                       .rtm_scope = RT_SCOPE_UNIVERSE,
                                                       .rtm_type = RTN_UNICAST});
   message.ip(RTA_DST, destination(number)).u32(RTA_NH_ID, firstGroup + static_cast<std::uint32_t>(group));
   injector_.put(message);
}

void
Storm::routeDel(int number) {
   auto message = Injector::changing(RTM_DELROUTE, rtmsg{.rtm_family = AF_INET,
                                                         .rtm_dst_len = 32,
                                                         .rtm_table = RT_TABLE_MAIN,
                                                         .rtm_scope = RT_SCOPE_NOWHERE});
   injector_.put(message.ip(RTA_DST, destination(number)));
}

void
Storm::tunnelIs(int number, bool isThere) {
   ndmsg const fixed{.ndm_family = AF_BRIDGE,
                     .ndm_ifindex = tunnelDevice_,
                     .ndm_state = NUD_PERMANENT,
                     .ndm_flags = NTF_SELF};
   auto message = isThere ? Injector::making(RTM_NEWNEIGH, fixed) : Injector::changing(RTM_DELNEIGH, fixed);
   // One host behind each destination: the kernel finds an entry by its host.
   message.mac(NDA_LLADDR, fmt::format("02:00:01:00:{:02x}:{:02x}", number >> 8, number & 0xff))
         .ip(NDA_DST, destination(number));
   injector_.put(message);
}

std::vector<int>
Storm::membersOf(int group) const {
   std::vector<int> result;
   for (int const member : groups_[static_cast<std::size_t>(group)]) {
      if (!isDown_[static_cast<std::size_t>(member)]) {
         result.push_back(member);
      }
   }
   return result;
}

/// The kernel takes the next hop of a link without carrier away, and out of its groups, which it takes away
/// with their routes when they are empty.
void
Storm::linkDown(int nextHop) {
   auto const at = static_cast<std::size_t>(nextHop);
   peersInjector_.put(Injector::changing(
         RTM_NEWLINK, ifinfomsg{.ifi_index = peerDevices_[at], .ifi_flags = 0, .ifi_change = IFF_UP}));
   peersInjector_.flush();
   isDown_[at] = true;
}

void
Storm::linkUp(int nextHop) {
   auto const at = static_cast<std::size_t>(nextHop);
   peersInjector_.put(Injector::changing(
         RTM_NEWLINK, ifinfomsg{.ifi_index = peerDevices_[at], .ifi_flags = IFF_UP, .ifi_change = IFF_UP}));
   peersInjector_.flush();
   isDown_[at] = false;
   neighbourIs(nextHop, 0);
   nextHopIs(nextHop);
   for (int group = 0; group < size_.groups; ++group) {
      auto const& members = groups_[static_cast<std::size_t>(group)];
      if (std::find(members.begin(), members.end(), nextHop) != members.end()) {
         groupIs(group, membersOf(group));
      }
   }
   for (int each = 0; each < size_.destinations; ++each) {
      if (groups_[static_cast<std::size_t>(each % size_.groups)] == std::vector{nextHop}) {
         routeIs(each, each % size_.groups);
      }
   }
   injector_.flush();
}

void
Storm::blow() {
   for (int count = 0; count < 200; ++count) {
      routeIs(randomBelow(size_.destinations), randomBelow(size_.groups));
   }
   for (int count = 0; count < 20; ++count) {
      int const number = randomBelow(size_.destinations);
      routeDel(number);
      tunnelIs(number, randomBelow(2) == 0);
      tunnelIs(randomBelow(size_.destinations), true);
   }
   neighbourIs(randomBelow(size_.nextHops), static_cast<std::uint8_t>(randomBelow(4)));
   neighbourDel(randomBelow(size_.nextHops));
   auto const group = randomBelow(size_.groups);
   auto members = membersOf(randomBelow(size_.groups));
   if (!members.empty()) {
      groupIs(group, members);
   }
   injector_.flush();
   if (int const hop = randomBelow(size_.nextHops); isDown_[static_cast<std::size_t>(hop)]) {
      linkUp(hop);
   } else if (randomBelow(4) == 0) {
      linkDown(hop);
   }
}

void
Storm::calm() {
   for (int hop = 0; hop < size_.nextHops; ++hop) {
      linkUp(hop);
   }
   for (int group = 0; group < size_.groups; ++group) {
      groupIs(group, groups_[static_cast<std::size_t>(group)]);
   }
   makeTunnels();
   injector_.flush();
}

} // namespace L3TunnelAgent::Live
