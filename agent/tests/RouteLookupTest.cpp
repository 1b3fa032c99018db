#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

constexpr int port1 = 1;
constexpr int port2 = 2;

class RouteLookupTest : public testing::Test, protected StateBuilder {
 protected:
   RouteLookupTest() {
      link(port1, "swp1");
      relink(port1, [](Link& changed) { changed.ignoreLinkdown = true; });
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

TEST_F(RouteLookupTest, RuleThatAsksForMoreOrDoesNothingDoesNotCount) {
   route("10.255.1.1/32", {hop(port1, "10.0.0.1")});
   route("10.255.1.1/32", {hop(port1, "10.0.0.2")}, 0, 100);
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 1, .action = FR_ACT_TO_TBL, .table = 100, .selective = true});
   state.ruleIs(IpAddress::Family::v4, {.priority = 2, .action = FR_ACT_NOP, .table = 100});
   state.ruleIs(IpAddress::Family::v4, {.priority = 3, .action = FR_ACT_BLACKHOLE, .selective = true});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RuleMayDrop) {
   struct Case {
      std::uint8_t action;
      char const* reason;
   };
   for (auto const& [action, reason] :
        {Case{FR_ACT_BLACKHOLE, "blackhole"}, Case{FR_ACT_PROHIBIT, "prohibit"},
         Case{FR_ACT_UNREACHABLE, "unreachable"}}) {
      state = StateBuilder().state;
      link(port1, "swp1");
      route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
      state.ruleIs(IpAddress::Family::v4,
                   {.priority = 5, .action = action, .destination = prefix("10.255.1.0/24")});
      EXPECT_THAT(derive("10.255.1.1").vias,
                  testing::ElementsAre(DerivedVia{.kind = ViaKind::drop, .reason = reason}));
      EXPECT_EQ(gateways("10.255.2.1"), "10.0.0.1 ");
   }
}

TEST_F(RouteLookupTest, RuleMayJumpToALaterOne) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")}, 0, 100);
   auto const jump = [&](std::uint32_t priority, std::uint32_t target) {
      return Rule{.priority = priority, .action = FR_ACT_GOTO, .target = target};
   };
   rule(20, 100);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
   state.ruleIs(IpAddress::Family::v4, jump(10, 30));
   state.ruleIs(IpAddress::Family::v4, jump(11, 5));
   state.ruleIs(IpAddress::Family::v4, jump(12, 12));
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ") << "no rule is there, or it is no later one";
   rule(30, 101);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RouteThatDropsIsNotSuppressed) {
   route("0.0.0.0/0", {hop(port1, "10.0.0.1")}, 0, 100);
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 1, .action = FR_ACT_TO_TBL, .table = main, .suppressedLength = 0});
   rule(2, 100);
   for (std::uint8_t const type : {RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_PROHIBIT}) {
      routeOfType(type, "0.0.0.0/0");
      EXPECT_EQ(derive("10.255.1.1").vias.at(0).kind, ViaKind::drop);
      state.routeDel({main, prefix("0.0.0.0/0")}, {.type = type});
   }
   routeOfType(RTN_LOCAL, "0.0.0.0/0");
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RuleForADestinationAppliesToThatAlone) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")}, 0, 100);
   state.ruleIs(
         IpAddress::Family::v4,
         {.priority = 1, .action = FR_ACT_TO_TBL, .table = 100, .destination = prefix("10.255.1.0/24")});
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.2 ");
   EXPECT_EQ(gateways("10.255.2.1"), "10.0.0.1 ");
}

TEST_F(RouteLookupTest, RuleMaySuppressShortPrefixes) {
   route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
   route("10.255.0.0/16", {hop(port1, "10.0.0.2")});
   route("0.0.0.0/0", {hop(port1, "10.0.0.3")}, 0, 100);
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 1, .action = FR_ACT_TO_TBL, .table = main, .suppressedLength = 0});
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
   addRoute("10.255.1.1/32", {.type = RTN_UNICAST, .tos = 16, .hops = {hop(port1, "10.0.0.1")}});
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
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   state.nextHopIs(2, {.hop = hop(port2, "fe80::2")});
   state.nextHopIs(3, {.group = {{.id = 1, .weight = 3}, {.id = 2}}});
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
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   state.nextHopIs(3, {.group = {{.id = 1}, {.id = 7}}});
   state.nextHopIs(4, {.group = {{.id = 4}, {.id = 3}}});
   routeByObject("10.255.1.1/32", 3);
   routeByObject("10.255.1.2/32", 7);
   routeByObject("10.255.1.3/32", 4);
   EXPECT_EQ(gateways("10.255.1.1"), "10.0.0.1 ");
   EXPECT_EQ(gateways("10.255.1.2"), "no route: next hops down");
   EXPECT_EQ(gateways("10.255.1.3"), "no route: next hops down") << "groups are no members of groups";
}

TEST_F(RouteLookupTest, BlackholeDropsAlsoInAGroup) {
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   state.nextHopIs(2, {.blackhole = true});
   state.nextHopIs(3, {.group = {{.id = 1}, {.id = 2}}});
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
      state = StateBuilder().state;
      route("0.0.0.0/0", {hop(port1, "10.0.0.1")});
      routeOfType(type, "10.255.1.1/32");
      EXPECT_THAT(derive("10.255.1.1").vias,
                  testing::ElementsAre(DerivedVia{.kind = kind, .reason = reason}));
   }
}

TEST_F(RouteLookupTest, BroadcastKeepsItsDevice) {
   addRoute("10.1.0.255/32", {.type = RTN_BROADCAST, .hops = {hop(port2)}});
   EXPECT_THAT(derive("10.1.0.255").vias,
               testing::ElementsAre(DerivedVia{
                     .kind = ViaKind::cpu, .device = port2, .sourceMac = ownMac, .reason = "broadcast"}));
}

} // namespace L3TunnelAgent
