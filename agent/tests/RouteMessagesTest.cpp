#include "agent/MessageReader.h"
#include "agent/tests/MessageBuilder.h"

#include <gmock/gmock.h>
#include <linux/fib_rules.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr std::uint32_t bigTable = 1000;
Prefix const destination = Prefix::of(IpAddress::fromV4(0x0aff0101), 32);

MessageBuilder
routeMessage(std::uint16_t type, std::uint32_t metric, std::uint16_t flags = 0,
             std::uint32_t routeFlags = 0) {
   MessageBuilder message(type,
                          rtmsg{.rtm_family = AF_INET,
                                .rtm_dst_len = 32,
                                .rtm_table = RT_TABLE_COMPAT,
                                .rtm_type = RTN_UNICAST,
                                .rtm_flags = routeFlags},
                          flags);
   message.u32(RTA_TABLE, bigTable).ip(RTA_DST, "10.255.1.1").u32(RTA_PRIORITY, metric);
   return message;
}

Prefix const destinationV6 = Prefix::of(IpAddress::parse("2001:db8::1").value(), 128);

MessageBuilder
routeMessageV6(std::uint16_t type, std::uint16_t flags) {
   MessageBuilder message(type,
                          rtmsg{.rtm_family = AF_INET6,
                                .rtm_dst_len = 128,
                                .rtm_table = RT_TABLE_COMPAT,
                                .rtm_type = RTN_UNICAST},
                          flags);
   return message.u32(RTA_TABLE, bigTable).ip(RTA_DST, "2001:db8::1").u32(RTA_PRIORITY, 1024);
}

MessageBuilder
singleHop(std::uint16_t type, std::uint32_t metric, char const* gateway, std::uint16_t flags = 0) {
   return routeMessage(type, metric, flags).u32(RTA_OIF, 3).ip(RTA_GATEWAY, gateway);
}

struct Via {
   std::uint16_t family;
   std::array<std::uint8_t, 16> address;
};

Via
linkLocal() {
   return {AF_INET6, IpAddress::parse("fe80::1").value().bytes};
}

NextHop
hop(int device, char const* gateway) {
   return {.device = device, .gateway = IpAddress::parse(gateway).value()};
}

class RouteMessages : public testing::Test {
 protected:
   void apply(MessageBuilder const& message) { applyDatagram(state, message.datagram()); }

   std::vector<Route> routes(Prefix prefix = destination, std::uint32_t table = bigTable) {
      auto const* const found = state.routes({table, prefix});
      return found ? *found : std::vector<Route>{};
   }

   std::vector<Rule> const& rules() const { return state.rules(IpAddress::Family::v4); }

   KernelState state;
};

} // namespace

TEST_F(RouteMessages, InlineHopWithAGateway) {
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.1"));
   EXPECT_THAT(routes(), ElementsAre(Route{.type = RTN_UNICAST, .metric = 20, .hops = {hop(3, "10.0.0.1")}}));
}

TEST_F(RouteMessages, FlagsOfASingleHopAreThoseOfTheRoute) {
   apply(routeMessage(RTM_NEWROUTE, 0, 0, RTNH_F_DEAD | RTNH_F_LINKDOWN).u32(RTA_OIF, 3));
   EXPECT_THAT(routes().at(0).hops, ElementsAre(NextHop{.device = 3, .dead = true, .linkdown = true}));
}

TEST_F(RouteMessages, GatewayOfTheOtherFamily) {
   Via const via = linkLocal();
   apply(routeMessage(RTM_NEWROUTE, 0).u32(RTA_OIF, 3).bytes(RTA_VIA, &via, sizeof via));
   EXPECT_THAT(routes().at(0).hops, ElementsAre(hop(3, "fe80::1")));
   for (std::size_t const size : {0U, 1U, 2U, 5U, 17U}) {
      EXPECT_THAT([&] { apply(routeMessage(RTM_NEWROUTE, 1).u32(RTA_OIF, 3).bytes(RTA_VIA, &via, size)); },
                  ThrowsMessage<MessageError>(HasSubstr("RTM_NEWROUTE: RTA_VIA: ")))
            << size;
   }
}

TEST_F(RouteMessages, MultipathHopsHaveFlagsWeightsAndGateways) {
   Via const via = linkLocal();
   struct {
      rtnexthop first{.rtnh_len = 16, .rtnh_flags = RTNH_F_LINKDOWN, .rtnh_hops = 2, .rtnh_ifindex = 3};
      nlattr gateway{.nla_len = 8, .nla_type = RTA_GATEWAY};
      std::array<std::uint8_t, 4> address{10, 0, 0, 1};
      rtnexthop second{.rtnh_len = 30, .rtnh_flags = 0, .rtnh_hops = 0, .rtnh_ifindex = 4};
      nlattr viaHead{.nla_len = 22, .nla_type = RTA_VIA};
      Via viaValue{};
      std::array<std::uint8_t, 2> padding{};
   } hops;
   hops.viaValue = via;
   apply(routeMessage(RTM_NEWROUTE, 0).bytes(RTA_MULTIPATH, &hops, sizeof hops));
   auto first = hop(3, "10.0.0.1");
   first.weight = 3;
   first.linkdown = true;
   EXPECT_THAT(routes().at(0).hops, ElementsAre(first, hop(4, "fe80::1")));

   for (unsigned const length : {0U, 7U, 49U, 0xffffU}) {
      hops.first.rtnh_len = static_cast<std::uint16_t>(length);
      EXPECT_THAT([&] { apply(routeMessage(RTM_NEWROUTE, 1).bytes(RTA_MULTIPATH, &hops, sizeof hops)); },
                  ThrowsMessage<MessageError>(
                        HasSubstr("RTA_MULTIPATH: a next hop has length " + std::to_string(length))));
   }
   hops.first.rtnh_len = 15;
   EXPECT_THAT([&] { apply(routeMessage(RTM_NEWROUTE, 1).bytes(RTA_MULTIPATH, &hops, sizeof hops)); },
               ThrowsMessage<MessageError>(HasSubstr("RTM_NEWROUTE: RTA_MULTIPATH: attributes at byte 0")));
}

TEST_F(RouteMessages, ObjectOutdoesTheHopsBesideIt) {
   apply(singleHop(RTM_NEWROUTE, 0, "10.0.0.1").u32(RTA_NH_ID, 70));
   EXPECT_THAT(routes(), ElementsAre(Route{.type = RTN_UNICAST, .nextHopId = 70}));
}

TEST_F(RouteMessages, DefaultRouteAndSmallTable) {
   MessageBuilder message(
         RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET, .rtm_table = RT_TABLE_MAIN, .rtm_type = RTN_BLACKHOLE});
   apply(message);
   EXPECT_THAT(routes({}, RT_TABLE_MAIN), ElementsAre(Route{.type = RTN_BLACKHOLE}));
}

TEST_F(RouteMessages, SameRouteTwiceIsOneAndEqualMetricsKeepTheirOrder) {
   for (auto const* const gateway : {"10.0.0.2", "10.0.0.1", "10.0.0.2"}) {
      apply(singleHop(RTM_NEWROUTE, 20, gateway, NLM_F_MULTI));
   }
   ASSERT_EQ(routes().size(), 2U);
   EXPECT_THAT(routes()[0].hops, ElementsAre(hop(3, "10.0.0.2")));
   EXPECT_THAT(routes()[1].hops, ElementsAre(hop(3, "10.0.0.1")));
}

TEST_F(RouteMessages, AddedRouteGoesBeforeItsEqualsAndAnAppendedOneBehind) {
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.1", NLM_F_CREATE));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.2", NLM_F_CREATE));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.3", NLM_F_CREATE | NLM_F_APPEND));
   std::string gateways;
   for (auto const& route : routes()) {
      gateways += route.hops.at(0).gateway->text() + " ";
   }
   EXPECT_EQ(gateways, "10.0.0.2 10.0.0.1 10.0.0.3 ");
}

TEST_F(RouteMessages, Ipv6RouteGoesBehindItsEqualsWhateverItsMessageSays) {
   auto const route = [](std::uint32_t device, std::uint16_t flags) {
      return routeMessageV6(RTM_NEWROUTE, flags).u32(RTA_OIF, device);
   };
   apply(route(3, NLM_F_CREATE | NLM_F_EXCL));
   apply(route(4, NLM_F_CREATE));
   apply(route(5, NLM_F_CREATE | NLM_F_APPEND));
   std::vector<int> devices;
   for (auto const& found : routes(destinationV6)) {
      devices.push_back(found.hops.at(0).device);
   }
   EXPECT_THAT(devices, ElementsAre(3, 4, 5));
}

TEST_F(RouteMessages, Ipv6HopsMeanTheSameInAnyOrder) {
   auto const route = [](std::vector<std::string> const& gateways) {
      MessageBuilder message = routeMessageV6(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_APPEND);
      return message.nest(RTA_MULTIPATH, [&](MessageBuilder& hops) {
         for (auto const& gateway : gateways) {
            hops.fixed(rtnexthop{.rtnh_len = sizeof(rtnexthop) + 20, .rtnh_ifindex = 3});
            hops.ip(RTA_GATEWAY, gateway);
         }
      });
   };
   apply(route({"fe80::2", "fe80::1"}));
   state.takeChanges();
   apply(route({"fe80::1", "fe80::2"}));
   EXPECT_EQ(state.takeChanges(), Changes());
   apply(route({"fe80::3", "fe80::1", "fe80::2"}));
   ASSERT_EQ(routes(destinationV6).size(), 1U);
   EXPECT_THAT(routes(destinationV6)[0].hops,
               ElementsAre(hop(3, "fe80::1"), hop(3, "fe80::2"), hop(3, "fe80::3")));
}

TEST_F(RouteMessages, ReplacingKeepsOtherMetrics) {
   apply(singleHop(RTM_NEWROUTE, 10, "10.0.0.1"));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.2"));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.3", NLM_F_REPLACE));
   ASSERT_EQ(routes().size(), 2U);
   EXPECT_THAT(routes()[1].hops, ElementsAre(hop(3, "10.0.0.3")));
   apply(singleHop(RTM_NEWROUTE, 5, "10.0.0.4", NLM_F_REPLACE));
   EXPECT_EQ(routes().size(), 3U);
}

TEST_F(RouteMessages, RemovingTakesTheRouteOfThatMetric) {
   apply(singleHop(RTM_NEWROUTE, 10, "10.0.0.1"));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.2"));
   apply(singleHop(RTM_NEWROUTE, 20, "10.0.0.3"));
   apply(singleHop(RTM_DELROUTE, 20, "10.0.0.3"));
   apply(singleHop(RTM_DELROUTE, 30, "10.0.0.1"));
   ASSERT_EQ(routes().size(), 2U);
   EXPECT_THAT(routes()[1].hops, ElementsAre(hop(3, "10.0.0.2")));
   apply(routeMessage(RTM_DELROUTE, 20).u32(RTA_OIF, 3));
   apply(singleHop(RTM_DELROUTE, 10, "10.0.0.1"));
   EXPECT_TRUE(routes().empty());
}

TEST_F(RouteMessages, OtherRoutesArePassedOver) {
   apply(routeMessage(RTM_NEWROUTE, 0, 0, RTM_F_CLONED).u32(RTA_OIF, 3));
   MessageBuilder message(RTM_NEWROUTE, rtmsg{.rtm_family = AF_MPLS, .rtm_dst_len = 20});
   apply(message.u32(RTA_DST, 1));
   EXPECT_EQ(state.takeChanges(), Changes{});
}

TEST_F(RouteMessages, PrefixThatIsNoneIsAnError) {
   MessageBuilder tooLong(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET, .rtm_dst_len = 33});
   EXPECT_THAT([&] { apply(tooLong.ip(RTA_DST, "10.0.0.0")); }, ThrowsMessage<MessageError>(HasSubstr("33")));
   MessageBuilder otherFamily(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET, .rtm_dst_len = 32});
   EXPECT_THAT([&] { apply(otherFamily.ip(RTA_DST, "::1")); },
               ThrowsMessage<MessageError>(HasSubstr("RTA_DST")));
   MessageBuilder tooLongV6(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET6, .rtm_dst_len = 129});
   EXPECT_THAT([&] { apply(tooLongV6.ip(RTA_DST, "2001:db8::")); },
               ThrowsMessage<MessageError>("RTM_NEWROUTE: rtm_dst_len: an IPv6 prefix of length 129"));
   MessageBuilder without(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET, .rtm_dst_len = 32});
   EXPECT_THAT([&] { apply(without); }, ThrowsMessage<MessageError>("RTM_NEWROUTE: RTA_DST: is missing"));
}

TEST_F(RouteMessages, ObjectsGroupsAndFlags) {
   nhmsg const fixed{.nh_family = AF_INET, .nh_flags = RTNH_F_LINKDOWN};
   apply(MessageBuilder(RTM_NEWNEXTHOP, fixed).u32(NHA_ID, 1).u32(NHA_OIF, 3).ip(NHA_GATEWAY, "10.0.0.1"));
   apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{}).u32(NHA_ID, 2).flag(NHA_BLACKHOLE));
   std::uint8_t const members[16] = {1, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 0xff, 1, 0, 0};
   apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{}).u32(NHA_ID, 3).flag(NHA_FDB).bytes(NHA_GROUP, members, 16));
   auto linkdown = hop(3, "10.0.0.1");
   linkdown.linkdown = true;
   EXPECT_EQ(state.nextHops().at(1), (NextHopObject{.hop = linkdown}));
   EXPECT_EQ(state.nextHops().at(2), (NextHopObject{.blackhole = true}));
   EXPECT_EQ(state.nextHops().at(3), (NextHopObject{.group = {{1, 3}, {2, 512}}, .fdb = true}));
   apply(MessageBuilder(RTM_DELNEXTHOP, nhmsg{}).u32(NHA_ID, 2));
   EXPECT_EQ(state.nextHops().size(), 2U);
}

TEST_F(RouteMessages, ObjectThatIsNoneIsAnError) {
   EXPECT_THAT([&] { apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{})); },
               ThrowsMessage<MessageError>("RTM_NEWNEXTHOP: NHA_ID: is missing"));
   EXPECT_THAT([&] { apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{}).u32(NHA_ID, 1).u32(NHA_GROUP, 1)); },
               ThrowsMessage<MessageError>(HasSubstr("NHA_GROUP: 4 bytes")));
}

TEST_F(RouteMessages, RulesAreOrderedAndRemoved) {
   fib_rule_hdr const fixed{.family = AF_INET, .table = RT_TABLE_MAIN, .action = FR_ACT_TO_TBL};
   auto const rule = [&](std::uint16_t type, std::uint32_t priority) {
      return MessageBuilder(type, fixed, NLM_F_MULTI)
            .u32(FRA_PRIORITY, priority)
            .u32(FRA_SUPPRESS_PREFIXLEN, ~0U);
   };
   apply(rule(RTM_NEWRULE, 20));
   apply(rule(RTM_NEWRULE, 10));
   apply(rule(RTM_NEWRULE, 20));
   Rule const first{.priority = 10, .action = FR_ACT_TO_TBL, .table = RT_TABLE_MAIN};
   ASSERT_EQ(rules().size(), 2U);
   EXPECT_EQ(rules()[0], first);
   apply(rule(RTM_DELRULE, 20));
   EXPECT_THAT(rules(), ElementsAre(first));
}

TEST_F(RouteMessages, KernelBeginsWithItsRulesUntilADumpOfThatFamilySaysOtherwise) {
   auto const tables = [&](IpAddress::Family family) {
      std::string text;
      for (Rule const& rule : state.rules(family)) {
         text += std::to_string(rule.priority) + ":" + std::to_string(rule.table) + " ";
      }
      return text;
   };
   auto const added = [](std::uint8_t family, std::uint32_t priority, std::uint16_t flags = 0) {
      return MessageBuilder(RTM_NEWRULE,
                            fib_rule_hdr{.family = family, .table = 100, .action = FR_ACT_TO_TBL}, flags)
            .u32(FRA_PRIORITY, priority);
   };
   EXPECT_EQ(tables(IpAddress::Family::v4), "0:255 32766:254 32767:253 ");
   EXPECT_EQ(tables(IpAddress::Family::v6), "0:255 32766:254 ");
   apply(added(AF_INET6, 50));
   EXPECT_EQ(tables(IpAddress::Family::v6), "0:255 50:100 32766:254 ");
   apply(added(AF_INET, 50, NLM_F_MULTI));
   apply(added(AF_INET, 60, NLM_F_MULTI));
   EXPECT_EQ(tables(IpAddress::Family::v4), "50:100 60:100 ");
   EXPECT_EQ(tables(IpAddress::Family::v6), "0:255 50:100 32766:254 ");
}

TEST_F(RouteMessages, RuleHasATableADestinationAndALengthThatItSuppresses) {
   auto const read = [&](auto const& fill, fib_rule_hdr fixed = {}) {
      fixed.family = AF_INET;
      MessageBuilder message(RTM_NEWRULE, fixed);
      fill(message);
      state = KernelState();
      apply(message);
      return rules().at(1); // behind the kernel's own of the same priority
   };
   auto const plain = [](MessageBuilder& m) { m.u32(FRA_TABLE, 1000).u8(FRA_PROTOCOL, 2).u32(FRA_FLOW, 1); };
   EXPECT_FALSE(read(plain).selective);
   EXPECT_EQ(read(plain).selectors, "");
   EXPECT_EQ(read(plain).table, 1000U);
   auto const to = read([](MessageBuilder& m) { m.ip(FRA_DST, "10.255.1.0"); }, {.dst_len = 24});
   EXPECT_EQ(to.destination, Prefix::of(IpAddress::fromV4(0x0aff0100), 24));
   EXPECT_EQ(read([](MessageBuilder& m) { m.u32(FRA_SUPPRESS_PREFIXLEN, 0); }).suppressedLength, 0U);
}

TEST_F(RouteMessages, RuleMayNameTheOneThatItJumpsTo) {
   MessageBuilder message(RTM_NEWRULE, fib_rule_hdr{.family = AF_INET, .action = FR_ACT_GOTO});
   apply(message.u32(FRA_PRIORITY, 100).u32(FRA_GOTO, 300));
   Rule const expected{.priority = 100, .action = FR_ACT_GOTO, .target = 300};
   EXPECT_THAT(rules(), testing::Contains(expected));
   apply(MessageBuilder(RTM_DELRULE, fib_rule_hdr{.family = AF_INET, .action = FR_ACT_GOTO})
               .u32(FRA_PRIORITY, 100)
               .u32(FRA_GOTO, 300));
   EXPECT_THAT(rules(), testing::Not(testing::Contains(expected)));
}

TEST_F(RouteMessages, EncapsulationIsToldWithAHopOrAnObject) {
   auto const header = [](MessageBuilder& encap) { encap.u32(1, 0); };
   apply(singleHop(RTM_NEWROUTE, 1, "10.0.0.1").u16(RTA_ENCAP_TYPE, 1).nest(RTA_ENCAP, header));
   apply(singleHop(RTM_NEWROUTE, 2, "10.0.0.1"));
   ASSERT_EQ(routes().size(), 2U);
   EXPECT_TRUE(routes()[0].hops.at(0).encapsulated);
   EXPECT_FALSE(routes()[1].hops.at(0).encapsulated);
   apply(MessageBuilder(RTM_NEWNEXTHOP, nhmsg{}).u32(NHA_ID, 1).u32(NHA_OIF, 3).nest(NHA_ENCAP, header));
   EXPECT_TRUE(state.nextHop(1)->hop.encapsulated);
}

TEST_F(RouteMessages, RouteGoesWithTheAddressThatItPrefersAsASource) {
   auto const address = [](std::uint16_t type, std::uint16_t flags = 0) {
      return MessageBuilder(type, ifaddrmsg{.ifa_family = AF_INET, .ifa_prefixlen = 32, .ifa_index = 1},
                            flags)
            .ip(IFA_ADDRESS, "10.9.9.9")
            .ip(IFA_LOCAL, "10.9.9.9");
   };
   MessageBuilder route(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET,
                                            .rtm_dst_len = 32,
                                            .rtm_table = RT_TABLE_MAIN,
                                            .rtm_type = RTN_UNICAST});
   apply(address(RTM_NEWADDR, NLM_F_MULTI));
   apply(route.ip(RTA_DST, "10.255.1.1").u32(RTA_OIF, 3).ip(RTA_PREFSRC, "10.9.9.9"));
   EXPECT_EQ(routes(destination, RT_TABLE_MAIN).at(0).preferredSource, IpAddress::fromV4(0x0a090909));
   apply(address(RTM_DELADDR));
   EXPECT_TRUE(routes(destination, RT_TABLE_MAIN).empty());
}

TEST_F(RouteMessages, RuleForAnOddDestinationIsAnError) {
   MessageBuilder message(RTM_NEWRULE, fib_rule_hdr{.family = AF_INET, .dst_len = 33});
   EXPECT_THAT([&] { apply(message.ip(FRA_DST, "10.0.0.0")); },
               ThrowsMessage<MessageError>("RTM_NEWRULE: FRA_DST: is no IPv4 prefix"));
}

TEST_F(RouteMessages, RulesOfOtherFamiliesArePassedOver) {
   apply(MessageBuilder(RTM_NEWRULE, fib_rule_hdr{.family = AF_MPLS}));
   EXPECT_EQ(state.takeChanges(), Changes{});
}

} // namespace L3TunnelAgent
