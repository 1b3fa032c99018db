#pragma once

#include "agent/tests/StateBuilder.h"

#include <linux/if_bridge.h>
#include <random>

namespace L3TunnelAgent {

/// Changes a machine at random, out of so few keys that they meet.
class RandomMachine : public StateBuilder {
 public:
   explicit RandomMachine(std::uint32_t seed) : random_(seed) {}

   void change() {
      switch (below(20)) {
      case 0:
      case 1:
         return changeLink();
      case 2:
      case 3:
         return changeNeighbour();
      case 4:
         return changeBridgeEntry();
      case 5:
         return below(4) ? state.portVlansAre(device(), vlans()) : state.portVlansDel(device());
      case 6:
      case 7:
      case 8:
         return changeObject();
      case 9:
      case 10:
      case 11:
      case 12:
         return changeRoute();
      case 13:
      case 14:
         return changeTunnel();
      case 15:
         return changeRule();
      case 16:
         return changeAddress();
      case 17:
         return changeSetting();
      default:
         return changeBridgeEntry();
      }
   }

   std::uint32_t below(std::uint32_t end) {
      return std::uniform_int_distribution<std::uint32_t>(0, end - 1)(random_);
   }

 private:
   using Family = IpAddress::Family;

   static constexpr int devices = 9;

   int device() { return static_cast<int>(1 + below(devices)); }
   Family family() { return below(4) ? Family::v4 : Family::v6; }

   int routedDevice() { return static_cast<int>(1 + below(7)); } // no vxlan device

   MacAddress someMac() { return {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(below(2))}}; }

   IpAddress gateway(Family of) {
      return of == Family::v4 ? IpAddress::fromV4(0x0a000000 + below(3))
                              : ip("2001:db8::" + std::to_string(below(2)));
   }

   IpAddress address(Family of) {
      return of == Family::v4 ? IpAddress::fromV4(0x0a000000 + below(24))
                              : ip("2001:db8::" + std::to_string(below(9)));
   }

   PortVlans vlans() {
      std::vector<VlanRange> told;
      for (std::uint32_t count = below(3); count > 0; --count) {
         auto const vlan = static_cast<std::uint16_t>(1 + below(2));
         told.push_back({vlan, vlan,
                         static_cast<std::uint16_t>(below(2) * BRIDGE_VLAN_INFO_PVID |
                                                    below(2) * BRIDGE_VLAN_INFO_UNTAGGED)});
      }
      return PortVlans(told);
   }

   void changeLink() {
      int const index = device();
      if (below(30) == 0) {
         return state.linkDel(index);
      }
      // Each device mostly stays what it is: 1 to 3 plain, 4 and 5 sub-interfaces, 6 and 7 bridges, 8 and 9
      // vxlan devices.
      auto kind = index <= 3   ? LinkKind::plain
                  : index <= 5 ? LinkKind::vlan
                  : index <= 7 ? LinkKind::bridge
                               : LinkKind::vxlan;
      if (below(20) == 0) {
         kind = static_cast<LinkKind>(below(4));
      }
      std::uint32_t const flags[] = {unsigned{IFF_UP} | IFF_LOWER_UP, IFF_UP, 0};
      Link link{.name = "d" + std::to_string(index),
                .kind = kind,
                .mac = someMac(),
                .flags = below(5) ? running : flags[below(3)],
                .vlanFiltering = below(5) != 0,
                .ignoreLinkdown = below(2) != 0,
                .ignoreLinkdownV6 = below(2) != 0};
      if (kind == LinkKind::vlan) {
         int const bridgeOrSub = static_cast<int>(5 + below(3));
         link.lower = below(8) ? std::optional(below(4) ? bridgeOrSub : device()) : std::nullopt;
         link.foreignTag = below(12) == 0;
         link.vlan = static_cast<std::uint16_t>(1 + below(2));
      }
      if (below(12) == 0) {
         link.mac.reset();
      }
      if (below(20) == 0) {
         link.flags |= IFF_LOOPBACK;
      }
      state.linkIs(index, link);
   }

   void changeSetting() {
      if (below(3)) {
         state.ignoreLinkdownIs(device(), family(), below(2) != 0);
      } else {
         state.ignoreLinkdownIs(below(2) != 0);
      }
   }

   InterfaceAddress ownAddress() {
      IpAddress const own = IpAddress::fromV4(0x0b000000 + below(2));
      return {own, 31, own};
   }

   void changeAddress() {
      if (below(3)) {
         state.addressIs(routedDevice(), ownAddress(), below(2) != 0);
      } else {
         state.addressDel(routedDevice(), ownAddress());
      }
   }

   void changeNeighbour() {
      NeighbourKey const key{routedDevice(), gateway(family())};
      std::uint16_t const states[] = {NUD_REACHABLE, NUD_STALE, NUD_PERMANENT, NUD_DELAY, NUD_FAILED};
      if (below(9) == 0) {
         return state.neighbourDel(key);
      }
      state.neighbourIs(
            key, {.state = states[below(5)], .mac = below(8) ? std::optional(someMac()) : std::nullopt});
   }

   void changeBridgeEntry() {
      BridgeKey const key{static_cast<int>(6 + below(2)), static_cast<std::uint16_t>(below(3)), someMac()};
      below(5) ? state.bridgeEntryIs(key, device()) : state.bridgeEntryDel(key);
   }

   NextHop randomHop(Family of) {
      NextHop result{
            .device = device(), .weight = 1 + below(2), .dead = below(8) == 0, .linkdown = below(8) == 0};
      result.encapsulated = below(12) == 0;
      if (below(8)) {
         result.gateway = gateway(below(8) ? of : Family::v6);
      }
      return result;
   }

   void changeObject() {
      std::uint32_t const id = 1 + below(12);
      if (below(6) == 0) {
         return state.nextHopDel(id);
      }
      NextHopObject object;
      if (id > 6) {
         for (std::uint32_t count = 1 + below(4); count > 0; --count) {
            object.group.push_back({.id = 1 + below(below(10) ? 6 : 12), .weight = 1 + below(3)});
         }
      } else {
         object.hop = randomHop(family());
         object.blackhole = below(10) == 0;
      }
      object.fdb = below(6) == 0;
      state.nextHopIs(id, object);
   }

   void changeRoute() {
      Family const of = family();
      std::uint8_t const lengths[] = {0, 8, 27, 29, 31, 32};
      auto const length = static_cast<std::uint8_t>(lengths[below(6)] + (of == Family::v4 ? 0 : 96));
      std::uint32_t const tables[] = {main, main, RT_TABLE_LOCAL, 100};
      RouteKey const key{tables[below(4)], Prefix::of(address(of), length)};
      std::uint8_t const types[] = {RTN_BLACKHOLE, RTN_UNREACHABLE, RTN_LOCAL, RTN_BROADCAST, RTN_THROW};
      Route route{.type = RTN_UNICAST, .metric = below(2) * 20};
      if (below(20) == 0) {
         route.tos = 16;
      }
      if (below(6) == 0) {
         route.type = types[below(5)];
      }
      if (below(4) == 0) {
         route.preferredSource = ownAddress().address;
      }
      if (below(2)) {
         route.nextHopId = 1 + below(12);
      } else {
         for (std::uint32_t count = 1 + below(3); count > 0; --count) {
            route.hops.push_back(randomHop(of));
         }
      }
      if (below(3) == 0) {
         state.routeDel(key, route);
      } else {
         state.routeIs(key, route, static_cast<RoutePlace>(below(3)));
      }
   }

   void changeTunnel() {
      VxlanKey const key{.device = static_cast<int>(8 + below(2)),
                         .mac = {{2, 0, 0, 0, 1, static_cast<std::uint8_t>(below(8))}}};
      if (below(4) == 0) {
         return state.vxlanEntryDel(key);
      }
      VxlanEntry entry;
      if (below(4)) {
         entry.destination = below(20) ? address(family()) : ip("239.1.1.1");
      } else {
         entry.nextHopId = 1 + below(12);
      }
      state.vxlanEntryIs(key, entry);
   }

   void changeRule() {
      Family const of = family();
      Rule rule{.priority = below(3) * 10, .action = FR_ACT_TO_TBL, .table = below(2) ? 100 : main};
      if (below(3) == 0) {
         rule.destination = Prefix::of(address(of), static_cast<std::uint8_t>(of == Family::v4 ? 29 : 126));
      }
      if (below(3) == 0) {
         rule.suppressedLength = below(2) * 8;
      }
      rule.selective = below(6) == 0;
      if (below(4) == 0) {
         std::uint8_t const actions[] = {FR_ACT_GOTO, FR_ACT_NOP, FR_ACT_BLACKHOLE};
         rule.action = actions[below(3)];
         rule.target = below(4) * 10;
      }
      below(2) ? state.ruleIs(of, rule) : state.ruleDel(of, rule);
   }

   std::mt19937 random_;
};

} // namespace L3TunnelAgent
