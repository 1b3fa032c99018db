#include "agent/MessageReader.h"
#include "agent/RouteLookup.h"
#include "agent/tests/MessageBuilder.h"

#include <functional>
#include <gmock/gmock.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr std::uint16_t portMask = 29; // FRA_DPORT_MASK, which some headers have not
constexpr auto v4 = IpAddress::Family::v4;
constexpr auto v6 = IpAddress::Family::v6;

IpAddress
ip(char const* text) {
   return IpAddress::parse(text).value();
}

/// The rule with which a state ends that hears of one, and what it does with packets of tunnels.
class RuleMessages : public testing::Test {
 protected:
   using Fill = std::function<void(MessageBuilder&)>;

   static MessageBuilder message(std::uint16_t type, Fill const& fill, fib_rule_hdr fixed = {}) {
      fixed.family = fixed.family != 0 ? fixed.family : AF_INET;
      fixed.action = FR_ACT_TO_TBL;
      fixed.table = 100;
      MessageBuilder message(type, fixed);
      fill(message.u32(FRA_PRIORITY, 10));
      return message;
   }

   void vxlan(int index, char const* local, std::uint16_t port) {
      Link link{.name = "vx" + std::to_string(index), .kind = LinkKind::vxlan, .port = port};
      if (local) {
         link.source = ip(local);
      }
      state.linkIs(index, link);
   }

   /// Tells a rule, asks, and takes the rule away.
   RuleVerdict verdict(Fill const& fill, fib_rule_hdr const& fixed = {}, char const* to = "10.9.0.1") {
      auto const family = fixed.family == AF_INET6 ? v6 : v4;
      applyDatagram(state, message(RTM_NEWRULE, fill, fixed).datagram());
      EXPECT_EQ(state.rules(family).size(), family == v4 ? 4U : 3U);
      auto const rule = state.rules(family).at(1);
      auto const result = ruleVerdict(state, rule, ip(to));
      EXPECT_EQ(unknownRules(state), result == RuleVerdict::unknown ? 1U : 0U);
      applyDatagram(state, message(RTM_DELRULE, fill, fixed).datagram());
      EXPECT_EQ(state.rules(family).size(), family == v4 ? 3U : 2U);
      return result;
   }

   void expect(RuleVerdict plain, Fill const& fill, fib_rule_hdr fixed = {}) {
      EXPECT_EQ(verdict(fill, fixed), plain);
      auto const opposite = plain == RuleVerdict::yes ? RuleVerdict::no : RuleVerdict::yes;
      fixed.flags |= FIB_RULE_INVERT;
      EXPECT_EQ(verdict(fill, fixed), plain == RuleVerdict::unknown ? plain : opposite) << "inverted";
   }

   static Fill ports(std::uint16_t first, std::uint16_t last) {
      return [=](MessageBuilder& m) {
         fib_rule_port_range const range{.start = first, .end = last};
         m.bytes(FRA_DPORT_RANGE, &range, sizeof range);
      };
   }

   static Fill owners(std::uint32_t first, std::uint32_t last) {
      return [=](MessageBuilder& m) {
         fib_rule_uid_range const range{.start = first, .end = last};
         m.bytes(FRA_UID_RANGE, &range, sizeof range);
      };
   }

   static Fill mark(std::uint32_t value, std::uint32_t mask) {
      return [=](MessageBuilder& m) { m.u32(FRA_FWMARK, value).u32(FRA_FWMASK, mask); };
   }

   static Fill from(char const* address) {
      return [=](MessageBuilder& m) { m.ip(FRA_SRC, address); };
   }

   KernelState state;
};

} // namespace

TEST_F(RuleMessages, WhatTunnelPacketsAreForCertainApplies) {
   expect(RuleVerdict::yes, [](MessageBuilder&) {});
   expect(RuleVerdict::yes, [](MessageBuilder& m) { m.text(FRA_IIFNAME, "lo"); });
   expect(RuleVerdict::yes, [](MessageBuilder& m) { m.u8(FRA_IP_PROTO, IPPROTO_UDP); });
   expect(RuleVerdict::yes, mark(0, 0xff));
   expect(RuleVerdict::yes, mark(0xf0, 0x0f));
   expect(RuleVerdict::yes, owners(0, 0));
}

TEST_F(RuleMessages, WhatTunnelPacketsAreNotForCertainDoesNot) {
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.text(FRA_IIFNAME, "swp1"); });
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.text(FRA_OIFNAME, "swp1"); });
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.u8(FRA_IP_PROTO, IPPROTO_TCP); });
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.u8(FRA_L3MDEV, 1); });
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.u32(FRA_FWMARK, 5); });
   expect(RuleVerdict::no, mark(5, 0xff));
   expect(RuleVerdict::no, owners(1, 2000));
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.u32(FRA_TUN_ID, 7); });
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.ip(FRA_DST, "10.8.0.0"); }, {.dst_len = 16});
}

TEST_F(RuleMessages, WhatIsNotKnownOfTunnelPacketsIsPassedOverAndCounted) {
   expect(RuleVerdict::unknown, [](MessageBuilder&) {}, {.tos = 16});
   expect(RuleVerdict::unknown, [](MessageBuilder& m) { m.u32(63, 1); });
   expect(RuleVerdict::unknown, [](MessageBuilder& m) { m.u32(FRA_SPORT_RANGE, 1); });
   expect(RuleVerdict::unknown, ports(4789, 4789));
   expect(RuleVerdict::unknown, from("10.0.0.1"), {.src_len = 32});
   expect(RuleVerdict::no, [](MessageBuilder& m) { m.u32(63, 1).u8(FRA_IP_PROTO, IPPROTO_TCP); });
}

TEST_F(RuleMessages, PortIsThatOfTheDevicesWhereTheyAgree) {
   vxlan(1, nullptr, 4789);
   expect(RuleVerdict::yes, ports(4789, 4789));
   expect(RuleVerdict::yes, ports(4000, 5000));
   expect(RuleVerdict::no, ports(4790, 5000));
   auto const masked = [](std::uint16_t mask) {
      return [=](MessageBuilder& m) {
         ports(4789, 4789)(m);
         m.u16(portMask, mask);
      };
   };
   expect(RuleVerdict::yes, masked(0xffff));
   expect(RuleVerdict::unknown, masked(0xfff0));
   vxlan(2, nullptr, 8472);
   expect(RuleVerdict::unknown, ports(4789, 4789));
   state.linkDel(1);
   expect(RuleVerdict::no, ports(4789, 4789));
}

TEST_F(RuleMessages, SourceIsThatOfTheDevicesWhereTheyAgree) {
   fib_rule_hdr const wide{.src_len = 8};
   vxlan(1, "10.7.7.7", 4789);
   vxlan(2, "10.7.7.7", 4789);
   vxlan(3, "2001:db8::7", 4789);
   expect(RuleVerdict::yes, from("10.0.0.0"), wide);
   expect(RuleVerdict::no, from("11.0.0.0"), wide);
   vxlan(2, "11.7.7.7", 4789);
   expect(RuleVerdict::unknown, from("10.0.0.0"), wide);
   vxlan(1, nullptr, 4789);
   vxlan(2, nullptr, 4789);
   expect(RuleVerdict::no, from("10.0.0.0"), wide);
   expect(RuleVerdict::yes, from("0.0.0.0"), {.src_len = 32});
}

TEST_F(RuleMessages, SourceOfIpv6IsKnownOnlyWhereItIsSet) {
   fib_rule_hdr const fixed{.family = AF_INET6, .src_len = 32};
   vxlan(1, "2001:db8::7", 4789);
   EXPECT_EQ(verdict(from("2001:db8::"), fixed, "2001:db8:9::1"), RuleVerdict::yes);
   EXPECT_EQ(verdict(from("2001:db9::"), fixed, "2001:db8:9::1"), RuleVerdict::no);
   vxlan(1, nullptr, 4789);
   EXPECT_EQ(verdict(from("2001:db8::"), fixed, "2001:db8:9::1"), RuleVerdict::unknown);
}

TEST_F(RuleMessages, RulesThatAskForOneOfTwoThingsAreTwo) {
   auto const local = [](MessageBuilder& m) { m.text(FRA_IIFNAME, "lo"); };
   auto const datagrams = [](MessageBuilder& m) { m.u8(FRA_IP_PROTO, IPPROTO_UDP); };
   applyDatagram(state, message(RTM_NEWRULE, local).datagram());
   applyDatagram(state, message(RTM_NEWRULE, datagrams).datagram());
   EXPECT_EQ(state.rules(v4).size(), 5U);
   applyDatagram(state, message(RTM_DELRULE, local).datagram());
   EXPECT_EQ(state.rules(v4).size(), 4U);
}

TEST_F(RuleMessages, DestinationsAreDerivedAnewWhenTheDevicesChangeThatARuleAsksFor) {
   vxlan(1, "10.7.7.7", 4789);
   state.takeChanges();
   vxlan(2, "10.8.8.8", 4789);
   EXPECT_EQ(state.takeChanges(), Changes{.links = {2}}) << "no rule asks for it";
   applyDatagram(state, message(RTM_NEWRULE, from("10.7.7.7"), {.src_len = 32}).datagram());
   state.takeChanges();
   vxlan(2, "10.7.7.7", 4789);
   EXPECT_EQ(state.takeChanges(), (Changes{.links = {2}, .rules = {v4}}));
   auto other = state.withoutRoutes();
   EXPECT_EQ(other.outerHeader(v4), state.outerHeader(v4));
   other.linkDel(1);
   other.linkIs(2, {.name = "vx2", .kind = LinkKind::vxlan, .source = ip("10.8.8.8"), .port = 4789});
   state.becomes(other);
   EXPECT_EQ(state.takeChanges(), (Changes{.links = {1, 2}, .rules = {v4}}));
}

TEST_F(RuleMessages, OddSelectorsAreErrors) {
   EXPECT_THAT([&] { verdict(from("10.0.0.1"), {.src_len = 33}); },
               ThrowsMessage<MessageError>("RTM_NEWRULE: FRA_SRC: is no IPv4 prefix"));
   EXPECT_THAT([&] { verdict([](MessageBuilder& m) { m.u16(FRA_DPORT_RANGE, 1); }); },
               ThrowsMessage<MessageError>("RTM_NEWRULE: FRA_DPORT_RANGE: 2 bytes instead of 4"));
   EXPECT_THAT([&] { verdict([](MessageBuilder& m) { m.u16(FRA_UID_RANGE, 1); }); },
               ThrowsMessage<MessageError>(HasSubstr("FRA_UID_RANGE: 2 bytes instead of 8")));
}

} // namespace L3TunnelAgent
