#include "agent/Derivation.h"
#include "agent/Explain.h"
#include "agent/MessageReader.h"
#include "agent/tests/KernelMessages.h"
#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>
#include <linux/netconf.h>

namespace L3TunnelAgent {

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr unsigned noCarrier = IFF_UP;

MessageBuilder
settingMessage(int device, std::uint32_t ignore, std::uint8_t family = AF_INET) {
   MessageBuilder message(RTM_NEWNETCONF, netconfmsg{.ncm_family = family});
   message.u32(NETCONFA_IFINDEX, static_cast<std::uint32_t>(device));
   message.u32(NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN, ignore);
   return message;
}

/// A machine with two ways to a destination of each family.
class SettingMessages : public testing::Test, protected StateBuilder {
 protected:
   SettingMessages() {
      for (int const device : {1, 2}) {
         link(device, "swp" + std::to_string(device));
      }
      route(v4 + "/32", {hop(1, "10.0.0.1"), hop(2, "10.0.0.2")});
      route(v6 + "/128", {hop(1, "fe80::1"), hop(2, "fe80::2")});
      tunnelTo(v4);
      tunnelTo(v6);
      derivation.update(state.takeChanges());
   }

   void apply(MessageBuilder const& message) { applyDatagram(state, message.datagram()); }

   /// @return the gateways of what is derived, change by change.
   std::string ways(std::string const& destination) {
      derivation.update(state.takeChanges());
      EXPECT_EQ(derivation.destinations(), fromScratch(state));
      std::string text;
      for (auto const& via : derivation.destinations().at(ip(destination)).vias) {
         text += via.gateway->text() + " ";
      }
      return text;
   }

   std::string const v4 = "10.255.1.1";
   std::string const v6 = "2001:db8::1";
   Derivation derivation{state};
};

} // namespace

TEST_F(SettingMessages, OneForAllDevicesCountsBesideEachDevicesOwn) {
   linkFlags(1, noCarrier);
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1));
   EXPECT_EQ(ways(v4), "10.0.0.2 ");
   EXPECT_EQ(ways(v6), "fe80::1 fe80::2 ");
   EXPECT_THAT(
         explainRoute(state, ip(v4)),
         Contains("      10.0.0.1 on swp1: left out: swp1 has no carrier, and is set to be left out then"));
   linkFlags(1, running);
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
   linkFlags(2, noCarrier);
   EXPECT_EQ(ways(v4), "10.0.0.1 ");
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 0));
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
}

TEST_F(SettingMessages, EndOfTheOneForAllLeavesADevicesOwn) {
   linkFlags(1, noCarrier);
   linkFlags(2, noCarrier);
   apply(settingMessage(1, 1));
   EXPECT_EQ(ways(v4), "10.0.0.2 ");
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1));
   EXPECT_EQ(ways(v4), "");
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 0));
   EXPECT_EQ(ways(v4), "10.0.0.2 ");
}

TEST_F(SettingMessages, DevicesOwnIsToldForEachFamilyAndKeepsWhatItsLinkSaid) {
   linkFlags(1, noCarrier);
   auto revived = hop(1, "10.0.0.1");
   revived.linkdown = revived.dead = true;
   route("10.255.1.1/32", {revived, hop(2, "10.0.0.2")});
   EXPECT_EQ(ways(v4), "10.0.0.2 ") << "the hop's own message is the later one";
   apply(settingMessage(1, 1, AF_INET6));
   EXPECT_EQ(ways(v6), "fe80::2 ");
   apply(settingMessage(1, 0, AF_INET6));
   EXPECT_EQ(ways(v6), "fe80::1 fe80::2 ");
   EXPECT_EQ(ways(v4), "10.0.0.2 ");
}

TEST_F(SettingMessages, HopThatIsMarkedDeadForTheSettingAloneComesBackWithIt) {
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1));
   linkFlags(1, noCarrier);
   auto marked = hop(1, "10.0.0.1");
   marked.linkdown = marked.dead = true;
   route("10.255.1.1/32", {marked, hop(2, "10.0.0.2")});
   EXPECT_EQ(ways(v4), "10.0.0.2 ");
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 0));
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
}

TEST_F(SettingMessages, OthersArePassedOver) {
   linkFlags(1, noCarrier);
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
   apply(settingMessage(NETCONFA_IFINDEX_DEFAULT, 1));
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1, AF_INET6)); // which the kernel tells of each device too
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1, AF_MPLS));
   apply(settingMessage(77, 1));
   apply(MessageBuilder(RTM_NEWNETCONF, netconfmsg{.ncm_family = AF_INET}).u32(NETCONFA_IFINDEX, 1));
   apply(MessageBuilder(RTM_NEWNETCONF, netconfmsg{.ncm_family = AF_INET})
               .u32(NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN, 1));
   EXPECT_FALSE(state.hasChanges());
   EXPECT_THAT(state.links(), testing::Not(Contains(testing::Key(77))));
   EXPECT_EQ(ways(v4), "10.0.0.1 10.0.0.2 ");
}

TEST_F(SettingMessages, WhatIsSaidAgainIsNoChange) {
   for (int const device : {NETCONFA_IFINDEX_ALL, 1}) {
      for (std::uint32_t const ignore : {1U, 0U}) {
         apply(settingMessage(device, ignore));
         EXPECT_TRUE(state.hasChanges());
         state.takeChanges();
         apply(settingMessage(device, ignore));
         EXPECT_FALSE(state.hasChanges());
      }
   }
}

TEST_F(SettingMessages, MalformedOneIsAnErrorThatNamesIt) {
   auto const fails = [&](MessageBuilder const& message, char const* text) {
      EXPECT_THAT([&] { apply(message); }, testing::ThrowsMessage<MessageError>(testing::HasSubstr(text)));
   };
   netconfmsg const fixed{.ncm_family = AF_INET};
   fails(MessageBuilder(RTM_NEWNETCONF, fixed).u8(NETCONFA_IFINDEX, 1),
         "RTM_NEWNETCONF: NETCONFA_IFINDEX: 1 bytes");
   fails(MessageBuilder(RTM_NEWNETCONF, fixed)
               .u32(NETCONFA_IFINDEX, 1)
               .u16(NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN, 1),
         "RTM_NEWNETCONF: NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN: 2 bytes");
}

TEST_F(SettingMessages, StateReadAnewHasTheOneForAllDevices) {
   KernelState without = state;
   apply(settingMessage(NETCONFA_IFINDEX_ALL, 1));
   EXPECT_TRUE(without.becomes(KernelState(state)));
   EXPECT_THAT(without.takeChanges().links, ElementsAre(1, 2, vxlan));
   EXPECT_FALSE(without.becomes(KernelState(state)));
   auto const copy = without.withoutRoutes();
   EXPECT_TRUE(copy.ignoresLinkdown(*copy.link(1), IpAddress::Family::v4));
   EXPECT_FALSE(copy.ignoresLinkdown(*copy.link(1), IpAddress::Family::v6));
}

} // namespace L3TunnelAgent
