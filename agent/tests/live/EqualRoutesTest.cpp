#include "agent/live/Descriptor.h"
#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"
#include "agent/tests/live/TwoPorts.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <netinet/icmp6.h>
#include <sys/socket.h>

namespace L3TunnelAgent::Live {

namespace {

using testing::IsEmpty;

constexpr Seconds limit{10};

/// Sends a router advertisement to all nodes.
/// @param lifetime of the router as a default one, in seconds; 0: it is none any more.
/// @return whether it could be sent, as it can once the device has a link-local address in use.
bool
advertise(Namespace const& from, std::string const& device, std::uint16_t lifetime) {
   Descriptor const socket(from.openSocket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6));
   int const hops = 255; // which nothing that was forwarded has
   int const index = from.deviceIndex(device);
   EXPECT_EQ(setsockopt(socket.value(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops), 0);
   EXPECT_EQ(setsockopt(socket.value(), IPPROTO_IPV6, IPV6_MULTICAST_IF, &index, sizeof index), 0);
   nd_router_advert message{};
   message.nd_ra_type = ND_ROUTER_ADVERT;
   message.nd_ra_router_lifetime = htons(lifetime);
   sockaddr_in6 all{};
   all.sin6_family = AF_INET6;
   EXPECT_EQ(inet_pton(AF_INET6, "ff02::1", &all.sin6_addr), 1);
   return sendto(socket.value(), &message, sizeof message, 0, reinterpret_cast<sockaddr const*>(&all),
                 sizeof all) == static_cast<ssize_t>(sizeof message);
}

/// Two ports with a router behind each, and a tunnel of each family.
void
hasTwoWays(Namespace const& space) {
   twoPortsAre(space);
   space.ip(R"(addr add 2001:db8:1::1/64 dev swp1 nodad
addr add 2001:db8:2::1/64 dev swp2 nodad
neigh add 2001:db8:1::2 lladdr 02:00:00:00:00:01 dev swp1 nud permanent
neigh add 2001:db8:2::2 lladdr 02:00:00:00:00:02 dev swp2 nud permanent
link add vx6 type vxlan id 2 dstport 4789 local 2001:db8:1::1 nolearning
link set vx6 up)");
   space.bridge(R"(fdb append 00:00:00:00:00:00 dev vx dst 10.255.1.2
fdb append 00:00:00:00:00:00 dev vx6 dst 2001:db8:ffff::2)");
}

TEST(EqualRoutesTest, RouteOfAReplacedObjectTakesNoOthersPlace) {
   SKIP_WITHOUT_SANDBOX();
   Folder const folder;
   Namespace const space("equal");
   hasTwoWays(space);
   space.ip(R"(nexthop add id 1 via 10.1.1.1 dev swp1
nexthop add id 61 via 2001:db8:1::2 dev swp1
nexthop add id 62 via 2001:db8:2::2 dev swp2
route add 10.255.1.2/32 via 10.1.2.1
route append 10.255.1.2/32 nhid 1
route add 2001:db8:ffff::2/128 nhid 62
route append 2001:db8:ffff::2/128 nhid 61)");
   RunningAgent agent(space, folder.path());
   agent.start();
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
   space.ip(R"(nexthop replace id 1 via 10.1.1.1 dev swp1
nexthop replace id 61 via 2001:db8:1::2 dev swp1)");
   // Behind which the agent has heard of the objects too.
   space.bridge("fdb append 00:00:00:00:00:00 dev vx dst 10.255.1.3");
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
   space.ip(R"(route replace 10.255.1.2/32 via 10.1.1.1
route replace 2001:db8:ffff::2/128 via 2001:db8:1::2)");
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
}

TEST(EqualRoutesTest, AdvertisedRoutersGoOneByOne) {
   SKIP_WITHOUT_SANDBOX();
   Folder const folder;
   Namespace const space("hearing");
   Namespace const routers("routers");
   for (auto const* device : {"swp1", "swp2"}) {
      space.ip(fmt::format("link add {0} type veth peer name {0} netns routers", device));
      space.sysctl(fmt::format("net.ipv6.conf.{}.accept_ra", device), "2");
      space.ip(fmt::format("link set {} up", device));
      routers.ip(fmt::format("addr add fe80::{1}/64 dev {0} nodad\nlink set {0} up", device, device[3]));
   }
   space.ip(R"(neigh add fe80::1 lladdr 02:00:00:00:00:01 dev swp1 nud permanent
neigh add fe80::2 lladdr 02:00:00:00:00:02 dev swp2 nud permanent
link add vx6 type vxlan id 2 dstport 4789 local 2001:db8:1::1 nolearning
addr add 2001:db8:1::1/128 dev lo
link set vx6 up)");
   space.bridge("fdb append 00:00:00:00:00:00 dev vx6 dst 2001:db8:ffff::2");
   RunningAgent agent(space, folder.path());
   agent.start();
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
   auto const routes = [&] { return outputOf({"ip", "-6", "route", "show", "default"}, space.name()); };
   for (auto const* device : {"swp1", "swp2"}) {
      EXPECT_TRUE(isWithin(limit, [&] {
         return advertise(routers, device, 600) &&
                isWithin(Seconds(0.5), [&] { return routes().find(device) != std::string::npos; });
      })) << device;
   }
   EXPECT_TRUE(advertise(routers, "swp2", 0));
   EXPECT_TRUE(isWithin(limit, [&] { return routes().find("swp2") == std::string::npos; }));
   EXPECT_EQ(forwarding(kernelTruth(space), "2001:db8:ffff::2"), 1U);
   EXPECT_THAT(faults(space, agent, limit), IsEmpty());
}

} // namespace

} // namespace L3TunnelAgent::Live
