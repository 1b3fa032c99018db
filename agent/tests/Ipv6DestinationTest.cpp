#include "agent/Agent.h"
#include "agent/MessageReader.h"
#include "agent/tests/FabricDriver.h"
#include "agent/tests/KernelMessages.h"
#include "agent/views/Audit.h"

#include <gmock/gmock.h>
#include <linux/fib_rules.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

using testing::ElementsAre;

constexpr int port1 = 1;
constexpr int port2 = 2;
constexpr int vxlan = 9;

IpAddress
ip(std::string const& text) {
   return IpAddress::parse(text).value();
}

/// A machine with two uplinks and one IPv6 tunnel destination, all told by messages of a kernel.
class Ipv6Destination : public testing::Test {
 protected:
   static constexpr auto destination = "2001:db8:ffff::1";

   Ipv6Destination() {
      apply(linkMessage(port1, "swp1", "veth"));
      apply(linkMessage(port2, "swp2", "veth"));
      apply(linkMessage(vxlan, "vx10", "vxlan"));
      apply(neighbourMessage(port1, "fe80::1", "02:00:00:00:00:01"));
      apply(neighbourMessage(port2, "fe80::2", "02:00:00:00:00:02"));
      apply(tunnelMessage(RTM_NEWNEIGH, vxlan, destination));
   }

   void apply(MessageBuilder const& message) {
      told.push_back(message.datagram());
      applyDatagram(state, told.back());
   }

   void routeBy(int device, char const* gateway, std::uint16_t type = RTM_NEWROUTE, std::uint16_t flags = 0) {
      apply(routeMessage(type, destination, 128, RTN_UNICAST, RT_TABLE_MAIN, flags)
                  .u32(RTA_OIF, static_cast<std::uint32_t>(device))
                  .ip(RTA_GATEWAY, gateway));
   }

   Destination derived() {
      derivation.update(state.takeChanges());
      EXPECT_EQ(destinations(state).size(), derivation.destinations().size());
      auto const& found = derivation.destinations().at(ip(destination));
      EXPECT_EQ(found, destinations(state).at(0));
      return found;
   }

   /// @return the gateways of all vias in a row, or why there is none.
   std::string gateways() {
      auto const found = derived();
      std::string text = found.vias.empty() ? found.reason : "";
      for (auto const& via : found.vias) {
         text += via.gateway ? via.gateway->text() + " " : via.reason;
      }
      return text;
   }

   /// Tells an agent what was told since it was told last.
   void tell(Agent& agent) {
      for (auto const& datagram : std::exchange(told, {})) {
         agent.messageIs(datagram);
      }
      while (agent.step()) {
      }
   }

   /// The same, and says what its chip does with the destination.
   ReachedSet reachedBy(Agent& agent) {
      tell(agent);
      auto const& programmed = agent.fabric().destinations().at(ip(destination));
      EXPECT_EQ(programmed.state(), DestinationState::success) << programmed.reason;
      EXPECT_TRUE(audit(agent.fabric()).findings.empty()) << text(audit(agent.fabric()), Paint());
      if (!programmed.group) {
         return {};
      }
      auto const rows = ModelChip::followGroup(agent.fabric().chip(), programmed.group->hwEntryIndex());
      EXPECT_EQ(rows.problem, "");
      return reached(rows);
   }

   /// A packet to the neighbour of that number, by the port.
   static Reached packet(Agent const& agent, std::uint8_t neighbour, int port) {
      return {.type = unsigned(ZandorL3Tunnel::DestinationType::unicast),
              .port = agent.fabric().ports().number(port).value_or(0),
              .neighbour = ethAddr(MacAddress{{2, 0, 0, 0, 0, neighbour}}),
              .source = ethAddr(MacAddress{{2, 0, 0, 0, 0, 0x99}}),
              .tag = {}};
   }

   KernelState state;
   Derivation derivation{state};
   std::vector<std::vector<std::byte>> told{};
};

} // namespace

TEST_F(Ipv6Destination, WithoutARouteSaysSo) {
   EXPECT_EQ(gateways(), "no route");
}

TEST_F(Ipv6Destination, GatewayLeadsToItsNeighbour) {
   routeBy(port1, "fe80::1");
   EXPECT_THAT(derived().vias, ElementsAre(DerivedVia{.kind = ViaKind::unicast,
                                                      .mac = MacAddress{{2, 0, 0, 0, 0, 1}},
                                                      .device = port1,
                                                      .sourceMac = MacAddress{{2, 0, 0, 0, 0, 0x99}},
                                                      .port = port1,
                                                      .tagged = false,
                                                      .gateway = ip("fe80::1")}));
}

TEST_F(Ipv6Destination, SecondGatewayOfAMetricIsToldWithTheFirst) {
   routeBy(port1, "fe80::1");
   struct {
      rtnexthop first{.rtnh_len = 28, .rtnh_hops = 0, .rtnh_ifindex = port1};
      nlattr firstHead{.nla_len = 20, .nla_type = RTA_GATEWAY};
      std::array<std::uint8_t, 16> firstGateway = ip("fe80::1").bytes;
      rtnexthop second{.rtnh_len = 28, .rtnh_hops = 0, .rtnh_ifindex = port2};
      nlattr secondHead{.nla_len = 20, .nla_type = RTA_GATEWAY};
      std::array<std::uint8_t, 16> secondGateway = ip("fe80::2").bytes;
   } const hops;
   apply(routeMessage(RTM_NEWROUTE, destination, 128, RTN_UNICAST, RT_TABLE_MAIN, NLM_F_APPEND)
               .bytes(RTA_MULTIPATH, &hops, sizeof hops));
   EXPECT_EQ(gateways(), "fe80::1 fe80::2 ");
   routeBy(port1, "fe80::1", RTM_DELROUTE);
   EXPECT_EQ(gateways(), "fe80::2 ");
   routeBy(port2, "fe80::2", RTM_DELROUTE);
   EXPECT_EQ(gateways(), "no route");
}

TEST_F(Ipv6Destination, ReplacedRouteIsAnother) {
   routeBy(port1, "fe80::1");
   routeBy(port2, "fe80::2", RTM_NEWROUTE, NLM_F_REPLACE);
   EXPECT_EQ(gateways(), "fe80::2 ");
}

TEST_F(Ipv6Destination, LongestPrefixWins) {
   apply(routeMessage(RTM_NEWROUTE, "2001:db8::", 32).u32(RTA_OIF, port1).ip(RTA_GATEWAY, "fe80::1"));
   EXPECT_EQ(gateways(), "fe80::1 ");
   apply(routeMessage(RTM_NEWROUTE, "2001:db8:ffff::", 48).u32(RTA_OIF, port2).ip(RTA_GATEWAY, "fe80::2"));
   EXPECT_EQ(gateways(), "fe80::2 ");
   apply(routeMessage(RTM_NEWROUTE, "2001:db8:fffe::", 48, RTN_BLACKHOLE));
   EXPECT_EQ(gateways(), "fe80::2 ");
}

TEST_F(Ipv6Destination, ObjectsAndGroupsNameTheHops) {
   nhmsg const fixed{.nh_family = AF_INET6};
   apply(MessageBuilder(RTM_NEWNEXTHOP, fixed).u32(NHA_ID, 1).u32(NHA_OIF, port1).ip(NHA_GATEWAY, "fe80::1"));
   apply(MessageBuilder(RTM_NEWNEXTHOP, fixed).u32(NHA_ID, 2).u32(NHA_OIF, port2).ip(NHA_GATEWAY, "fe80::2"));
   nexthop_grp const members[] = {{.id = 1}, {.id = 2}};
   apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{}).u32(NHA_ID, 3).bytes(NHA_GROUP, members, sizeof members));
   apply(routeMessage(RTM_NEWROUTE, destination, 128).u32(RTA_NH_ID, 3));
   EXPECT_EQ(gateways(), "fe80::1 fe80::2 ");
   apply(linkMessage(port1, "swp1", "veth", IFF_UP));
   EXPECT_EQ(gateways(), "fe80::2 ") << "the object went with its device's carrier";
   apply(linkMessage(port2, "swp2", "veth", 0));
   EXPECT_EQ(gateways(), "no route") << "the route went with its last object";
}

TEST_F(Ipv6Destination, LocalAddressIsForThisMachine) {
   apply(routeMessage(RTM_NEWROUTE, destination, 128, RTN_LOCAL, RT_TABLE_LOCAL).u32(RTA_OIF, port1));
   EXPECT_EQ(gateways(), "local") << "the kernel asks its local table first, also when it told of no rule";
}

TEST_F(Ipv6Destination, UnreachableIsDropped) {
   apply(routeMessage(RTM_NEWROUTE, destination, 128, RTN_UNREACHABLE).u32(RTA_OIF, 77));
   EXPECT_EQ(gateways(), "unreachable");
}

TEST_F(Ipv6Destination, DestinationOnAConnectedNetworkIsItsOwnNeighbour) {
   apply(routeMessage(RTM_NEWROUTE, "2001:db8:ffff::", 64).u32(RTA_OIF, port2));
   EXPECT_THAT(derived().vias, ElementsAre(testing::Field(&DerivedVia::kind, ViaKind::cpu)));
   apply(neighbourMessage(port2, destination, "02:00:00:00:00:07"));
   EXPECT_THAT(derived().vias, ElementsAre(testing::Field(&DerivedVia::kind, ViaKind::unicast)));
}

TEST_F(Ipv6Destination, RuleOfItsFamilyLeadsToAnotherTable) {
   routeBy(port1, "fe80::1");
   apply(routeMessage(RTM_NEWROUTE, destination, 128, RTN_BLACKHOLE, 100));
   EXPECT_EQ(gateways(), "fe80::1 ");
   auto const rule = [](std::uint8_t family, std::uint8_t length, char const* to) {
      return MessageBuilder(
                   RTM_NEWRULE,
                   fib_rule_hdr{.family = family, .dst_len = length, .table = 100, .action = FR_ACT_TO_TBL})
            .u32(FRA_PRIORITY, 50)
            .ip(FRA_DST, to);
   };
   apply(rule(AF_INET, 0, "0.0.0.0"));
   apply(rule(AF_INET6, 48, "2001:db8:fffe::"));
   EXPECT_EQ(gateways(), "fe80::1 ");
   apply(rule(AF_INET6, 48, "2001:db8:ffff::"));
   EXPECT_EQ(gateways(), "blackhole");
}

TEST_F(Ipv6Destination, IsProgrammedDownToTheChipsRowsAndMovesWithItsRoute) {
   Agent agent;
   routeBy(port1, "fe80::1");
   auto found = reachedBy(agent);
   EXPECT_THAT(found, ElementsAre(packet(agent, 1, port1)));
   routeBy(port2, "fe80::2", RTM_NEWROUTE, NLM_F_REPLACE);
   found = reachedBy(agent);
   EXPECT_THAT(found, ElementsAre(packet(agent, 2, port2)));
   apply(neighbourMessage(port2, "fe80::2", "02:00:00:00:00:07"));
   found = reachedBy(agent);
   EXPECT_THAT(found, ElementsAre(packet(agent, 7, port2)));
   EXPECT_EQ(rowsIn(agent.fabric(), "EgrL3NextHop2"), 1U);
   apply(tunnelMessage(RTM_DELNEIGH, vxlan, destination));
   tell(agent);
   expectEmpty(agent.fabric());
}

} // namespace L3TunnelAgent
