#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>
#include <linux/if_bridge.h>

namespace L3TunnelAgent {

namespace {

constexpr int port1 = 1;
constexpr int port2 = 2;
constexpr int bridge = 5;
constexpr int svi = 6;
constexpr auto peerMac = "02:00:00:00:00:01";
constexpr auto destination = "10.255.1.1";
constexpr auto gateway = "10.0.0.1";

class DeriveTest : public testing::Test, protected StateBuilder {
 protected:
   DeriveTest() {
      link(port1, "swp1");
      link(port2, "swp2");
      link(bridge, "br0", LinkKind::bridge);
      filtering(true);
      subInterface(svi, bridge, 300);
   }

   void filtering(bool isOn) {
      relink(bridge, [&](Link& changed) { changed.vlanFiltering = isOn; });
   }

   /// @return the one via to the destination over a device, on which the gateway is resolved.
   DerivedVia viaOver(int device) {
      route("10.255.1.1/32", {hop(device, gateway)});
      neighbour(device, gateway, peerMac);
      auto const vias = derive(destination).vias;
      EXPECT_EQ(vias.size(), 1U);
      return vias.empty() ? DerivedVia{} : vias.front();
   }

   DerivedVia unicast(int device) {
      return {.kind = ViaKind::unicast,
              .mac = mac(peerMac),
              .device = device,
              .sourceMac = ownMac,
              .gateway = ip(gateway)};
   }
};

} // namespace

TEST_F(DeriveTest, PlainDeviceIsThePort) {
   auto expected = unicast(port1);
   expected.port = port1;
   expected.tagged = false;
   EXPECT_EQ(viaOver(port1), expected);
}

TEST_F(DeriveTest, SubInterfaceLeavesItsLowerDeviceTagged) {
   subInterface(7, port2, 102);
   auto expected = unicast(7);
   expected.port = port2;
   expected.vlan = 102;
   expected.tagged = true;
   EXPECT_EQ(viaOver(7), expected);
}

TEST_F(DeriveTest, SubInterfaceOfADeviceElsewhereHasNoPort) {
   subInterface(7, std::nullopt, 102);
   auto expected = unicast(7);
   expected.vlan = 102;
   expected.reason = "port unknown: lower device elsewhere";
   EXPECT_EQ(viaOver(7), expected);
}

TEST_F(DeriveTest, WhatIsNoPortOfTheChipIsNamed) {
   auto const expect = [&](int device, std::string const& reason) {
      auto const via = viaOver(device);
      EXPECT_EQ(via.kind, ViaKind::unicast);
      EXPECT_FALSE(via.port) << reason;
      EXPECT_FALSE(via.tagged) << reason;
      EXPECT_EQ(via.reason, reason);
      state.routeDel({main, prefix("10.255.1.1/32")}, {.type = RTN_UNICAST, .hops = {hop(device, gateway)}});
   };
   subInterface(7, 77, 102);
   expect(7, "port unknown: no such device");
   subInterface(7, port2, 102);
   subInterface(8, 7, 103);
   expect(8, "port unknown: tagged twice");
   relink(7, [](Link& changed) { changed.foreignTag = true; });
   expect(7, "port unknown: not an 802.1Q tag");
   expect(vxlan, "port unknown: a vxlan device");
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, vxlan);
   expect(svi, "port unknown: a vxlan device");
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, 77);
   expect(svi, "port unknown: no such device");
   link(10, "br1", LinkKind::bridge);
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, 10);
   expect(svi, "port unknown: a bridge on another");
   linkFlags(port1, running | IFF_LOOPBACK);
   expect(port1, "port unknown: loopback");
}

TEST_F(DeriveTest, PortThatTagsLeavesByTheDeviceBelowIt) {
   filtering(false);
   subInterface(7, port2, 102);
   state.bridgeEntryIs({bridge, 0, mac(peerMac)}, 7);
   auto expected = unicast(bridge);
   expected.port = port2;
   expected.vlan = 102;
   expected.tagged = true;
   EXPECT_EQ(viaOver(bridge), expected);
   state.routeDel({main, prefix("10.255.1.1/32")}, {.type = RTN_UNICAST, .hops = {hop(bridge, gateway)}});
   EXPECT_EQ(viaOver(svi).reason, "port unknown: tagged twice") << "the bridge carries the SVI's tag along";
   filtering(true);
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, 7);
   state.portVlansAre(7, {{300, BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED}});
   auto const via = derive(destination).vias.at(0);
   EXPECT_EQ(via.port, port2);
   EXPECT_EQ(via.vlan, 102);
   EXPECT_EQ(via.tagged, true);
}

TEST_F(DeriveTest, DeviceWithoutAnAddressHasNoneToSendFrom) {
   relink(port1, [](Link& changed) { changed.mac.reset(); });
   auto const via = viaOver(port1);
   EXPECT_EQ(via.port, port1);
   EXPECT_FALSE(via.sourceMac);
   EXPECT_EQ(via.reason, "no source address");
}

TEST_F(DeriveTest, MulticastGroupNeedsSoftwareWhateverTheRoutesSay) {
   route("0.0.0.0/0", {hop(port1, gateway)});
   route("::/0", {hop(port1, "fe80::1")});
   neighbour(port1, gateway, peerMac);
   neighbour(port1, "fe80::1", peerMac);
   for (auto const* const group : {"224.0.0.0", "239.1.1.1", "ff05::100"}) {
      EXPECT_THAT(derive(group).vias,
                  testing::ElementsAre(DerivedVia{.kind = ViaKind::cpu, .reason = "multicast group"}));
   }
   for (auto const* const single : {"223.255.255.255", "240.0.0.1", "fe00::1"}) {
      EXPECT_EQ(derive(single).vias.at(0).kind, ViaKind::unicast) << single;
   }
}

TEST_F(DeriveTest, EncapsulationNeedsSoftware) {
   auto more = hop(port1, gateway);
   more.encapsulated = true;
   route("10.255.1.1/32", {more, hop(port2, gateway)});
   neighbour(port1, gateway, peerMac);
   neighbour(port2, gateway, peerMac);
   auto const vias = derive(destination).vias;
   ASSERT_EQ(vias.size(), 2U);
   EXPECT_EQ(vias[0], (DerivedVia{.kind = ViaKind::cpu,
                                  .device = port1,
                                  .sourceMac = ownMac,
                                  .gateway = ip(gateway),
                                  .reason = "encapsulation"}));
   EXPECT_EQ(vias[1].kind, ViaKind::unicast);
}

TEST_F(DeriveTest, PortBehindABridgeIsFoundByBridgeVlanAndMac) {
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, port2);
   state.bridgeEntryIs({bridge, 301, mac(peerMac)}, port1);
   state.bridgeEntryIs({bridge + 20, 300, mac(peerMac)}, port1);
   state.portVlansAre(port2, {{300, 0}});
   auto expected = unicast(svi);
   expected.port = port2;
   expected.vlan = 300;
   expected.tagged = true;
   EXPECT_EQ(viaOver(svi), expected);
}

TEST_F(DeriveTest, PortMayLeaveAVlanUntagged) {
   state.bridgeEntryIs({bridge, 300, mac(peerMac)}, port2);
   state.portVlansAre(port2, {{1, 0}, {300, BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED}});
   auto const via = viaOver(svi);
   EXPECT_EQ(via.vlan, 300);
   EXPECT_EQ(via.tagged, false);
}

TEST_F(DeriveTest, MacThatTheBridgeDoesNotKnowHasNoPort) {
   state.bridgeEntryIs({bridge, 301, mac(peerMac)}, port1);
   auto expected = unicast(svi);
   expected.vlan = 300;
   expected.reason = "fdb-miss";
   EXPECT_EQ(viaOver(svi), expected);
}

TEST_F(DeriveTest, BridgeWithoutVlansIsUntagged) {
   filtering(false);
   state.bridgeEntryIs({bridge, 0, mac(peerMac)}, port1);
   auto expected = unicast(bridge);
   expected.port = port1;
   expected.tagged = false;
   EXPECT_EQ(viaOver(bridge), expected);
}

TEST_F(DeriveTest, BridgeWithoutVlansCarriesATagAlong) {
   filtering(false);
   state.bridgeEntryIs({bridge, 0, mac(peerMac)}, port1);
   auto const via = viaOver(svi);
   EXPECT_EQ(via.port, port1);
   EXPECT_EQ(via.vlan, 300);
   EXPECT_EQ(via.tagged, true);
}

TEST_F(DeriveTest, BridgeWithVlansSendsInItsOwnPortVlan) {
   state.bridgeEntryIs({bridge, 1, mac(peerMac)}, port1);
   EXPECT_EQ(viaOver(bridge).reason, "fdb-miss") << "it has no port VLAN";
   state.portVlansAre(bridge, {{1, BRIDGE_VLAN_INFO_PVID}, {2, 0}});
   state.portVlansAre(port1, {{1, BRIDGE_VLAN_INFO_UNTAGGED}});
   auto via = viaOver(bridge);
   EXPECT_EQ(via.port, port1);
   EXPECT_EQ(via.tagged, false);
   EXPECT_FALSE(via.vlan);
   state.portVlansAre(port1, {{1, 0}});
   via = viaOver(bridge);
   EXPECT_EQ(via.tagged, true);
   EXPECT_EQ(via.vlan, 1);
}

TEST_F(DeriveTest, NeighbourStatesThatAreResolved) {
   for (int const usable : {NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE, NUD_PERMANENT, NUD_NOARP}) {
      viaOver(port1);
      neighbour(port1, gateway, peerMac, static_cast<std::uint16_t>(usable));
      EXPECT_EQ(derive(destination).vias.at(0).kind, ViaKind::unicast) << usable;
   }
}

TEST_F(DeriveTest, NeighbourWithoutAnEntryOnADeviceThatAsksForNoneIsTheDeviceItself) {
   viaOver(port1);
   state.neighbourDel({port1, ip(gateway)});
   linkFlags(port1, running | IFF_NOARP);
   auto expected = unicast(port1);
   expected.mac = ownMac;
   expected.port = port1;
   expected.tagged = false;
   EXPECT_THAT(derive(destination).vias, testing::ElementsAre(expected));
   expected.mac = expected.sourceMac = mac("02:00:00:00:00:77");
   relink(port1, [&](Link& changed) { changed.mac = expected.mac; });
   EXPECT_THAT(derive(destination).vias, testing::ElementsAre(expected));
   neighbour(port1, gateway, peerMac, NUD_FAILED);
   EXPECT_EQ(derive(destination).vias.at(0).kind, ViaKind::cpu) << "an entry that is there counts";
   state.neighbourDel({port1, ip(gateway)});
   relink(port1, [](Link& changed) { changed.mac.reset(); });
   EXPECT_EQ(derive(destination).vias.at(0).reason, "neighbour unresolved: no Ethernet address");
}

TEST_F(DeriveTest, UnresolvedNeighbourNeedsSoftware) {
   DerivedVia expected{.kind = ViaKind::cpu,
                       .device = port1,
                       .sourceMac = ownMac,
                       .port = port1,
                       .tagged = false,
                       .gateway = ip(gateway)};
   viaOver(port1);
   auto const expect = [&](std::string const& reason) {
      expected.reason = "neighbour unresolved: " + reason;
      EXPECT_THAT(derive(destination).vias, testing::ElementsAre(expected));
   };
   neighbour(port1, gateway, peerMac, NUD_FAILED);
   expect("FAILED");
   neighbour(port1, gateway, "", NUD_INCOMPLETE);
   expect("INCOMPLETE");
   neighbour(port1, gateway, "", NUD_NOARP);
   expect("no Ethernet address");
   neighbour(port1, gateway, peerMac, NUD_NONE);
   expect("no state");
   state.neighbourDel({port1, ip(gateway)});
   expect("no entry");
}

TEST_F(DeriveTest, UnresolvedNeighbourBehindABridgeHasNoPortButAVlan) {
   viaOver(svi);
   state.neighbourDel({svi, ip(gateway)});
   EXPECT_THAT(derive(destination).vias,
               testing::ElementsAre(DerivedVia{.kind = ViaKind::cpu,
                                               .device = svi,
                                               .sourceMac = ownMac,
                                               .vlan = 300,
                                               .gateway = ip(gateway),
                                               .reason = "neighbour unresolved: no entry"}));
}

TEST_F(DeriveTest, EachNextHopIsResolvedOnItsOwn) {
   route("10.255.1.1/32", {hop(port1, gateway), hop(port2, "fe80::2")});
   neighbour(port2, "fe80::2", peerMac);
   auto const vias = derive(destination).vias;
   ASSERT_EQ(vias.size(), 2U);
   EXPECT_EQ(vias[0].kind, ViaKind::cpu);
   EXPECT_EQ(vias[1].kind, ViaKind::unicast);
   EXPECT_EQ(vias[1].port, port2);
}

TEST_F(DeriveTest, DestinationOnAConnectedNetworkIsItsOwnNeighbour) {
   route("10.1.0.0/24", {hop(port1)});
   neighbour(port1, "10.1.0.7", peerMac);
   auto const via = derive("10.1.0.7").vias.at(0);
   EXPECT_EQ(via.kind, ViaKind::unicast);
   EXPECT_EQ(via.gateway, ip("10.1.0.7"));
}

TEST_F(DeriveTest, NextHopOverAnUnknownDeviceNeedsSoftware) {
   auto const via = viaOver(77);
   EXPECT_EQ(via.kind, ViaKind::cpu);
   EXPECT_EQ(via.reason, "device unknown");
}

TEST_F(DeriveTest, DestinationsAreThoseOfVxlanDevicesInBothFamilies) {
   auto const add = [&](int device, char const* macText, char const* address) {
      state.vxlanEntryIs({.device = device, .mac = mac(macText)}, {.destination = ip(address)});
   };
   add(vxlan, "02:00:00:00:00:11", "10.255.1.2");
   add(vxlan, "02:00:00:00:00:12", "10.255.1.2");
   add(vxlan, "02:00:00:00:00:13", "2001:db8::1");
   add(port1, "02:00:00:00:00:14", "10.255.1.3");
   add(77, "02:00:00:00:00:15", "10.255.1.4");
   tunnelTo("9.0.0.1");
   EXPECT_THAT(destinations(state),
               testing::ElementsAre(Destination{.address = ip("9.0.0.1"), .reason = "no route"},
                                    Destination{.address = ip("10.255.1.2"), .reason = "no route"},
                                    Destination{.address = ip("2001:db8::1"), .reason = "no route"}));
}

TEST_F(DeriveTest, GatewaysOfAForwardingGroupAreDestinations) {
   state.nextHopIs(1, {.hop = {.gateway = ip("10.255.1.2")}, .fdb = true});
   state.nextHopIs(2, {.hop = {.gateway = ip("10.255.1.3")}, .fdb = true});
   state.nextHopIs(3, {.group = {{.id = 1}, {.id = 2}, {.id = 8}}, .fdb = true});
   state.vxlanEntryIs({.device = vxlan, .mac = mac("02:00:00:00:00:11")}, {.nextHopId = 3});
   state.vxlanEntryIs({.device = vxlan, .mac = mac("02:00:00:00:00:12")}, {.nextHopId = 9});
   auto const all = destinations(state);
   ASSERT_EQ(all.size(), 2U);
   EXPECT_EQ(all[0].address, ip("10.255.1.2"));
   EXPECT_EQ(all[1].address, ip("10.255.1.3"));
}

} // namespace L3TunnelAgent
