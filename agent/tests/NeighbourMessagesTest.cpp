#include "agent/MessageReader.h"
#include "agent/tests/MessageBuilder.h"

#include <gmock/gmock.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

constexpr auto hostMac = "02:00:00:00:00:01";
constexpr auto floodMac = "00:00:00:00:00:00";

IpAddress
ip(std::string const& text) {
   return IpAddress::parse(text).value();
}

MessageBuilder
neighbourMessage(std::uint16_t type, std::uint8_t flags = 0) {
   MessageBuilder message(
         type, ndmsg{.ndm_family = AF_INET, .ndm_ifindex = 3, .ndm_state = NUD_STALE, .ndm_flags = flags});
   message.ip(NDA_DST, "10.0.0.1").mac(NDA_LLADDR, hostMac);
   return message;
}

MessageBuilder
entryMessage(std::uint16_t type, int device, std::uint8_t flags, char const* macText) {
   MessageBuilder message(type, ndmsg{.ndm_family = AF_BRIDGE, .ndm_ifindex = device, .ndm_flags = flags});
   message.mac(NDA_LLADDR, macText);
   return message;
}

MessageBuilder
vxlanMessage(std::uint16_t type, char const* macText, char const* destination) {
   return entryMessage(type, 9, NTF_SELF, macText).ip(NDA_DST, destination);
}

MessageBuilder
bridgeMessage(std::uint16_t type, int port, std::uint16_t vlan) {
   return entryMessage(type, port, 0, hostMac).u32(NDA_MASTER, 5).u16(NDA_VLAN, vlan);
}

class NeighbourMessages : public testing::Test {
 protected:
   void apply(MessageBuilder const& message) { applyDatagram(state, message.datagram()); }

   KernelState state;
};

} // namespace

TEST_F(NeighbourMessages, NeighbourComesChangesAndGoes) {
   apply(neighbourMessage(RTM_NEWNEIGH));
   NeighbourKey const key{3, ip("10.0.0.1")};
   EXPECT_EQ(state.neighbours().at(key), (Neighbour{NUD_STALE, MacAddress::parse(hostMac)}));
   MessageBuilder failed(RTM_NEWNEIGH,
                         ndmsg{.ndm_family = AF_INET, .ndm_ifindex = 3, .ndm_state = NUD_FAILED});
   apply(failed.ip(NDA_DST, "10.0.0.1"));
   EXPECT_EQ(state.neighbours().at(key), (Neighbour{NUD_FAILED, std::nullopt}));
   apply(neighbourMessage(RTM_DELNEIGH));
   EXPECT_TRUE(state.neighbours().empty());
}

TEST_F(NeighbourMessages, ProxyIsNoNeighbour) {
   apply(neighbourMessage(RTM_NEWNEIGH, NTF_PROXY));
   EXPECT_TRUE(state.neighbours().empty());
}

TEST_F(NeighbourMessages, GroupIsNoNeighbour) {
   for (auto const* group : {"224.0.0.0", "239.255.255.255", "ff02::1:ff00:1"}) {
      bool const isV4 = ip(group).family == IpAddress::Family::v4;
      ndmsg const fixed{.ndm_family = static_cast<std::uint8_t>(isV4 ? AF_INET : AF_INET6),
                        .ndm_ifindex = 3,
                        .ndm_state = NUD_NOARP};
      apply(MessageBuilder(RTM_NEWNEIGH, fixed).ip(NDA_DST, group).mac(NDA_LLADDR, hostMac));
      EXPECT_TRUE(state.neighbours().empty()) << group;
   }
}

TEST_F(NeighbourMessages, NeighbourWithoutAnAddressIsAnError) {
   MessageBuilder message(RTM_NEWNEIGH, ndmsg{.ndm_family = AF_INET, .ndm_ifindex = 3});
   EXPECT_THAT([&] { apply(message); },
               testing::ThrowsMessage<MessageError>("RTM_NEWNEIGH: NDA_DST: is missing"));
}

TEST_F(NeighbourMessages, FloodEntriesAreOnePerDestination) {
   apply(vxlanMessage(RTM_NEWNEIGH, floodMac, "10.255.1.2"));
   apply(vxlanMessage(RTM_NEWNEIGH, floodMac, "10.255.1.3"));
   EXPECT_EQ(state.vxlanEntries().size(), 2U);
   apply(vxlanMessage(RTM_DELNEIGH, floodMac, "10.255.1.2"));
   ASSERT_EQ(state.vxlanEntries().size(), 1U);
   EXPECT_EQ(state.vxlanEntries().begin()->second.destination, ip("10.255.1.3"));
}

TEST_F(NeighbourMessages, FloodEntriesToOneDestinationMayDifferInVniPortAndDevice) {
   auto const message = [](std::uint16_t type, std::uint32_t vni, std::uint16_t port, std::uint32_t device) {
      return vxlanMessage(type, floodMac, "10.255.1.2")
            .u32(NDA_VNI, vni)
            .u16(NDA_PORT, port)
            .u32(NDA_IFINDEX, device);
   };
   apply(message(RTM_NEWNEIGH, 100, 1, 1));
   apply(message(RTM_NEWNEIGH, 200, 1, 1));
   apply(message(RTM_NEWNEIGH, 100, 2, 1));
   apply(message(RTM_NEWNEIGH, 100, 1, 2));
   EXPECT_EQ(state.vxlanEntries().size(), 4U);
   apply(message(RTM_DELNEIGH, 200, 1, 1));
   EXPECT_EQ(state.vxlanEntries().size(), 3U);
   apply(vxlanMessage(RTM_NEWNEIGH, hostMac, "10.255.1.2").u32(NDA_VNI, 100));
   apply(vxlanMessage(RTM_NEWNEIGH, hostMac, "10.255.1.2").u32(NDA_VNI, 200));
   EXPECT_EQ(state.vxlanEntries().size(), 4U) << "a host's MAC has one entry whatever it says";
}

TEST_F(NeighbourMessages, MacThatMovesToAnotherDestinationHasOneEntry) {
   apply(vxlanMessage(RTM_NEWNEIGH, hostMac, "10.255.1.2"));
   apply(vxlanMessage(RTM_NEWNEIGH, hostMac, "10.255.1.3"));
   ASSERT_EQ(state.vxlanEntries().size(), 1U);
   EXPECT_EQ(state.vxlanEntries().begin()->second.destination, ip("10.255.1.3"));
}

TEST_F(NeighbourMessages, MacMayLeadToAnObjectAndBelongToAVni) {
   apply(entryMessage(RTM_NEWNEIGH, 9, NTF_SELF, hostMac).u32(NDA_NH_ID, 44).u32(NDA_SRC_VNI, 10));
   apply(entryMessage(RTM_NEWNEIGH, 9, NTF_SELF, hostMac).u32(NDA_NH_ID, 45).u32(NDA_SRC_VNI, 20));
   ASSERT_EQ(state.vxlanEntries().size(), 2U);
   EXPECT_EQ(state.vxlanEntries().begin()->second, (VxlanEntry{std::nullopt, 44U}));
   EXPECT_EQ(state.vxlanEntries().begin()->first.sourceVni, 10U);
}

TEST_F(NeighbourMessages, EntryMayBeBoundToADevice) {
   for (auto const* const mac : {floodMac, hostMac}) {
      apply(vxlanMessage(RTM_NEWNEIGH, mac, "10.255.1.2").u32(NDA_IFINDEX, 3));
   }
   apply(vxlanMessage(RTM_NEWNEIGH, floodMac, "10.255.1.3"));
   std::vector<int> bound;
   for (auto const& [key, entry] : state.vxlanEntries()) {
      bound.push_back(entry.underlay);
   }
   EXPECT_THAT(bound, testing::UnorderedElementsAre(3, 3, 0));
}

TEST_F(NeighbourMessages, EchoWithoutADestinationMeansNothing) {
   apply(entryMessage(RTM_NEWNEIGH, 9, NTF_SELF, floodMac));
   EXPECT_TRUE(state.vxlanEntries().empty());
   apply(vxlanMessage(RTM_NEWNEIGH, hostMac, "10.255.1.2"));
   apply(entryMessage(RTM_DELNEIGH, 9, NTF_SELF, hostMac));
   EXPECT_EQ(state.vxlanEntries().size(), 1U);
}

TEST_F(NeighbourMessages, RemoteMacOnABridgeIsNoVxlanEntry) {
   apply(entryMessage(RTM_NEWNEIGH, 9, NTF_EXT_LEARNED, hostMac).u32(NDA_MASTER, 5).u16(NDA_VLAN, 10));
   EXPECT_TRUE(state.vxlanEntries().empty());
   EXPECT_EQ(state.bridgeEntries().size(), 1U);
}

TEST_F(NeighbourMessages, BridgeEntryThatMovesHasOnePort) {
   BridgeKey const key{5, 300, MacAddress::parse(hostMac).value()};
   apply(bridgeMessage(RTM_NEWNEIGH, 1, 300));
   EXPECT_EQ(state.bridgeEntries().at(key), 1);
   apply(bridgeMessage(RTM_NEWNEIGH, 2, 300));
   EXPECT_EQ(state.bridgeEntries().at(key), 2);
   apply(bridgeMessage(RTM_NEWNEIGH, 1, 301));
   EXPECT_EQ(state.bridgeEntries().size(), 2U);
   apply(bridgeMessage(RTM_DELNEIGH, 2, 300));
   EXPECT_EQ(state.bridgeEntries().count(key), 0U);
}

TEST_F(NeighbourMessages, BridgeEntryWithoutAVlanOrABridge) {
   apply(entryMessage(RTM_NEWNEIGH, 1, 0, hostMac).u32(NDA_MASTER, 5));
   EXPECT_EQ(state.bridgeEntries().begin()->first.vlan, 0);
   apply(entryMessage(RTM_NEWNEIGH, 2, 0, hostMac));
   EXPECT_EQ(state.bridgeEntries().size(), 1U);
}

TEST_F(NeighbourMessages, EntryWithAnOddMacIsAnError) {
   MessageBuilder message(RTM_NEWNEIGH, ndmsg{.ndm_family = AF_BRIDGE, .ndm_ifindex = 1});
   EXPECT_THAT([&] { apply(message.u32(NDA_MASTER, 5).u32(NDA_LLADDR, 1)); },
               testing::ThrowsMessage<MessageError>("RTM_NEWNEIGH: NDA_LLADDR: is no Ethernet address"));
}

} // namespace L3TunnelAgent
