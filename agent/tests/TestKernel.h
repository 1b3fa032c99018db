#pragma once

// Before the kernel's own header of the same things, which then leaves them out.
#include <net/if.h>

#include "agent/Attributes.h"
#include "agent/live/Descriptor.h"
#include "agent/tests/KernelMessages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/if_addr.h>
#include <linux/nexthop.h>
#include <linux/veth.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

/// A network namespace of the test's own, in which the test is as long as this lasts: a real kernel's
/// interfaces and routes, that begins with nothing.
class TestKernel {
 public:
   TestKernel() : outside_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
      isThere_ = outside_.isOpen() && unshare(CLONE_NEWNET) == 0;
      if (isThere_) {
         socket_ = Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
      }
   }
   TestKernel(TestKernel const&) = delete;
   TestKernel& operator=(TestKernel const&) = delete;
   ~TestKernel() {
      if (isThere_) {
         EXPECT_EQ(setns(outside_.value(), CLONE_NEWNET), 0);
      }
   }

   /// Whether namespaces can be made here.
   bool isThere() const { return isThere_; }

   /// @return the kernel's error number, 0 when it did what the message asks for.
   int tell(MessageBuilder const& message, std::uint16_t flags = NLM_F_CREATE) const {
      auto bytes = message.datagram();
      auto* const header = reinterpret_cast<nlmsghdr*>(bytes.data());
      header->nlmsg_flags = static_cast<std::uint16_t>(flags | NLM_F_REQUEST | NLM_F_ACK);
      if (send(socket_.value(), bytes.data(), bytes.size(), 0) < 0) {
         return errno;
      }
      std::array<std::byte, 8192> answer;
      ssize_t const size = recv(socket_.value(), answer.data(), answer.size(), 0);
      if (size < static_cast<ssize_t>(sizeof(nlmsghdr) + sizeof(nlmsgerr))) {
         return EBADMSG;
      }
      nlmsgerr error{};
      std::memcpy(&error, answer.data() + sizeof(nlmsghdr), sizeof error);
      return -error.error;
   }

   /// As above, and it must.
   void does(MessageBuilder const& message, std::uint16_t flags = NLM_F_CREATE) const {
      int const error = tell(message, flags);
      ASSERT_EQ(error, 0) << std::strerror(error);
   }

   /// @return a device's number, 0 when there is none of that name.
   int index(char const* name) const {
      ifreq device{};
      std::string_view(name).copy(device.ifr_name, sizeof device.ifr_name - 1);
      return ioctl(socket_.value(), SIOCGIFINDEX, &device) == 0 ? device.ifr_ifindex : 0;
   }

   enum class LinkLocal : std::uint8_t { none, made };

   /// Two ends of a cable, both up. What the kernel does by itself for link-local addresses goes on for
   /// seconds.
   void cableIs(char const* name, char const* peer, LinkLocal addresses = LinkLocal::none) const {
      MessageBuilder message(RTM_NEWLINK, ifinfomsg{});
      message.text(IFLA_IFNAME, name).nest(IFLA_LINKINFO, [&](MessageBuilder& info) {
         info.text(IFLA_INFO_KIND, "veth").nest(IFLA_INFO_DATA, [&](MessageBuilder& data) {
            data.nest(VETH_INFO_PEER,
                      [&](MessageBuilder& other) { other.fixed(ifinfomsg{}).text(IFLA_IFNAME, peer); });
         });
      });
      does(message);
      for (char const* const end : {name, peer}) {
         if (addresses == LinkLocal::none) {
            noLinkLocalIs(end);
         }
         upIs(end, true);
      }
   }

   void noLinkLocalIs(char const* device) const {
      MessageBuilder message(RTM_NEWLINK, ifinfomsg{.ifi_index = index(device)});
      message.nest(IFLA_AF_SPEC, [](MessageBuilder& families) {
         families.nest(AF_INET6, [](MessageBuilder& settings) {
            settings.u8(IFLA_INET6_ADDR_GEN_MODE, IN6_ADDR_GEN_MODE_NONE);
         });
      });
      does(message, 0);
   }

   void upIs(char const* name, bool up) const {
      does(MessageBuilder(RTM_NEWLINK, ifinfomsg{.ifi_index = index(name),
                                                 .ifi_flags = up ? unsigned(IFF_UP) : 0U,
                                                 .ifi_change = IFF_UP}),
           0);
   }

   void linkDel(char const* name) const {
      does(MessageBuilder(RTM_DELLINK, ifinfomsg{.ifi_index = index(name)}), 0);
   }

   void addressIs(char const* device, char const* address, std::uint8_t length) const {
      MessageBuilder message(RTM_NEWADDR, ifaddrmsg{.ifa_family = familyOf(address),
                                                    .ifa_prefixlen = length,
                                                    .ifa_flags = IFA_F_NODAD, // a flag of IPv6 alone
                                                    .ifa_index = unsigned(index(device))});
      does(message.ip(IFA_LOCAL, address).ip(IFA_ADDRESS, address));
   }

   /// @return the device that the kernel sends packets to an address by; 0 when it has no route.
   int deviceTo(char const* address) const {
      MessageBuilder question(
            RTM_GETROUTE,
            rtmsg{.rtm_family = familyOf(address), .rtm_dst_len = IpAddress::parse(address).value().bits()},
            NLM_F_REQUEST);
      auto const bytes = question.ip(RTA_DST, address).datagram();
      alignas(nlmsghdr) std::array<std::byte, 8192> answer;
      if (send(socket_.value(), bytes.data(), bytes.size(), 0) < 0 ||
          recv(socket_.value(), answer.data(), answer.size(), 0) < static_cast<ssize_t>(sizeof(nlmsghdr))) {
         return 0;
      }
      auto const* const header = reinterpret_cast<nlmsghdr const*>(answer.data());
      if (header->nlmsg_type != RTM_NEWROUTE) {
         return 0;
      }
      return Attributes("RTM_NEWROUTE", header, sizeof(rtmsg)).index(L3TUNNEL_ATTRIBUTE(RTA_OIF)).value_or(0);
   }

   void neighbourIs(char const* device, char const* address, char const* mac) const {
      MessageBuilder message(
            RTM_NEWNEIGH,
            ndmsg{.ndm_family = familyOf(address), .ndm_ifindex = index(device), .ndm_state = NUD_PERMANENT});
      does(message.ip(NDA_DST, address).mac(NDA_LLADDR, mac), NLM_F_CREATE | NLM_F_REPLACE);
   }

   /// @param local address of this end, whose family is the tunnels'.
   void vxlanIs(char const* name, char const* local = "0.0.0.0", std::uint32_t vni = 10) const {
      MessageBuilder message(RTM_NEWLINK, ifinfomsg{});
      message.text(IFLA_IFNAME, name).nest(IFLA_LINKINFO, [&](MessageBuilder& info) {
         info.text(IFLA_INFO_KIND, "vxlan").nest(IFLA_INFO_DATA, [&](MessageBuilder& data) {
            bool const isV4 = familyOf(local) == AF_INET;
            data.u32(IFLA_VXLAN_ID, vni).u16(IFLA_VXLAN_PORT, htons(4789));
            data.ip(isV4 ? IFLA_VXLAN_LOCAL : IFLA_VXLAN_LOCAL6, local);
         });
      });
      does(message);
   }

   void tunnelIs(char const* device, std::string const& destination) const {
      MessageBuilder message(RTM_NEWNEIGH, ndmsg{.ndm_family = AF_BRIDGE,
                                                 .ndm_ifindex = index(device),
                                                 .ndm_state = NUD_PERMANENT | NUD_NOARP,
                                                 .ndm_flags = NTF_SELF});
      does(message.mac(NDA_LLADDR, "00:00:00:00:00:00").ip(NDA_DST, destination),
           NLM_F_CREATE | NLM_F_APPEND);
   }

   void nextHopIs(std::uint32_t id, char const* device, char const* gateway) const {
      MessageBuilder message(RTM_NEWNEXTHOP, nhmsg{.nh_family = AF_INET});
      does(message.u32(NHA_ID, id).u32(NHA_OIF, std::uint32_t(index(device))).ip(NHA_GATEWAY, gateway));
   }

   void groupIs(std::uint32_t id, std::vector<std::uint32_t> const& members) const {
      std::vector<nexthop_grp> group;
      for (auto const member : members) {
         group.push_back({.id = member});
      }
      MessageBuilder message(RTM_NEWNEXTHOP, nhmsg{.nh_family = AF_UNSPEC});
      does(message.u32(NHA_ID, id).bytes(NHA_GROUP, group.data(), group.size() * sizeof(nexthop_grp)),
           NLM_F_CREATE | NLM_F_REPLACE);
   }

   void routeIs(std::string const& to, std::uint32_t nextHop, std::uint16_t type = RTM_NEWROUTE) const {
      MessageBuilder message(type, rtmsg{.rtm_family = AF_INET,
                                         .rtm_dst_len = 32,
                                         .rtm_table = RT_TABLE_MAIN,
                                         .rtm_protocol = RTPROT_BGP,
                                         .rtm_scope = RT_SCOPE_UNIVERSE,
                                         .rtm_type = RTN_UNICAST});
      does(message.ip(RTA_DST, to).u32(RTA_NH_ID, nextHop),
           type == RTM_NEWROUTE ? NLM_F_CREATE | NLM_F_REPLACE : 0);
   }

   /// The way to two routers, a and b: devices a0 and b0, next hops 1 and 2, group 10, and a device "vx" for
   /// tunnels.
   void twoRoutersAre() const {
      upIs("lo", true);
      cableIs("a0", "a1");
      cableIs("b0", "b1");
      addressIs("a0", "10.1.0.0", 31);
      addressIs("b0", "10.2.0.0", 31);
      neighbourIs("a0", "10.1.0.1", "02:00:00:00:00:0a");
      neighbourIs("b0", "10.2.0.1", "02:00:00:00:00:0b");
      nextHopIs(1, "a0", "10.1.0.1");
      nextHopIs(2, "b0", "10.2.0.1");
      groupIs(10, {1, 2});
      vxlanIs("vx");
   }

   /// Tunnels to so many destinations, 10.255.x.y, and the routes there.
   void destinationsAre(std::size_t count, std::uint32_t nextHop = 10) const {
      for (std::size_t at = 0; at < count; ++at) {
         tunnelIs("vx", destination(at));
         routeIs(destination(at), nextHop);
      }
   }

   static std::string destination(std::size_t at) {
      return "10.255." + std::to_string(at / 250) + "." + std::to_string(at % 250 + 1);
   }

 private:
   Descriptor outside_;
   Descriptor socket_;
   bool isThere_{};
};

} // namespace L3TunnelAgent
