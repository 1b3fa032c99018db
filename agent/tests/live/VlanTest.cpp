#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"
#include "agent/tests/live/Topology.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace L3TunnelAgent::Live {

namespace {

constexpr Seconds routersLimit{60};
constexpr Seconds agentLimit{10};

class VlanTest : public testing::Test {
 protected:
   void SetUp() override {
      SKIP_WITHOUT_SANDBOX();
      if (!isSupported("link add tagged link port type vlan id 5")) {
         GTEST_SKIP()
               << "This kernel has no 802.1Q sub-interfaces. Recordings cover them: agent/testdata/mixed";
      }
   }

   Folder const folder_;
};

TEST_F(VlanTest, RoutersAreReachedOverSubInterfaces) {
   ASSERT_TRUE(hasRouters()) << "FRR is not installed: script/bootstrap routers";
   Topology topology(folder_.path(), {Uplink::tagged, Uplink::tagged});
   topology.addLeaf(1);
   topology.addLeaf(2);
   auto const& lut = topology.leaf(1).space();
   RunningAgent agent(lut, folder_.path());
   agent.start();
   auto const expectWays = [&](std::size_t count) {
      EXPECT_TRUE(isWithin(routersLimit,
                           [&] { return forwarding(kernelTruth(lut), Topology::tunnelEnd(2)) == count; }));
      EXPECT_THAT(faults(lut, agent, agentLimit), testing::IsEmpty());
   };
   expectWays(2);
   topology.spine(1).space().ip("link set " + Topology::portOf(1) + " down");
   expectWays(1);
   topology.spine(1).space().ip("link set " + Topology::portOf(1) + " up");
   expectWays(2);
}

TEST_F(VlanTest, NeighboursBehindABridgeWithVlansAreFollowedFromPortToPort) {
   std::string const bridge = "link add br0 type bridge vlan_filtering 1\nlink set port master br0";
   if (!isSupported(bridge, "vlan add vid 30 dev port")) {
      GTEST_SKIP() << "This kernel's bridges have no VLANs. Recordings cover them: agent/testdata/mixed";
   }
   Namespace const space("bridged");
   space.ip(R"(link add br0 type bridge vlan_filtering 1
link add tagging type veth peer name peer1
link add stripping type veth peer name peer2
link set tagging master br0 up
link set stripping master br0 up
link set peer1 up
link set peer2 up
link set br0 up
link add br0.30 link br0 type vlan id 30
link set br0.30 up
addr add 10.1.30.1/24 dev br0.30
neigh add 10.1.30.2 lladdr 02:00:00:00:30:02 dev br0.30 nud permanent
neigh add 10.1.30.3 lladdr 02:00:00:00:30:03 dev br0.30 nud permanent
route add 10.255.1.2/32 nexthop via 10.1.30.2 nexthop via 10.1.30.3
link add vx type vxlan id 1 dstport 4789 nolearning
link set vx up)");
   space.bridge(R"(vlan add vid 30 dev br0 self
vlan add vid 30 dev tagging
vlan add vid 30 dev stripping untagged
fdb add 02:00:00:00:30:02 dev tagging master static vlan 30
fdb add 02:00:00:00:30:03 dev stripping master static vlan 30
fdb append 00:00:00:00:00:00 dev vx dst 10.255.1.2)");
   RunningAgent agent(space, folder_.path());
   agent.start();
   EXPECT_THAT(faults(space, agent, agentLimit), testing::IsEmpty());
   EXPECT_EQ(forwarding(kernelTruth(space), "10.255.1.2"), 2U);
   space.bridge("fdb replace 02:00:00:00:30:02 dev stripping master static vlan 30");
   EXPECT_THAT(faults(space, agent, agentLimit), testing::IsEmpty());
   space.bridge("vlan add vid 30 dev stripping");
   EXPECT_THAT(faults(space, agent, agentLimit), testing::IsEmpty());
   space.bridge("fdb del 02:00:00:00:30:03 dev stripping master vlan 30");
   EXPECT_THAT(faults(space, agent, agentLimit), testing::IsEmpty());
}

} // namespace

} // namespace L3TunnelAgent::Live
