#include "agent/tests/StateBuilder.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

constexpr auto hostMac = "02:00:00:00:00:01";
constexpr auto otherMac = "02:00:00:00:00:02";
constexpr int port1 = 1;
constexpr int port2 = 2;

class KernelStateTest : public testing::Test, protected StateBuilder {
 protected:
   KernelStateTest() {
      link(port1, "swp1");
      link(port2, "swp2");
      state.takeChanges();
   }

   /// Does it twice: the second time must note nothing.
   template <typename Do>
   Changes notedOnce(Do const& doIt) {
      doIt();
      auto changes = state.takeChanges();
      doIt();
      EXPECT_EQ(state.takeChanges(), Changes{}) << "the same was said again";
      return changes;
   }
};

} // namespace

TEST_F(KernelStateTest, EachKindOfChangeIsNotedByItsKeyAndOnlyWhenItIsOne) {
   NeighbourKey const peer{port1, ip("10.0.0.1")};
   EXPECT_EQ(notedOnce([&] { neighbour(port1, "10.0.0.1", hostMac); }), Changes{.neighbours = {peer}});
   EXPECT_EQ(notedOnce([&] { neighbour(port1, "10.0.0.1", otherMac); }), Changes{.neighbours = {peer}});
   EXPECT_EQ(notedOnce([&] { state.neighbourDel(peer); }), Changes{.neighbours = {peer}});

   EXPECT_EQ(notedOnce([&] { link(3, "swp3"); }), Changes{.links = {3}});
   EXPECT_EQ(notedOnce([&] { state.linkDel(3); }), Changes{.links = {3}});

   BridgeKey const entry{5, 300, mac(hostMac)};
   EXPECT_EQ(notedOnce([&] { state.bridgeEntryIs(entry, port1); }), Changes{.bridgeEntries = {entry}});
   EXPECT_EQ(notedOnce([&] { state.bridgeEntryIs(entry, port2); }), Changes{.bridgeEntries = {entry}});
   EXPECT_EQ(notedOnce([&] { state.bridgeEntryDel(entry); }), Changes{.bridgeEntries = {entry}});

   EXPECT_EQ(notedOnce([&] { state.portVlansAre(port1, {{1, 0}}); }), Changes{.portVlans = {port1}});
   EXPECT_EQ(notedOnce([&] { state.portVlansDel(port1); }), Changes{.portVlans = {port1}});

   VxlanKey const tunnel{.device = vxlan, .groupDestination = ip("10.255.1.1")};
   EXPECT_EQ(notedOnce([&] { tunnelTo("10.255.1.1"); }), Changes{.vxlanEntries = {tunnel}});
   EXPECT_EQ(notedOnce([&] { state.vxlanEntryDel(tunnel); }), Changes{.vxlanEntries = {tunnel}});

   Rule const rule{.priority = 5, .action = FR_ACT_TO_TBL, .table = 100};
   auto const v6 = IpAddress::Family::v6;
   EXPECT_EQ(notedOnce([&] { state.ruleIs(v6, rule); }), Changes{.rules = {v6}});
   EXPECT_EQ(notedOnce([&] { state.ruleDel(v6, rule); }), Changes{.rules = {v6}});

   EXPECT_EQ(notedOnce([&] { state.nextHopIs(7, {.hop = hop(port1, "10.0.0.1")}); }),
             Changes{.nextHops = {7}});
   EXPECT_EQ(notedOnce([&] { state.nextHopDel(7); }), Changes{.nextHops = {7}});

   RouteKey const key{main, prefix("10.255.0.0/16")};
   EXPECT_EQ(notedOnce([&] { route("10.255.0.0/16", {hop(port1, "10.0.0.1")}); }), Changes{.routes = {key}});
   EXPECT_EQ(notedOnce([&] { route("10.255.0.0/16", {hop(port1, "10.0.0.1")}, 20); }),
             Changes{.routes = {key}});
   EXPECT_EQ(notedOnce([&] { state.routeDel(key, {.type = RTN_UNICAST, .metric = 20}); }).routes,
             std::set<RouteKey>{key});
}

TEST_F(KernelStateTest, RemovingWhatIsNotThereIsNoChange) {
   state.linkDel(77);
   state.neighbourDel({port1, ip("10.0.0.1")});
   state.bridgeEntryDel({5, 1, mac(hostMac)});
   state.portVlansDel(port1);
   state.vxlanEntryDel({.device = vxlan, .mac = mac(hostMac)});
   state.nextHopDel(7);
   EXPECT_FALSE(state.routeDel({main, prefix("10.0.0.0/8")}, {}));
   state.ruleDel(IpAddress::Family::v4, {.priority = 1});
   EXPECT_EQ(state.takeChanges(), Changes{});
}

TEST_F(KernelStateTest, RouteToldAgainInAnotherStateOfItsHopsIsOneRouteThatChanged) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   state.takeChanges();
   auto down = hop(port1, "10.0.0.1");
   down.linkdown = true;
   route("10.255.0.0/16", {down});
   EXPECT_EQ(state.takeChanges().routes.size(), 1U);
   EXPECT_EQ(routes("10.255.0.0/16"), 1U);
}

TEST_F(KernelStateTest, HopsStateIsItsOwnUntilItsLinkIsToldOfLater) {
   auto told = hop(port1, "10.0.0.1");
   told.dead = told.linkdown = true;
   route("10.255.0.0/16", {told});
   auto const now = [&] {
      return state.hopState(state.routes({main, prefix("10.255.0.0/16")})->at(0).hops.at(0));
   };
   EXPECT_EQ(now(), (KernelState::HopState{true, true}));
   linkFlags(port1, running | IFF_PROMISC);
   EXPECT_EQ(now(), (KernelState::HopState{false, false}));
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(now(), (KernelState::HopState{false, true}));
   linkFlags(port1, IFF_UP | IFF_LOWER_UP);
   EXPECT_EQ(now(), (KernelState::HopState{false, false}));
   linkFlags(port1, IFF_UP);
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   EXPECT_EQ(now(), (KernelState::HopState{false, false})) << "told after its link";
}

TEST_F(KernelStateTest, Ipv6HopIsDeadFromSwitchingOffUntilItsDeviceHasCarrierToo) {
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.0.2")});
   route("2001:db8::/64", {hop(port1, "fe80::1"), hop(port2, "fe80::2")});
   auto const ways = [&] { return gateways("10.2.0.1") + "| " + gateways("2001:db8::1"); };
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(ways(), "10.0.0.1 10.0.0.2 | fe80::1 fe80::2 ") << "it only lacks carrier";
   linkFlags(port1, 0);
   EXPECT_EQ(ways(), "10.0.0.2 | fe80::2 ");
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(ways(), "10.0.0.1 10.0.0.2 | fe80::2 ");
   linkFlags(port1, IFF_UP | IFF_PROMISC);
   EXPECT_EQ(ways(), "10.0.0.1 10.0.0.2 | fe80::2 ");
   linkFlags(port1, running);
   EXPECT_EQ(ways(), "10.0.0.1 10.0.0.2 | fe80::1 fe80::2 ");
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(ways(), "10.0.0.1 10.0.0.2 | fe80::1 fe80::2 ");
}

TEST_F(KernelStateTest, Ipv6HopToldDeadWithoutCarrierIsUntilThereIsSome) {
   linkFlags(port1, IFF_UP);
   auto dead = hop(port1, "fe80::1");
   dead.dead = dead.linkdown = true;
   route("2001:db8::/64", {dead, hop(port2, "fe80::2")});
   EXPECT_EQ(gateways("2001:db8::1"), "fe80::2 ");
   linkFlags(port1, IFF_UP | IFF_PROMISC);
   EXPECT_EQ(gateways("2001:db8::1"), "fe80::2 ") << "the link says nothing else of it";
   linkFlags(port1, running);
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(gateways("2001:db8::1"), "fe80::1 fe80::2 ");
}

TEST_F(KernelStateTest, Ipv6HopAddedAfterSwitchingOnOnlyLacksCarrier) {
   linkFlags(port1, 0);
   linkFlags(port1, IFF_UP);
   auto added = hop(port1, "fe80::1");
   added.linkdown = true;
   route("2001:db8::/64", {added, hop(port2, "fe80::2")});
   linkFlags(port1, IFF_UP | IFF_PROMISC);
   EXPECT_EQ(gateways("2001:db8::1"), "fe80::1 fe80::2 ");
}

TEST_F(KernelStateTest, Ipv6RouteGoesWithItsLastHopThatIsNotDeadThoughDevicesAreOn) {
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.0.2")});
   route("2001:db8::/64", {hop(port1, "fe80::1"), hop(port2, "fe80::2")});
   linkFlags(port1, 0);
   linkFlags(port1, IFF_UP);
   linkFlags(port2, 0);
   EXPECT_EQ(routes("10.2.0.0/16"), 1U);
   EXPECT_EQ(routes("2001:db8::/64"), 0U);
}

TEST_F(KernelStateTest, LinkToldAgainAsItWasSpeaksForHopsMarkedSince) {
   auto marked = hop(port1, "10.0.0.1");
   marked.linkdown = true;
   auto const tellAgain = [&] {
      state.takeChanges();
      linkFlags(port1, running);
      return state.takeChanges();
   };
   route("10.255.0.0/16", {marked});
   EXPECT_EQ(tellAgain(), Changes{.links = {port1}});
   EXPECT_EQ(state.hopState(state.routes({main, prefix("10.255.0.0/16")})->at(0).hops.at(0)),
             (KernelState::HopState{false, false}));
   EXPECT_EQ(tellAgain(), Changes{});
   state.nextHopIs(1, {.hop = marked});
   EXPECT_EQ(tellAgain(), Changes{.links = {port1}});
   EXPECT_EQ(state.hopState(state.nextHop(1)->hop), (KernelState::HopState{false, false}));
   EXPECT_EQ(tellAgain(), Changes{});
   state.addressIs(port2, {ip("10.0.1.0"), 31, ip("10.0.1.0")}, true);
   route("10.255.0.0/16", {marked});
   EXPECT_EQ(tellAgain(), Changes{}) << "it may be so for want of an address";
}

TEST_F(KernelStateTest, HopWithoutAnAddressIsDeadWhateverItsLinkSaysUntilThatComesUp) {
   InterfaceAddress const own{ip("10.0.0.0"), 31, ip("10.0.0.0")};
   state.addressIs(port1, own, true);
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.1.1")});
   state.addressDel(port1, own);
   linkFlags(port1, running | IFF_PROMISC);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.1.1 ");
   linkFlags(port1, IFF_UP);
   linkFlags(port1, running);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.1.1 ");
   linkFlags(port1, 0);
   linkFlags(port1, running);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.0.1 10.0.1.1 ");
   state.addressIs(port1, own);
   state.addressDel(port1, own);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.1.1 ");
   state.addressIs(port1, own);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.0.1 10.0.1.1 ");
}

TEST_F(KernelStateTest, BridgeEntriesGoWithTheirPortAndWithTheirBridge) {
   link(5, "br5", LinkKind::bridge);
   state.bridgeEntryIs({5, 1, mac(hostMac)}, port1);
   state.bridgeEntryIs({5, 1, mac(otherMac)}, port1);
   state.bridgeEntryIs({5, 2, mac(hostMac)}, port1);
   state.bridgeEntryIs({5, 1, mac(hostMac)}, port2);
   state.bridgeEntryDel({5, 2, mac(hostMac)});
   state.takeChanges();
   state.linkDel(port1);
   EXPECT_EQ(state.takeChanges().bridgeEntries, (std::set<BridgeKey>{{5, 1, mac(otherMac)}}));
   state.linkDel(5);
   EXPECT_EQ(state.takeChanges().bridgeEntries, (std::set<BridgeKey>{{5, 1, mac(hostMac)}}));
   EXPECT_TRUE(state.bridgeEntries().empty());
}

TEST_F(KernelStateTest, LastAddressOfADeviceTakesItsInlineHops) {
   InterfaceAddress const one{ip("10.0.0.0"), 31, ip("10.0.0.0")};
   InterfaceAddress const more{ip("10.0.2.0"), 31, ip("10.0.2.0")};
   state.addressIs(port1, one, true);
   state.addressIs(port1, more, true);
   state.addressIs(port2, {ip("10.0.1.0"), 31, ip("10.0.1.0")}, true);
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   routeByObject("10.5.0.0/16", 1);
   route("10.1.0.0/16", {hop(port1, "10.0.0.1")});
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.1.1")});
   route("2001:db8::/32", {hop(port1, "fe80::1")});
   addRoute("10.8.0.0/16", {.type = RTN_UNICAST, .scope = RT_SCOPE_HOST, .hops = {hop(port1)}}, 100);
   state.takeChanges();
   state.addressDel(port1, more);
   EXPECT_EQ(state.takeChanges(), Changes{});
   state.addressDel(port1, one);
   EXPECT_EQ(routes("10.1.0.0/16"), 0U);
   EXPECT_EQ(routes("10.8.0.0/16", 100), 0U);
   EXPECT_EQ(routes("10.5.0.0/16"), 1U) << "objects do not ask for an address";
   EXPECT_EQ(routes("2001:db8::/32"), 1U);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.1.1 ");
   EXPECT_EQ(state.takeChanges().routes.size(), 3U);
   state.addressIs(port1, one);
   EXPECT_EQ(gateways("10.2.0.1"), "10.0.0.1 10.0.1.1 ");
   EXPECT_EQ(routes("10.1.0.0/16"), 0U) << "what has gone does not come back";
   state.addressDel(port1, one);
   state.addressDel(port2, {ip("10.0.1.0"), 31, ip("10.0.1.0")});
   EXPECT_EQ(routes("10.2.0.0/16"), 0U);
}

TEST_F(KernelStateTest, LastOfAnAddressTakesTheRoutesThatPreferIt) {
   InterfaceAddress const own{ip("10.9.9.9"), 32, ip("10.9.9.9")};
   state.addressIs(port1, own, true);
   state.addressIs(port2, own, true);
   state.addressIs(port1, {ip("10.0.0.0"), 31, ip("10.0.0.0")}, true);
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   Route const preferring{.type = RTN_UNICAST, .nextHopId = 1, .preferredSource = ip("10.9.9.9")};
   addRoute("10.3.0.0/16", preferring);
   addRoute("10.3.0.0/16", preferring, 100);
   routeByObject("10.4.0.0/16", 1);
   state.addressDel(port2, own);
   EXPECT_EQ(routes("10.3.0.0/16"), 1U) << "another device has it";
   state.addressDel(port1, own);
   EXPECT_EQ(routes("10.3.0.0/16"), 0U);
   EXPECT_EQ(routes("10.3.0.0/16", 100), 1U);
   EXPECT_EQ(routes("10.4.0.0/16"), 1U);
}

TEST_F(KernelStateTest, WhichAddressIsTheLastIsNotKnownWithoutADump) {
   InterfaceAddress const own{ip("10.0.0.0"), 31, ip("10.0.0.0")};
   route("10.1.0.0/16", {hop(port1, "10.0.0.1")});
   state.addressIs(port1, own);
   state.addressDel(port1, own);
   EXPECT_EQ(routes("10.1.0.0/16"), 1U);
}

TEST_F(KernelStateTest, ManyRoutesOfOnePrefixKeepTheirOrderAndUsers) {
   for (std::uint32_t metric : {30U, 10U, 20U}) {
      route("10.255.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.1.1")}, metric);
   }
   auto const& all = *state.routes({main, prefix("10.255.0.0/16")});
   ASSERT_EQ(all.size(), 3U);
   EXPECT_TRUE(std::is_sorted(all.begin(), all.end(),
                              [](Route const& a, Route const& b) { return a.metric < b.metric; }));
   state.routeDel({main, prefix("10.255.0.0/16")}, Route(all[1]));
   linkFlags(port1, 0);
   EXPECT_EQ(routes("10.255.0.0/16"), 2U) << "each has a hop left";
   linkFlags(port2, 0);
   EXPECT_EQ(routes("10.255.0.0/16"), 0U) << "the others still used the device";
}

TEST_F(KernelStateTest, SwitchedOffLinkTakesItsObjectsAndWhatUsedOnlyThem) {
   for (std::uint32_t const down : {std::uint32_t{IFF_UP}, std::uint32_t{IFF_RUNNING | IFF_LOWER_UP}}) {
      state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
      state.nextHopIs(2, {.hop = hop(port2, "10.0.0.2")});
      state.nextHopIs(3, {.group = {{.id = 1}, {.id = 2}}});
      state.nextHopIs(4, {.group = {{.id = 1}}});
      state.nextHopIs(5, {.hop = {.device = port1}, .blackhole = true});
      for (std::uint32_t id = 1; id <= 5; ++id) {
         routeByObject("10.255.1." + std::to_string(id) + "/32", id);
         routeByObject("2001:db8::" + std::to_string(id) + "/128", id);
      }
      state.vxlanEntryIs({.device = vxlan, .mac = mac(hostMac)}, {.nextHopId = 4});
      linkFlags(port1, running);
      state.takeChanges();

      linkFlags(port1, down);
      auto const changes = state.takeChanges();
      EXPECT_EQ(changes.nextHops, (std::set<std::uint32_t>{1, 3, 4}));
      EXPECT_EQ(changes.routes.size(), 4U);
      EXPECT_EQ(changes.vxlanEntries.size(), 1U) << "its object is gone";
      EXPECT_EQ(state.nextHops().size(), 3U);
      EXPECT_EQ(state.nextHop(3)->group, (std::vector<NextHopObject::Member>{{.id = 2}}));
      for (std::uint32_t id = 1; id <= 5; ++id) {
         std::size_t const left = id == 1 || id == 4 ? 0 : 1;
         EXPECT_EQ(routes("10.255.1." + std::to_string(id) + "/32"), left) << id;
         EXPECT_EQ(routes("2001:db8::" + std::to_string(id) + "/128"), left) << id;
      }
      linkFlags(port1, running);
   }
}

TEST_F(KernelStateTest, DeletedObjectTakesWhatUsesItToo) {
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   state.nextHopIs(3, {.group = {{.id = 1}}});
   routeByObject("10.255.1.3/32", 3);
   state.nextHopDel(1);
   EXPECT_TRUE(state.nextHops().empty());
   EXPECT_EQ(routes("10.255.1.3/32"), 0U);
}

TEST_F(KernelStateTest, ReplacedObjectBelongsToItsNewDeviceAndMembers) {
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   state.nextHopIs(1, {.hop = hop(port2, "10.0.0.1")});
   linkFlags(port1, IFF_UP);
   EXPECT_TRUE(state.nextHop(1));
   state.nextHopIs(2, {.hop = hop(port2, "10.0.0.2")});
   state.nextHopIs(3, {.group = {{.id = 1}}});
   state.nextHopIs(3, {.group = {{.id = 2}}});
   state.nextHopDel(1);
   EXPECT_TRUE(state.nextHop(3));
   linkFlags(port2, IFF_UP);
   EXPECT_TRUE(state.nextHops().empty());
}

TEST_F(KernelStateTest, LoopOfGroupsEndsAndGoesMemberByMember) {
   state.nextHopIs(1, {.group = {{.id = 1}, {.id = 2}}});
   state.nextHopIs(2, {.group = {{.id = 1}}});
   state.nextHopIs(3, {.group = {{.id = 2}}});
   state.nextHopDel(1);
   EXPECT_TRUE(state.nextHops().empty());
}

TEST_F(KernelStateTest, GroupThatNamesADeviceTooGoesOnce) {
   for (std::uint32_t const group : {3U, 1U}) {
      std::uint32_t const single = 4 - group;
      state.nextHopIs(single, {.hop = hop(port1, "10.0.0.1")});
      state.nextHopIs(group, {.group = {{.id = single}}, .hop = hop(port1)});
      linkFlags(port1, IFF_UP);
      EXPECT_TRUE(state.nextHops().empty());
      linkFlags(port1, running);
   }
}

TEST_F(KernelStateTest, LossOfCarrierLeavesInlineRoutesWithAHopDown) {
   route("10.255.0.0/16", {hop(port1, "10.0.0.1")});
   linkFlags(port1, IFF_UP);
   EXPECT_EQ(state.takeChanges().links, std::set<int>{port1});
   EXPECT_EQ(routes("10.255.0.0/16"), 1U);
}

TEST_F(KernelStateTest, SwitchingOffTakesInlineRoutesWhoseHopsAreAllOff) {
   route("10.1.0.0/16", {hop(port1, "10.0.0.1")});
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.0.2")});
   addRoute("10.0.0.7/32", {.type = RTN_LOCAL, .scope = RT_SCOPE_HOST, .hops = {hop(port1)}}, RT_TABLE_LOCAL);
   addRoute("10.0.0.255/32", {.type = RTN_BROADCAST, .scope = RT_SCOPE_LINK, .hops = {hop(port1)}},
            RT_TABLE_LOCAL);
   routeOfType(RTN_BLACKHOLE, "10.3.0.0/16");
   linkFlags(port1, 0);
   EXPECT_EQ(routes("10.1.0.0/16"), 0U);
   EXPECT_EQ(routes("10.2.0.0/16"), 1U);
   EXPECT_EQ(routes("10.3.0.0/16"), 1U);
   EXPECT_EQ(routes("10.0.0.7/32", RT_TABLE_LOCAL), 1U) << "the address is still this machine's";
   EXPECT_EQ(routes("10.0.0.255/32", RT_TABLE_LOCAL), 0U);
   linkFlags(port2, 0);
   EXPECT_EQ(routes("10.2.0.0/16"), 0U) << "its other hop was off already";
}

TEST_F(KernelStateTest, HopThatOnlyLacksCarrierKeepsItsRouteThoughItIsMarkedDead) {
   auto marked = hop(port2, "10.0.0.2");
   marked.dead = marked.linkdown = true; // as dumps have it where routes without carrier are ignored
   linkFlags(port2, IFF_UP);
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), marked});
   linkFlags(port1, 0);
   EXPECT_EQ(routes("10.2.0.0/16"), 1U);
}

TEST_F(KernelStateTest, RemovedLinkTakesAllThatNeedsIt) {
   neighbour(port1, "10.0.0.1", hostMac);
   neighbour(port2, "10.0.0.2", hostMac);
   state.bridgeEntryIs({5, 1, mac(hostMac)}, port1);
   state.bridgeEntryIs({5, 1, mac(otherMac)}, port2);
   state.bridgeEntryIs({port1, 1, mac(otherMac)}, port2);
   state.portVlansAre(port1, {{1, 0}});
   state.nextHopIs(1, {.hop = hop(port1, "10.0.0.1")});
   route("10.2.0.0/16", {hop(port1, "10.0.0.1"), hop(port2, "10.0.0.2")});
   route("2001:db8::/32", {hop(port1, "fe80::1"), hop(port2, "fe80::2")});
   addRoute("10.0.0.7/32", {.type = RTN_LOCAL, .scope = RT_SCOPE_HOST, .hops = {hop(port1)}}, RT_TABLE_LOCAL);
   state.linkDel(port1);
   EXPECT_EQ(state.neighbours().size(), 1U);
   EXPECT_EQ(state.bridgeEntries().size(), 1U);
   EXPECT_TRUE(state.portVlans().empty());
   EXPECT_TRUE(state.nextHops().empty());
   EXPECT_EQ(routes("10.2.0.0/16"), 0U) << "an IPv4 route goes with any of its devices";
   EXPECT_EQ(routes("10.0.0.7/32", RT_TABLE_LOCAL), 0U);
   EXPECT_EQ(state.routes({main, prefix("2001:db8::/32")})->at(0).hops.size(), 1U);
   tunnelTo("10.255.1.1");
   state.linkDel(vxlan);
   EXPECT_TRUE(state.vxlanEntries().empty());
}

TEST_F(KernelStateTest, GatewaysOfOneMetricAreOneIpv6Route) {
   route("2001:db8::/32", {hop(port1, "fe80::1")}, 1024);
   route("2001:db8::/32", {hop(port1, "fe80::1"), hop(port2, "fe80::2")}, 1024);
   EXPECT_EQ(routes("2001:db8::/32"), 1U);
   route("2001:db8::/32", {hop(port1)}, 1024);
   EXPECT_EQ(routes("2001:db8::/32"), 2U) << "one without a gateway stays on its own";
   RouteKey const key{main, prefix("2001:db8::/32")};
   EXPECT_TRUE(state.routeDel(key, {.type = RTN_UNICAST, .metric = 1024, .hops = {hop(port2, "fe80::2")}}));
   EXPECT_EQ(state.routes(key)->at(0).hops.size(), 1U);
   EXPECT_FALSE(state.routeDel(key, {.type = RTN_UNICAST, .metric = 1024, .hops = {hop(port2, "fe80::2")}}));
   EXPECT_TRUE(state.routeDel(key, {.type = RTN_UNICAST, .metric = 1024, .hops = {hop(port1, "fe80::1")}}));
   EXPECT_TRUE(state.routeDel(key, {.type = RTN_UNICAST, .metric = 1024, .hops = {hop(port1)}}));
   EXPECT_EQ(routes("2001:db8::/32"), 0U);
}

TEST_F(KernelStateTest, LinkWithoutAMessageIsNamedByItsIndex) {
   EXPECT_EQ(state.linkName(port1), "swp1");
   EXPECT_EQ(state.linkName(77), "#77");
   EXPECT_FALSE(state.link(77));
}

} // namespace L3TunnelAgent
