#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent::Live {

namespace {

using testing::IsEmpty;

constexpr Seconds limit{10};

/// Two ports with a router behind each, and a tunnel of each family.
void
hasTwoWays(Namespace const& space) {
   space.ip(R"(link add swp1 type veth peer name peer1
link add swp2 type veth peer name peer2
link set swp1 up
link set swp2 up
link set peer1 up
link set peer2 up
addr add 10.1.1.0/31 dev swp1
addr add 10.1.2.0/31 dev swp2
addr add 2001:db8:1::1/64 dev swp1 nodad
addr add 2001:db8:2::1/64 dev swp2 nodad
neigh add 10.1.1.1 lladdr 02:00:00:00:00:01 dev swp1 nud permanent
neigh add 10.1.2.1 lladdr 02:00:00:00:00:02 dev swp2 nud permanent
neigh add 2001:db8:1::2 lladdr 02:00:00:00:00:01 dev swp1 nud permanent
neigh add 2001:db8:2::2 lladdr 02:00:00:00:00:02 dev swp2 nud permanent
link add vx type vxlan id 1 dstport 4789 nolearning
link add vx6 type vxlan id 2 dstport 4789 local 2001:db8:1::1 nolearning
link set vx up
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

} // namespace

} // namespace L3TunnelAgent::Live
