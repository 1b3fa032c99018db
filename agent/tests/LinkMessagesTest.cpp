#include "agent/MessageReader.h"
#include "agent/tests/MessageBuilder.h"

#include <gmock/gmock.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/ip.h>
#include <linux/ipv6.h>
#include <linux/rtnetlink.h>
#include <map>
#include <random>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

MessageBuilder
linkMessage(std::uint16_t type = RTM_NEWLINK) {
   MessageBuilder message(type, ifinfomsg{.ifi_family = AF_UNSPEC, .ifi_index = 7, .ifi_flags = 0x1043});
   message.text(IFLA_IFNAME, "swp1").mac(IFLA_ADDRESS, "02:00:00:00:00:07");
   return message;
}

MessageBuilder
portMessage(std::uint16_t type, std::vector<bridge_vlan_info> const& vlans) {
   MessageBuilder message(type, ifinfomsg{.ifi_family = AF_BRIDGE, .ifi_index = 7});
   message.nest(IFLA_AF_SPEC, [&](MessageBuilder& bridge) {
      for (auto const& vlan : vlans) {
         bridge.bytes(IFLA_BRIDGE_VLAN_INFO, &vlan, sizeof vlan);
      }
   });
   return message;
}

Link
applied(MessageBuilder const& message) {
   KernelState state;
   applyDatagram(state, message.datagram());
   return state.links().at(7);
}

MessageBuilder&
withInfo(MessageBuilder& message, char const* kind, auto const& fillData) {
   return message.nest(IFLA_LINKINFO, [&](MessageBuilder& info) {
      info.text(IFLA_INFO_KIND, kind).nest(IFLA_INFO_DATA, fillData);
   });
}

} // namespace

TEST(LinkMessages, PlainLink) {
   Link const expected{.name = "swp1", .mac = MacAddress::parse("02:00:00:00:00:07"), .flags = 0x1043};
   EXPECT_EQ(applied(linkMessage()), expected);
}

TEST(LinkMessages, MasterAndLowerDevice) {
   auto const link = applied(linkMessage().u32(IFLA_MASTER, 9).u32(IFLA_LINK, 3));
   EXPECT_EQ(link.master, 9);
   EXPECT_EQ(link.lower, 3);
   EXPECT_FALSE(applied(linkMessage().u32(IFLA_LINK, 3).u32(IFLA_LINK_NETNSID, 0)).lower)
         << "an index in another namespace";
}

TEST(LinkMessages, Kinds) {
   auto sub = linkMessage();
   auto const vlan = applied(withInfo(sub, "vlan", [](auto& data) { data.u16(IFLA_VLAN_ID, 300); }));
   EXPECT_EQ(vlan.kind, LinkKind::vlan);
   EXPECT_EQ(vlan.vlan, 300);
   for (bool const foreign : {false, true}) {
      std::array<std::uint8_t, 2> const usual{0x81, 0x00};
      std::array<std::uint8_t, 2> const other{0x88, 0xa8};
      auto tagging = linkMessage();
      auto const link = applied(withInfo(tagging, "vlan", [&](auto& data) {
         data.u16(IFLA_VLAN_ID, 300).bytes(IFLA_VLAN_PROTOCOL, (foreign ? other : usual).data(), 2);
      }));
      EXPECT_EQ(link.foreignTag, foreign);
   }
   for (std::uint8_t const filtering : {0, 1}) {
      auto message = linkMessage();
      auto const bridge = applied(
            withInfo(message, "bridge", [&](auto& data) { data.u8(IFLA_BR_VLAN_FILTERING, filtering); }));
      EXPECT_EQ(bridge.kind, LinkKind::bridge);
      EXPECT_EQ(bridge.vlanFiltering, filtering == 1);
   }
   auto tunnel = linkMessage();
   EXPECT_EQ(applied(withInfo(tunnel, "vxlan", [](auto& data) { data.u32(IFLA_VXLAN_ID, 10); })).kind,
             LinkKind::vxlan);
   auto pair = linkMessage();
   EXPECT_EQ(applied(withInfo(pair, "veth", [](auto&) {})).kind, LinkKind::plain);
}

TEST(LinkMessages, VxlanDeviceMayBeBoundToAnother) {
   auto const bound = [](MessageBuilder message) {
      return applied(withInfo(message, "vxlan", [](auto& data) { data.u32(IFLA_VXLAN_LINK, 3); })).underlay;
   };
   EXPECT_EQ(bound(linkMessage()), 3);
   EXPECT_EQ(bound(linkMessage().u32(IFLA_LINK_NETNSID, 0)), 0) << "an index in another namespace";
   auto unbound = linkMessage();
   EXPECT_EQ(applied(withInfo(unbound, "vxlan", [](auto&) {})).underlay, 0);
   auto other = linkMessage();
   EXPECT_EQ(applied(withInfo(other, "veth", [](auto& data) { data.u32(IFLA_VXLAN_LINK, 3); })).underlay, 0);
   auto wrong = linkMessage();
   withInfo(wrong, "vxlan", [](auto& data) { data.u8(IFLA_VXLAN_LINK, 3); });
   EXPECT_THAT([&] { applied(wrong); },
               testing::ThrowsMessage<MessageError>(testing::HasSubstr("IFLA_VXLAN_LINK: 1 bytes")));
}

TEST(LinkMessages, IgnoreLinkdownIsTheDevicesOwnSetting) {
   std::vector<std::uint32_t> settings(33);
   auto const ignores = [&](std::size_t count) {
      return applied(linkMessage().nest(IFLA_AF_SPEC,
                                        [&](MessageBuilder& families) {
                                           return families.nest(AF_INET, [&](MessageBuilder& inet) {
                                              inet.bytes(IFLA_INET_CONF, settings.data(),
                                                         count * sizeof(std::uint32_t));
                                           });
                                        }))
            .ignoreLinkdown;
   };
   std::size_t const position = IPV4_DEVCONF_IGNORE_ROUTES_WITH_LINKDOWN - 1;
   EXPECT_FALSE(ignores(settings.size()));
   settings[position] = 1;
   EXPECT_TRUE(ignores(settings.size()));
   EXPECT_FALSE(ignores(position)) << "a kernel that has no such setting";
}

TEST(LinkMessages, MacOfAnotherKindOfDeviceIsNone) {
   MessageBuilder message(RTM_NEWLINK, ifinfomsg{.ifi_index = 7});
   EXPECT_FALSE(
         applied(message.text(IFLA_IFNAME, "ib0").bytes(IFLA_ADDRESS, "01234567890123456789", 20)).mac);
}

TEST(LinkMessages, LinkWithoutANameIsAnError) {
   MessageBuilder message(RTM_NEWLINK, ifinfomsg{.ifi_index = 7});
   EXPECT_THAT([&] { applied(message); },
               testing::ThrowsMessage<MessageError>("RTM_NEWLINK: IFLA_IFNAME: is missing"));
}

TEST(LinkMessages, PortVlansAreReplacedAndToldAloneOrInRanges) {
   KernelState state;
   std::uint16_t const untagged = BRIDGE_VLAN_INFO_UNTAGGED;
   applyDatagram(state,
                 portMessage(RTM_NEWLINK, {{.flags = 6, .vid = 1}, {.flags = 0, .vid = 9}}).datagram());
   EXPECT_EQ(state.portVlans().at(7), (PortVlans{{1, 6}, {9, 0}}));
   std::uint16_t const begin = BRIDGE_VLAN_INFO_RANGE_BEGIN | untagged;
   std::uint16_t const end = BRIDGE_VLAN_INFO_RANGE_END | untagged;
   applyDatagram(
         state,
         portMessage(RTM_NEWLINK, {{.flags = begin, .vid = 20}, {.flags = end, .vid = 22}}).datagram());
   EXPECT_EQ(state.portVlans().at(7), (PortVlans{{20, untagged}, {21, untagged}, {22, untagged}}));
   EXPECT_TRUE(state.links().empty()) << "it is about the port, not the link";
}

TEST(LinkMessages, OfRangesThatOverlapTheLastOneCounts) {
   KernelState state;
   std::uint16_t const untagged = BRIDGE_VLAN_INFO_UNTAGGED;
   std::uint16_t const begin = BRIDGE_VLAN_INFO_RANGE_BEGIN;
   std::uint16_t const end = BRIDGE_VLAN_INFO_RANGE_END;
   applyDatagram(state, portMessage(RTM_NEWLINK, {{.flags = begin, .vid = 1},
                                                  {.flags = end, .vid = 4095},
                                                  {.flags = untagged, .vid = 7},
                                                  {.flags = begin, .vid = 6},
                                                  {.flags = static_cast<std::uint16_t>(end | 2), .vid = 8},
                                                  {.flags = untagged, .vid = 8}})
                              .datagram());
   auto const& vlans = state.portVlans().at(7);
   EXPECT_EQ(vlans.ranges(), (std::vector<VlanRange>{{1, 5, 0}, {6, 7, 2}, {8, 8, untagged}, {9, 4095, 0}}));
   EXPECT_EQ(vlans.flags(0), std::nullopt);
   EXPECT_EQ(vlans.flags(5), 0);
   EXPECT_EQ(vlans.flags(7), 2);
   EXPECT_EQ(vlans.flags(8), untagged);
   EXPECT_EQ(vlans.flags(4095), 0);
   EXPECT_EQ(vlans.flags(4096), std::nullopt);
}

TEST(LinkMessages, AllVlansOfAPortTakeNoMoreRoomThanOne) {
   KernelState state;
   std::uint16_t const begin = BRIDGE_VLAN_INFO_RANGE_BEGIN;
   std::uint16_t const end = BRIDGE_VLAN_INFO_RANGE_END;
   applyDatagram(
         state,
         portMessage(RTM_NEWLINK, {{.flags = begin, .vid = 0}, {.flags = end, .vid = 4095}}).datagram());
   EXPECT_EQ(state.portVlans().at(7).ranges().size(), 1U);
}

TEST(PortVlans, AreWhatEachVlanWasToldLast) {
   std::mt19937 random(20261122);
   for (int round = 0; round < 300; ++round) {
      std::vector<VlanRange> told;
      std::map<std::uint16_t, std::uint16_t> expected;
      for (auto count = random() % 12; count > 0; --count) {
         auto const first = static_cast<std::uint16_t>(random() % 20);
         auto const last = static_cast<std::uint16_t>(first + random() % 8);
         told.push_back({first, last, static_cast<std::uint16_t>(random() % 3)});
         for (auto vlan = first; vlan <= last; ++vlan) {
            expected[vlan] = told.back().flags;
         }
      }
      PortVlans const vlans(told);
      std::vector<VlanRange> alone;
      for (std::uint16_t vlan = 0; vlan < 40; ++vlan) {
         auto const found = expected.find(vlan);
         ASSERT_EQ(vlans.flags(vlan), found == expected.end() ? std::nullopt : std::optional(found->second));
         if (found != expected.end()) {
            alone.push_back({vlan, vlan, found->second});
         }
      }
      ASSERT_EQ(vlans, PortVlans(alone)) << "however they were told";
   }
}

TEST(LinkMessages, WhatAPortsOwnDriverSaysIsNotTheBridges) {
   KernelState state;
   applyDatagram(state, portMessage(RTM_NEWLINK, {{.flags = 6, .vid = 10}}).datagram());
   MessageBuilder driver(RTM_NEWLINK, ifinfomsg{.ifi_family = AF_BRIDGE, .ifi_index = 7});
   driver.nest(IFLA_AF_SPEC, [](MessageBuilder& bridge) {
      bridge.u16(IFLA_BRIDGE_FLAGS, BRIDGE_FLAGS_SELF).u16(IFLA_BRIDGE_MODE, 0);
   });
   applyDatagram(state, driver.datagram());
   EXPECT_EQ(state.portVlans().at(7), (PortVlans{{10, 6}}));
   applyDatagram(state, portMessage(RTM_NEWLINK, {}).datagram());
   EXPECT_TRUE(state.portVlans().at(7).empty()) << "the bridge may say that there are none";
}

TEST(LinkMessages, PortVlanOutOfRangeIsAnError) {
   KernelState state;
   EXPECT_THAT(
         [&] { applyDatagram(state, portMessage(RTM_NEWLINK, {{.flags = 0, .vid = 4096}}).datagram()); },
         testing::ThrowsMessage<MessageError>("RTM_NEWLINK: IFLA_AF_SPEC: IFLA_BRIDGE_VLAN_INFO: VLAN 4096"));
}

TEST(LinkMessages, ViewOfAProtocolIsPassedOver) {
   KernelState state;
   auto whole = linkMessage().u32(IFLA_LINK, 3);
   applyDatagram(state, withInfo(whole, "vlan", [](auto& data) { data.u16(IFLA_VLAN_ID, 300); }).datagram());
   MessageBuilder view(RTM_NEWLINK, ifinfomsg{.ifi_family = AF_INET6, .ifi_index = 7, .ifi_flags = 0x1003});
   applyDatagram(state, view.text(IFLA_IFNAME, "swp1").datagram());
   EXPECT_EQ(state.links().at(7).kind, LinkKind::vlan) << "IPv6 does not say what kind of device it is";
}

TEST(LinkMessages, IgnoreLinkdownIsToldForEachFamily) {
   std::vector<std::uint32_t> settings(DEVCONF_IGNORE_ROUTES_WITH_LINKDOWN + 1);
   settings.back() = 1;
   auto const link = applied(linkMessage().nest(IFLA_AF_SPEC, [&](MessageBuilder& families) {
      return families.nest(AF_INET6, [&](MessageBuilder& inet6) {
         inet6.bytes(IFLA_INET6_CONF, settings.data(), settings.size() * sizeof(std::uint32_t));
      });
   }));
   EXPECT_FALSE(link.ignoreLinkdown);
   EXPECT_TRUE(link.ignoreLinkdownV6);
}

TEST(LinkMessages, RemovedPortIsStillALink) {
   KernelState state;
   applyDatagram(state, linkMessage().datagram());
   applyDatagram(state, portMessage(RTM_NEWLINK, {{.flags = 0, .vid = 1}}).datagram());
   applyDatagram(state, portMessage(RTM_DELLINK, {}).datagram());
   EXPECT_TRUE(state.portVlans().empty());
   EXPECT_EQ(state.links().size(), 1U);
   applyDatagram(state, linkMessage(RTM_DELLINK).datagram());
   EXPECT_TRUE(state.links().empty());
}

} // namespace L3TunnelAgent
