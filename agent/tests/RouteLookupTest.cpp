#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

constexpr int port1 = 1;
constexpr int port2 = 2;

class RouteLookupTest : public testing::Test, protected StateBuilder {
 protected:
   RouteLookupTest() {
      link(port1, "swp1").ignoreLinkdown = true;
      link(port2, "swp2");
   }
};

} // namespace

TEST_F(RouteLookupTest, LongestPrefixWins) {
   route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")});
   route("10.255.1.1/32", {hop(port1, "10.0.0.3")});
   EXPECT_EQ(gateways("192.0.2.1"), "10.0.0.1 ");
   EXPECT_EQ(gateways("10.255.1.2"), "10.0.0.2 ");
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.3 ");
}

TEST_F(RouteLookupTest, LowestMetricWinsInWhateverOrderTheyCame) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.20")}, 20);
   route("10.255.0.0/16", {hop(port1, "10.0.0.10")}, 10);
   route("10.255.0.0/16", {hop(port1, "10.0.0.30")}, 30);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.10 ");
}

TEST_F(RouteLookupTest, RulesAreTriedByPriority) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   route("0.0.0.0/0", {hop(port1, "10.0.0.2")}, 0, 100);
   rule(10, 100);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, TableThatNoRuleUsesDoesNotCount) {
   route("10.255.1.1/32", {hop(port1, "10.0.0.1")}, 0, 100);
   EXPECT_EQ(gateways("10.255.1.1"), "no route");
}

TEST_F(RouteLookupTest, RuleThatAsksForMoreOrDoesSomethingElseDoesNotCount) {
   route("10.255.1.1/32", {hop(port1, "10.0.0.1")});
   route("10.255.1.1/32", {hop(port1, "10.0.0.2")}, 0, 100);
   state.addRule({.priority = 1, .action = FR_ACT_TO_TBL, .table = 100, .selective = true});
   state.addRule({.priority = 2, .action = FR_ACT_BLACKHOLE, .table = 100});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RuleForADestinationAppliesToThatAlone) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")}, 0, 100);
   state.addRule(
         {.priority = 1, .action = FR_ACT_TO_TBL, .table = 100, .destination = prefix("10.255.1.0/24")});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
   EXPECT_EQ(gateways("10.255.2.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RuleMaySuppressShortPrefixes) {
   route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")});
   route("0.0.0.0/0", {hop(port1, "10.0.0.3")}, 0, 100);
   state.addRule({.priority = 1, .action = FR_ACT_TO_TBL, .table = main, .suppressedLength = 0});
   rule(2, 100);
   EXPECT_EQ(gateways("192.0.2.1"), "10.0.0.3 ");
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, ThrowEndsTheTableButNotTheRules) {
   route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
   routeOfType(RTN_THROW, "10.255.1.0/24");
   EXPECT_EQ(gateways("10.255.2.1"), "10.0.0.1 ");
   EXPECT_EQ(gateways("10.255.1.1"), "no route: throw");
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")}, 0, 253);
   rule(32767, 253);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, RouteOfATypeOfServiceDoesNotCount) {
   state.tables[main].add(prefix("10.255.1.1/32"),
                          {.type = RTN_UNICAST, .tos = 16, .hops = {hop(port1, "10.0.0.1")}});
   EXPECT_EQ(gateways("10.255.1.1"), "no route");
}

TEST_F(RouteLookupTest, DeadHopIsLeftOut) {
   auto dead = hop(port1, "10.0.0.1");
   dead.dead = true;
   route("10.255.1.1/32", {dead, hop(port2, "10.0.0.2")});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, HopWithoutCarrierIsLeftOutWhereTheDeviceAsksForIt) {
   auto ignored = hop(port1, "10.0.0.1");
   auto kept = hop(port2, "10.0.0.2");
   ignored.linkdown = kept.linkdown = true;
   route("10.255.1.1/32", {ignored, kept});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, RouteWithoutAHopInUseGivesWayToTheNextMetricAndPrefix) {
   auto dead = hop(port1, "10.0.0.1");
   dead.dead = true;
   route("10.255.1.1/32", {dead}, 10);
   EXPECT_EQ(gateways("10.255.1.1"), "no route: next hops down");
   route("10.255.0.0/16", {hop(port1, "10.0.0.3")});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.3 ");
   route("10.255.1.1/32", {hop(port1, "10.0.0.2")}, 20);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
}

TEST_F(RouteLookupTest, ObjectsAndGroupsNameTheHopsAndWeights) {
   state.nextHops[1] = {.hop = hop(port1, "10.0.0.1")};
   state.nextHops[2] = {.hop = hop(port2, "fe80::2")};
   state.nextHops[3] = {.group = {{.id = 1, .weight = 3}, {.id = 2}}};
   routeByObject("10.255.1.1/32", 2);
   routeByObject("10.255.1.2/32", 3);
   EXPECT_EQ(gateways("10.255.1.1"), "fe80::2 ");
   auto const group = derive("10.255.1.2").vias;
   ASSERT_EQ(group.size(), 2U);
   EXPECT_EQ(group[0].gateway, ip("10.0.0.1"));
   EXPECT_EQ(group[0].weight, 3U);
   EXPECT_EQ(group[1].gateway, ip("fe80::2"));
   EXPECT_EQ(group[1].weight, 1U);
}

TEST_F(RouteLookupTest, ObjectThatIsMissingIsAHopThatIsNot) {
   state.nextHops[1] = {.hop = hop(port1, "10.0.0.1")};
   state.nextHops[3] = {.group = {{.id = 1}, {.id = 7}}};
   state.nextHops[4] = {.group = {{.id = 4}, {.id = 3}}};
   routeByObject("10.255.1.1/32", 3);
   routeByObject("10.255.1.2/32", 7);
   routeByObject("10.255.1.3/32", 4);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
   EXPECT_EQ(gateways("10.255.1.2"), "no route: next hops down");
   EXPECT_EQ(gateways("10.255.1.3"), "no route: next hops down") << "groups are no members of groups";
}

TEST_F(RouteLookupTest, BlackholeDropsAlsoInAGroup) {
   state.nextHops[1] = {.hop = hop(port1, "10.0.0.1")};
   state.nextHops[2] = {.blackhole = true};
   state.nextHops[3] = {.group = {{.id = 1}, {.id = 2}}};
   routeByObject("10.255.1.1/32", 2);
   routeByObject("10.255.1.2/32", 3);
   for (auto const* const destination : {"10.255.1.1", "10.255.1.2"}) {
      EXPECT_THAT(derive(destination).vias,
                  testing::ElementsAre(DerivedVia{.kind = ViaKind::drop, .reason = "blackhole"}));
   }
}

TEST_F(RouteLookupTest, RouteTypesThatForwardNothing) {
   struct Case {
      std::uint8_t type;
      ViaKind kind;
      char const* reason;
   };
   for (auto const& [type, kind, reason] :
        {Case{RTN_BLACKHOLE, ViaKind::drop, "blackhole"}, Case{RTN_UNREACHABLE, ViaKind::drop, "unreachable"},
         Case{RTN_PROHIBIT, ViaKind::drop, "prohibit"}, Case{RTN_LOCAL, ViaKind::cpu, "local"},
         Case{RTN_BROADCAST, ViaKind::cpu, "broadcast"}, Case{RTN_MULTICAST, ViaKind::cpu, "multicast"},
         Case{RTN_ANYCAST, ViaKind::cpu, "anycast"}}) {
      state.tables.clear();
      route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
      routeOfType(type, "10.255.1.1/32");
      EXPECT_THAT(derive("10.255.1.1").vias,
                  testing::ElementsAre(DerivedVia{.kind = kind, .reason = reason}));
   }
}

TEST_F(RouteLookupTest, BroadcastKeepsItsDevice) {
   state.tables[main].add(prefix("10.1.0.255/32"), {.type = RTN_BROADCAST, .hops = {hop(port2)}});
   EXPECT_THAT(
         derive("10.1.0.255").vias,
         testing::ElementsAre(DerivedVia{.kind = ViaKind::cpu, .device = port2, .reason = "broadcast"}));
}

} // namespace L3TunnelAgent
