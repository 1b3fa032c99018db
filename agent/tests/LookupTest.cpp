#include "agent/views/Lookup.h"
#include "agent/tests/PlayedAgent.h"
#include "chip/model/Layouts.h"

#include <gmock/gmock.h>
#include <sstream>

namespace L3TunnelAgent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LookupTest : public testing::Test {
 protected:
   static IpAddress ip(char const* text) { return IpAddress::parse(text).value(); }

   Lookup lookupOf(char const* destination) const {
      return lookup(*agent, ip(destination), tunnelFlow(ip(destination)));
   }

   std::unique_ptr<Agent> const agent = playedAgent("mixed");
};

TEST_F(LookupTest, FlowsReachAllMembersAndNoOthersAndEachAlwaysTheSame) {
   for (auto const& [address, destination] : agent->fabric().destinations()) {
      if (!destination.group) {
         continue;
      }
      auto const group = destination.group->hwEntryIndex();
      auto const rows = ModelChip::followGroup(agent->fabric().chip(), group);
      std::set<Asic::Index> all;
      for (auto const& hop : rows.hops) {
         all.insert(hop.member);
      }
      std::set<Asic::Index> reached;
      auto flow = tunnelFlow(address);
      for (std::uint16_t port = 0; port < 1000; ++port) {
         flow.sourcePort = port;
         auto const once = lookup(*agent, address, flow);
         EXPECT_EQ(once.problem, "");
         EXPECT_EQ(lookup(*agent, address, flow).rows->hop.member, once.rows->hop.member);
         reached.insert(once.rows->hop.member);
      }
      EXPECT_EQ(reached, all) << address.text();
   }
}

TEST_F(LookupTest, HeaderIsWhatTheRowsSay) {
   // One via, untagged.
   auto const untagged = lookupOf("10.255.1.4");
   EXPECT_THAT(untagged.header, ElementsAre(0x02, 0x22, 0x02, 0x00, 0x03, 0x01, 0x02, 0x22, 0x04, 0x00, 0x01,
                                            0x00, 0x08, 0x00));
   // Two vias, both tagged: 102 or 106.
   auto const tagged = lookupOf("10.254.7.7").header;
   ASSERT_EQ(tagged.size(), 18U);
   EXPECT_EQ(tagged[12], 0x81);
   EXPECT_EQ(tagged[13], 0x00);
   EXPECT_EQ(tagged[14], 0x00);
   EXPECT_THAT(tagged[15], testing::AnyOf(102, 106));
   EXPECT_EQ(tagged[16], 0x08);
}

TEST_F(LookupTest, CpuAndDropWriteNoHeader) {
   for (auto const* destination : {"10.255.1.1", "10.255.99.1", "10.255.99.13"}) {
      auto const found = lookupOf(destination);
      EXPECT_TRUE(found.isForwarded()) << destination;
      EXPECT_THAT(found.header, IsEmpty()) << destination;
   }
   EXPECT_THAT(text(lookupOf("10.255.1.1"), *agent, Paint()), HasSubstr("The packet goes to the CPU.\n"));
   EXPECT_THAT(text(lookupOf("10.255.99.1"), *agent, Paint()), HasSubstr("The packet is dropped.\n"));
}

TEST_F(LookupTest, SaysWhyThereIsNoWay) {
   EXPECT_EQ(lookupOf("192.0.2.1").problem, "it is no tunnel destination");
   EXPECT_THAT(lookupOf("10.255.99.8").problem, HasSubstr("it has no group: no route"));
}

TEST_F(LookupTest, SinglePathTakesTheFirstWhateverTheFlow) {
   namespace Row = ModelChip::L3EcmpGroup0Table;
   auto const group = agent->fabric().destinations().at(ip("10.255.1.2")).group->hwEntryIndex();
   auto const row = agent->fabric().chip().table(Row::layout.table)->row(group);
   Row::lbMode.pack({const_cast<std::uint32_t*>(row.data()), row.size()}, 0);
   auto flow = tunnelFlow(ip("10.255.1.2"));
   for (std::uint16_t port = 0; port < 100; ++port) {
      flow.sourcePort = port;
      EXPECT_EQ(lookup(*agent, ip("10.255.1.2"), flow).rows->path, 0U);
   }
}

TEST_F(LookupTest, RowThatIsNotThereIsNamed) {
   namespace Row = ModelChip::L3UnderlayEcmpMember1Table;
   auto const found = lookupOf("10.255.1.4");
   auto const row = agent->fabric().chip().table(Row::layout.table)->row(found.rows->hop.member);
   Row::nextHop.pack({const_cast<std::uint32_t*>(row.data()), row.size()}, 4000);
   auto const broken = lookupOf("10.255.1.4");
   EXPECT_FALSE(broken.isForwarded());
   EXPECT_EQ(broken.problem, "no row 4000 in IngL3NextHop2Table");
   EXPECT_THAT(text(broken, *agent, Paint()), HasSubstr("not forwarded: no row 4000 in IngL3NextHop2Table"));
}

TEST_F(LookupTest, SpreadCountsEveryFlow) {
   auto const shown = spreadText(*agent, ip("10.255.1.2"), tunnelFlow(ip("10.255.1.2")), 200000, Paint());
   std::istringstream lines(shown);
   std::string line;
   std::getline(lines, line);
   EXPECT_EQ(line, "SPREAD of 200000 flows");
   std::getline(lines, line); // of heads
   std::set<unsigned> members;
   unsigned all = 0;
   for (unsigned member = 0, flows = 0; lines >> member >> flows; std::getline(lines, line)) {
      double share = 0;
      lines >> share;
      EXPECT_NEAR(share, flows / 2000.0, 0.05) << member;
      EXPECT_NEAR(share, 100.0 / 7, 1.5) << member;
      members.insert(member);
      all += flows;
   }
   EXPECT_EQ(members.size(), 7U);
   EXPECT_EQ(all, 200000U);
   EXPECT_EQ(spreadText(*agent, ip("192.0.2.1"), tunnelFlow(ip("192.0.2.1")), 10, Paint()), "");
}

TEST(FlowTextTest, PartsReplaceWhatTheyName) {
   auto flow = tunnelFlow(IpAddress::parse("10.0.0.9").value());
   EXPECT_EQ(text(flow), "udp 0.0.0.0:49152 to 10.0.0.9:4789");
   flowIs(flow, "sport=1,src=10.0.0.1");
   EXPECT_EQ(text(flow), "udp 10.0.0.1:1 to 10.0.0.9:4789");
   flowIs(flow, "proto=tcp,dport=65535,dst=10.0.0.2");
   EXPECT_EQ(text(flow), "tcp 10.0.0.1:1 to 10.0.0.2:65535");
   flowIs(flow, "proto=1");
   EXPECT_EQ(text(flow), "protocol 1 10.0.0.1:1 to 10.0.0.2:65535");
   flowIs(flow, "src=fe80::1,dst=fe80::2");
   EXPECT_EQ(text(flow), "protocol 1 [fe80::1]:1 to [fe80::2]:65535");
   EXPECT_EQ(text(tunnelFlow(IpAddress::parse("fd00::1").value())), "udp [::]:49152 to [fd00::1]:4789");
}

} // namespace
} // namespace L3TunnelAgent
