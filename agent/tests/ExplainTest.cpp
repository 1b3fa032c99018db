#include "agent/Explain.h"
#include "agent/Derive.h"
#include "agent/MessageReader.h"
#include "agent/tests/Expected.h"
#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>
#include <linux/if_bridge.h>

namespace L3TunnelAgent {

namespace {

using testing::Contains;
using testing::HasSubstr;

class ExplainTest : public testing::Test, protected StateBuilder {
 protected:
   ExplainTest() {
      link(1, "swp1");
      link(2, "swp2");
      relink(1, [](Link& changed) {
         changed.mac = mac("02:00:00:00:00:99");
         changed.ignoreLinkdown = true;
      });
   }

   std::vector<std::string> explain(std::string const& destination) {
      return explainRoute(state, ip(destination));
   }
};

std::string
text(std::vector<std::string> const& lines) {
   std::string result;
   for (auto const& line : lines) {
      result += line + "\n";
   }
   return result;
}

constexpr auto destination = "10.255.1.1";
constexpr auto peerMac = "02:00:00:00:00:01";

} // namespace

TEST_F(ExplainTest, WayOfADestinationIsToldFromItsEntriesToItsPort) {
   tunnelTo(destination);
   rule(10, 100);
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 20, .action = FR_ACT_TO_TBL, .table = 100, .selective = true});
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 30, .action = FR_ACT_TO_TBL, .table = 100, .destination = prefix("9.0.0.0/8")});
   state.ruleIs(IpAddress::Family::v4, {.priority = 40, .action = FR_ACT_NOP});
   state.nextHopIs(7, {.hop = hop(1, "10.0.0.1")});
   state.nextHopIs(8, {.group = {{.id = 7, .weight = 3}, {.id = 9}}});
   routeByObject("10.255.1.1/32", 8);
   neighbour(1, "10.0.0.1", peerMac);
   EXPECT_EQ(text(explain(destination)), R"(10.255.1.1 is a tunnel destination:
  1 forwarding entry of vx10 names it
Its route:
  rule 0: look into table 255 (local)
    the kernel told of no route there
  rule 10: look into table 100
    the kernel told of no route there
  rule 20: passed over: it asks for what is not known of a tunnel's packets
  rule 30: passed over: it is for 9.0.0.0/8
  rule 40: passed over: it does not look into a table
  rule 32766: look into table 254 (main)
    10.255.1.1/32 unicast, metric 0, next-hop object 8: taken
      next-hop object 8: group of 2 objects
      next-hop object 7: 10.0.0.1 on swp1
      next-hop object 9: the kernel told of none; it goes when its device loses carrier
      10.0.0.1 on swp1: in use, weight 3
So it is reached over 1 next hop:
  10.0.0.1 on swp1
    swp1 is up and has carrier, its address is 02:00:00:00:00:99
    neighbour 10.0.0.1 on swp1 is REACHABLE at 02:00:00:00:00:01
    it leaves by swp1, untagged
)");
}

TEST_F(ExplainTest, TunnelThatIsBoundToADeviceIsToldOf) {
   route("10.255.1.1/32", {hop(1, "10.0.0.1"), hop(2, "10.0.0.2")});
   tunnelTo(destination);
   auto const hasLine = [&](char const* line) { EXPECT_THAT(explain(destination), Contains(line)) << line; };
   hasLine("  1 forwarding entry of vx10 names it");
   EXPECT_TRUE(boundDestinations(state).empty());
   relink(vxlan, [](Link& changed) { changed.underlay = 2; });
   hasLine("  1 forwarding entry of vx10 names it, bound to swp2, which is not looked at");
   hasLine("So it is reached over 2 next hops:");
   EXPECT_THAT(boundDestinations(state), testing::ElementsAre(ip(destination)));
   VxlanKey const own{.device = vxlan, .mac = mac(peerMac)};
   state.vxlanEntryIs(own, {.destination = ip(destination), .underlay = 1});
   hasLine("  1 forwarding entry of vx10 names it, bound to swp1, which is not looked at");
   hasLine("  1 forwarding entry of vx10 names it, bound to swp2, which is not looked at");
   relink(vxlan, [](Link& changed) { changed.underlay = 0; });
   hasLine("  1 forwarding entry of vx10 names it");
   EXPECT_THAT(boundDestinations(state), testing::ElementsAre(ip(destination)));
   state.vxlanEntryDel(own);
   EXPECT_TRUE(boundDestinations(state).empty());
}

TEST_F(ExplainTest, EachAddressOfABoundObjectIsBound) {
   relink(vxlan, [](Link& changed) { changed.underlay = 2; });
   state.nextHopIs(1, {.hop = hop(0, "10.255.1.1"), .fdb = true});
   state.nextHopIs(2, {.hop = hop(0, "10.255.1.2"), .fdb = true});
   state.nextHopIs(3, {.group = {{.id = 1}, {.id = 2}}, .fdb = true});
   for (auto const* const host : {"02:00:00:00:00:01", "02:00:00:00:00:02"}) {
      state.vxlanEntryIs({.device = vxlan, .mac = mac(host)}, {.nextHopId = 3});
   }
   EXPECT_THAT(boundDestinations(state), testing::ElementsAre(ip("10.255.1.1"), ip("10.255.1.2")));
}

TEST_F(ExplainTest, AddressThatNoVxlanDeviceNamesIsNoDestination) {
   auto const lines = explain(destination);
   EXPECT_EQ(lines.front(),
             "10.255.1.1 is no tunnel destination: no forwarding entry of a vxlan device names it");
   EXPECT_EQ(lines.back(), "So there is no route: it is not programmed.");
}

TEST_F(ExplainTest, RoutesThatDoNotCountAreNamedWithTheCause) {
   auto down = hop(1, "10.0.0.1");
   down.linkdown = true;
   addRoute("10.255.1.1/32", {.type = RTN_UNICAST, .tos = 16, .hops = {hop(2, "10.0.0.2")}});
   route("10.255.1.1/32", {down}, 20);
   routeOfType(RTN_THROW, "10.255.0.0/16");
   state.ruleIs(IpAddress::Family::v4,
                {.priority = 5, .action = FR_ACT_TO_TBL, .table = 100, .suppressedLength = 8});
   route("10.0.0.0/8", {hop(2, "10.0.0.2")}, 0, 100);
   auto const lines = explain(destination);
   EXPECT_THAT(lines,
               Contains("    10.255.1.1/32 unicast, metric 0: passed over: it is for type of service 16"));
   EXPECT_THAT(
         lines,
         Contains("    10.255.1.1/32 unicast, metric 20: passed over: none of its next hops is in use"));
   EXPECT_THAT(
         lines,
         Contains("      10.0.0.1 on swp1: left out: swp1 has no carrier, and is set to be left out then"));
   EXPECT_THAT(lines, Contains("    10.255.0.0/16 throw, metric 0: ends the search of this table"));
   EXPECT_THAT(lines, Contains("    10.0.0.0/8 unicast, metric 0: ends the search of this table: the rule "
                               "suppresses lengths up to 8"));
   EXPECT_EQ(lines.back(), "So there is no route: throw: it is not programmed.");
}

TEST_F(ExplainTest, LinkThatIsOffAndHopThatIsDeadAreTold) {
   auto dead = hop(2, "10.0.0.2");
   dead.dead = true;
   route("10.255.1.1/32", {dead}, 1);
   linkFlags(1, 0);
   route("10.255.1.1/32", {hop(1, "10.0.0.1")}, 2);
   linkFlags(1, IFF_RUNNING);
   route("10.255.1.1/32", {dead}, 1);
   auto off = hop(1, "10.0.0.1");
   off.dead = true;
   route("10.255.1.1/32", {off}, 3);
   auto const lines = explain(destination);
   EXPECT_THAT(lines, Contains("      10.0.0.2 on swp2: left out: the kernel told of it as dead"));
   EXPECT_THAT(lines, Contains("      10.0.0.1 on swp1: left out: swp1 is switched off"));
}

TEST_F(ExplainTest, HopWithoutCarrierIsLeftOutForTheSettingOfItsFamilyOrForAnother) {
   route("2001:db8::1/128", {hop(1, "fe80::1"), hop(2, "fe80::2")});
   linkFlags(1, 0); // the setting of IPv4 is on, that of IPv6 is not
   linkFlags(1, IFF_UP);
   EXPECT_THAT(
         explain("2001:db8::1"),
         Contains("      fe80::1 on swp1: left out: swp1 was switched off, and has had no carrier since"));
   relink(1, [](Link& changed) { changed.ignoreLinkdownV6 = true; });
   EXPECT_THAT(
         explain("2001:db8::1"),
         Contains("      fe80::1 on swp1: left out: swp1 has no carrier, and is set to be left out then"));
   linkFlags(2, IFF_UP);
   auto dead = hop(2, "10.0.0.2");
   dead.dead = dead.linkdown = true;
   route("10.255.1.1/32", {dead});
   EXPECT_THAT(explain(destination),
               Contains("      10.0.0.2 on swp2: left out: swp2 has no carrier, and the kernel told of it as "
                        "dead"));
}

TEST_F(ExplainTest, NeighbourThatIsNotKnownIsTheCause) {
   route("10.255.1.1/32", {hop(1, "10.0.0.1")});
   EXPECT_THAT(
         explain(destination),
         Contains(
               "    neighbour 10.0.0.1 on swp1 has no entry: nothing was sent to it yet, or the kernel still "
               "asks for it, which it does not announce; only the CPU could serve it"));
   neighbour(1, "10.0.0.1", "", NUD_FAILED);
   EXPECT_THAT(explain(destination),
               Contains("    neighbour 10.0.0.1 on swp1 is FAILED: the kernel's last word; "
                        "only the CPU could serve it"));
   neighbour(1, "10.0.0.1", "", NUD_NOARP);
   EXPECT_THAT(explain(destination), Contains("    neighbour 10.0.0.1 on swp1 is NOARP without an Ethernet "
                                              "address; only the CPU could serve it"));
}

TEST_F(ExplainTest, PortBehindABridgeComesFromItsForwardingEntry) {
   link(5, "br0", LinkKind::bridge);
   relink(5, [](Link& changed) { changed.vlanFiltering = true; });
   subInterface(6, 5, 300);
   route("10.255.1.1/32", {hop(6, "10.0.0.1")});
   EXPECT_THAT(explain(destination),
               Contains("    its port is looked up by the neighbour's address, which is not known"));
   neighbour(6, "10.0.0.1", peerMac);
   EXPECT_THAT(explain(destination),
               Contains("    no forwarding entry for MAC 02:00:00:00:00:01 VLAN 300 on bridge "
                        "br0: the kernel would flood; only the CPU could serve it"));
   state.bridgeEntryIs({5, 300, mac(peerMac)}, 2);
   auto lines = explain(destination);
   EXPECT_THAT(lines,
               Contains("    forwarding entry for MAC 02:00:00:00:00:01 VLAN 300 on bridge br0: port swp2"));
   EXPECT_EQ(lines.back(), "    it leaves by swp2, tagged with VLAN 300, as that port is set for VLAN 300");
   state.portVlansAre(2, {{300, BRIDGE_VLAN_INFO_UNTAGGED}});
   EXPECT_EQ(explain(destination).back(),
             "    it leaves by swp2, untagged, as that port is set for VLAN 300");
   route("10.255.1.1/32", {hop(5, "10.0.0.1")}, 0);
   state.routeDel({main, prefix("10.255.1.1/32")}, {.type = RTN_UNICAST, .hops = {hop(6, "10.0.0.1")}});
   neighbour(5, "10.0.0.1", peerMac);
   EXPECT_THAT(explain(destination),
               Contains("    the bridge has no VLAN of its own to send in; only the CPU could serve it"));
}

TEST_F(ExplainTest, DeviceThatIsNotToldOfIsNamedByItsNumber) {
   route("10.255.1.1/32", {hop(77, "10.0.0.1")});
   EXPECT_EQ(explain(destination).back(), "    the kernel told of no device #77");
   subInterface(7, std::nullopt, 102);
   route("10.255.1.2/32", {hop(7, "10.0.0.1")});
   neighbour(7, "10.0.0.1", peerMac);
   EXPECT_EQ(explain("10.255.1.2").back(),
             "    port unknown: lower device elsewhere; only the CPU could serve it");
}

TEST_F(ExplainTest, RulesThatDropOrJumpAreTold) {
   state.ruleIs(IpAddress::Family::v4, {.priority = 10, .action = FR_ACT_GOTO, .target = 30});
   state.ruleIs(IpAddress::Family::v4, {.priority = 20, .action = FR_ACT_PROHIBIT});
   state.ruleIs(IpAddress::Family::v4, {.priority = 30, .action = FR_ACT_GOTO, .target = 40});
   state.ruleIs(IpAddress::Family::v4, {.priority = 50, .action = FR_ACT_BLACKHOLE});
   EXPECT_EQ(text(explain(destination)),
             R"(10.255.1.1 is no tunnel destination: no forwarding entry of a vxlan device names it
Its route:
  rule 0: look into table 255 (local)
    the kernel told of no route there
  rule 10: go on with rule 30
  rule 30: passed over: there is no rule to go on with
  rule 50: drop it: blackhole
So its packets are dropped: blackhole.
)");
}

TEST_F(ExplainTest, MulticastGroupAndEncapsulationNeedTheCpu) {
   EXPECT_EQ(explain("239.1.1.1").back(),
             "It is the address of a multicast group: only the CPU could serve it.");
   auto more = hop(1, "10.0.0.1");
   more.encapsulated = true;
   route("10.255.1.1/32", {more});
   EXPECT_THAT(explain(destination),
               Contains("      10.0.0.1 on swp1: in use, with one more header; only the CPU could serve it"));
}

TEST_F(ExplainTest, PortThatTagsIsNamedWithTheDeviceBelowIt) {
   link(5, "br0", LinkKind::bridge);
   subInterface(7, 2, 102);
   route("10.255.1.1/32", {hop(5, "10.0.0.1")});
   neighbour(5, "10.0.0.1", peerMac);
   state.bridgeEntryIs({5, 0, mac(peerMac)}, 7);
   EXPECT_EQ(explain(destination).back(),
             "    it leaves by swp2, which is below sub102, tagged with VLAN 102");
   state.bridgeEntryIs({5, 0, mac(peerMac)}, vxlan);
   EXPECT_EQ(explain(destination).back(), "    port unknown: a vxlan device; only the CPU could serve it");
   linkFlags(1, running | IFF_LOOPBACK);
   route("10.255.1.2/32", {hop(1, "10.0.0.1")});
   EXPECT_EQ(explain("10.255.1.2").back(), "    no port of the chip leads there");
   relink(2, [](Link& changed) { changed.mac.reset(); });
   route("10.255.1.3/32", {hop(2, "10.0.0.1")});
   neighbour(2, "10.0.0.1", peerMac);
   EXPECT_EQ(explain("10.255.1.3").back(), "    no source address; only the CPU could serve it");
}

TEST_F(ExplainTest, DropAndOwnAddressAreTold) {
   state.nextHopIs(3, {.blackhole = true});
   routeByObject("10.255.1.1/32", 3);
   auto const lines = explain(destination);
   EXPECT_THAT(lines, Contains("      next-hop object 3: blackhole"));
   EXPECT_EQ(lines.back(), "So its packets are dropped: blackhole.");
   routeOfType(RTN_LOCAL, "10.255.1.2/32", RT_TABLE_LOCAL);
   EXPECT_EQ(explain("10.255.1.2").back(), "So its packets are for this machine: local.");
   EXPECT_EQ(explain("2001:db8::1").back(), "So there is no route: it is not programmed.");
}

TEST(ExplainRecorded, EveryDestinationOfEveryFabricIsExplained) {
   for (auto const* const fabric : fabrics) {
      auto const state = recordedState(recordedFile(fabric, "dump.rnl.gz"));
      for (auto const& derived : destinations(state)) {
         auto const lines = explainRoute(state, derived.address);
         ASSERT_GE(lines.size(), 5U);
         EXPECT_EQ(lines.front(), derived.address.text() + " is a tunnel destination:");
         std::size_t leaving = 0;
         std::size_t toCpu = 0;
         for (auto const& line : lines) {
            leaving += line.starts_with("    it leaves by ") ? 1 : 0;
            toCpu += line.ends_with("only the CPU could serve it") ? 1 : 0;
         }
         std::size_t ports = 0;
         std::size_t vias = 0;
         for (auto const& via : derived.vias) {
            vias += via.gateway ? 1 : 0;
            ports += via.gateway && via.port ? 1 : 0;
         }
         EXPECT_EQ(leaving, ports) << derived.address.text();
         EXPECT_GE(leaving + toCpu, vias) << derived.address.text();
      }
   }
}

TEST_F(ExplainTest, RuleForOtherPacketsAndADeviceThatAsksForNoNeighbourAreNamed) {
   state.ruleIs(IpAddress::Family::v4, {.priority = 20, .action = FR_ACT_TO_TBL, .foreign = true});
   route("10.255.1.1/32", {hop(1, "10.0.0.1")});
   linkFlags(1, running | IFF_NOARP);
   auto const told = text(explain(destination));
   EXPECT_THAT(told, HasSubstr("  rule 20: passed over: it is for other packets than a tunnel's\n"));
   EXPECT_THAT(told,
               HasSubstr("neighbour 10.0.0.1 on swp1 needs no entry: swp1 is set not to ask for one, so "
                         "that frames go to its own address 02:00:00:00:00:99\n"));
}

} // namespace L3TunnelAgent
