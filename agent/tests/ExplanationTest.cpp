#include "agent/views/Explanation.h"
#include "agent/tests/FabricDriver.h"
#include "agent/tests/KernelMessages.h"
#include "agent/tests/PlayedAgent.h"
#include "agent/views/Difference.h"
#include "agent/views/Summary.h"

#include <gmock/gmock.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string
explained(Agent const& agent, IpAddress const& destination) {
   Users const users(agent.fabric());
   return explanation({agent, users}, destination, Paint()).value_or("unknown");
}

/// An agent whose fabric the test fills itself.
class ExplanationTest : public testing::Test {
 protected:
   ExplanationTest() { agent.fabric().chip().faultsIs(faults); }

   void destinationIs(std::uint32_t number, std::vector<DerivedVia> vias) {
      agent.fabric().destinationIs(destination(number, std::move(vias)));
      agent.fabric().settle();
   }

   std::string explain(std::uint32_t number) const { return explained(agent, address(number)); }

   Agent agent;
   Nuv::Ptr<ModelChip::Faults> const faults = Nuv::make<ModelChip::Faults>();
};

TEST_F(ExplanationTest, SuccessShowsTheChainDownToTheInterface) {
   destinationIs(1, {unicastVia(1, 11, 3, 100)});
   EXPECT_THAT(explain(1),
               AllOf(HasSubstr("10.0.0.1 is success\n"), HasSubstr("forwards by port 1 (#11)"),
                     HasSubstr("  group 0: success\n"
                               "    points at block 0 of 1 member, used by 1 destination: success\n"
                               "      member 0: next hop 1 to port 1 (#11), neighbour "
                               "02:00:00:00:00:01: success\n"
                               "        interface 1, source MAC 02:01:00:00:00:03, VLAN 100: success\n")));
   EXPECT_EQ(explain(2), "unknown");
}

TEST_F(ExplanationTest, LeftOutAndCpuViasSayWhatBecomesOfThem) {
   destinationIs(1, {unicastVia(1, 11), otherVia(ViaKind::cpu)});
   EXPECT_THAT(explain(1), HasSubstr("left out, since others forward"));
   destinationIs(2, {otherVia(ViaKind::cpu)});
   EXPECT_THAT(explain(2), AllOf(HasSubstr("cpu (so it is)"), HasSubstr("to the CPU")));
   destinationIs(3, {otherVia(ViaKind::drop)});
   EXPECT_THAT(explain(3), HasSubstr("drops"));
}

TEST_F(ExplanationTest, NoRouteIsSaidWithItsReason) {
   agent.fabric().destinationIs({.address = address(1), .vias = {}, .reason = "no route: throw"});
   agent.fabric().settle();
   EXPECT_THAT(explain(1), AllOf(HasSubstr("10.0.0.1 is noRoute\nIt is not programmed: no route: throw."),
                                 HasSubstr("nothing")));
}

TEST_F(ExplanationTest, RefusedRowIsTheCauseOfTheFailure) {
   faults->refuse({"EgrL3Oif2", {}, {}});
   destinationIs(1, {unicastVia(1, 11)});
   EXPECT_THAT(explain(1), AllOf(HasSubstr("10.0.0.1 is failedNeededEntry"),
                                 HasSubstr("the chip refused the row of interface 1"),
                                 HasSubstr("The chip has nothing for it."),
                                 HasSubstr("not programmed, since the set failed")));
}

TEST_F(ExplanationTest, FailedChangeKeepsTheOldSetAndShowsBoth) {
   destinationIs(1, {unicastVia(1, 11)});
   faults->refuse({"L3UnderlayEcmpMember1Table", {}, true});
   destinationIs(1, {unicastVia(2, 12)});
   EXPECT_THAT(explain(1), AllOf(HasSubstr("It failed: "), HasSubstr("It keeps the set that it had."),
                                 HasSubstr("VIAS that it is to have"), HasSubstr("VIAS that it has"),
                                 HasSubstr("  group 0: success\n    points at block 0")));
}

TEST_F(ExplanationTest, WaitIsNamedDownToTheAnswerThatIsMissing) {
   faults->lose({"EgrL3Oif2", {}, {}});
   destinationIs(1, {unicastVia(1, 11)});
   EXPECT_THAT(explain(1),
               HasSubstr("It waits for interface 1, which the next hop to 02:00:00:00:00:01 needs."));
   faults->stop();
   faults->lose({"L3UnderlayEcmpMember1Table", {}, {}});
   destinationIs(2, {unicastVia(2, 12, 2)});
   EXPECT_THAT(explain(2), HasSubstr("It waits for the chip's answer for the rows of block "));
   faults->stop();
   faults->lose({"L3EcmpGroup0Table", {}, {}});
   destinationIs(3, {unicastVia(3, 13, 2)});
   EXPECT_THAT(explain(3), HasSubstr("It waits for the chip's answer for the row of group "));
   faults->stop();
   faults->lose({"EgrL3NextHop2", {}, {}});
   destinationIs(4, {unicastVia(4, 14, 2)});
   EXPECT_THAT(explain(4), HasSubstr("It waits for the chip's answer for the rows of the next hop to "));
}

TEST_F(ExplanationTest, NamesOfDevicesCannotCommandATerminal) {
   ifinfomsg link{};
   link.ifi_index = 11;
   auto const named = MessageBuilder(RTM_NEWLINK, link).text(IFLA_IFNAME, "\x1b[31m\nswp").datagram();
   agent.messageIs(named);
   while (agent.step()) {
   }
   auto const before = pictureOf(agent);
   agent.rows().isKept(true);
   destinationIs(1, {unicastVia(1, 11)});
   Users const users(agent.fabric());
   auto shown = explain(1) + differenceText(agent, before, Paint());
   for (auto const& section : sections()) {
      shown += section.text({agent, users}, Paint());
   }
   EXPECT_THAT(shown, AllOf(Not(HasSubstr("\x1b")), HasSubstr("1 (\\x1b[31m\\x0aswp)")));
}

TEST_F(ExplanationTest, SummaryNamesTheFirstFailuresAndCountsTheOthers) {
   faults->refuse({"L3EcmpGroup0Table", {}, true});
   for (std::uint32_t number = 1; number <= 7; ++number) {
      destinationIs(number, {unicastVia(1, 11)});
   }
   auto const shown = text(summaryOf(agent), Paint());
   EXPECT_THAT(shown, AllOf(HasSubstr("  failed                   7\n"), HasSubstr("10.0.0.5     failed"),
                            Not(HasSubstr("10.0.0.6")), HasSubstr("  and 2 more\n")));
}

TEST_F(ExplanationTest, SummaryCountsSharedBlocksAndWhatIsNotProgrammed) {
   auto weighted = unicastVia(1, 11);
   weighted.weight = 3;
   destinationIs(1, {weighted, unicastVia(2, 12), otherVia(ViaKind::cpu)});
   destinationIs(2, {unicastVia(1, 11), unicastVia(2, 12)});
   destinationIs(3, {unicastVia(3, 13)});
   auto const summary = summaryOf(agent);
   EXPECT_EQ(summary.destinations, 3U);
   EXPECT_EQ(summary.vias, 6U);
   EXPECT_EQ(summary.blocks, 2U);
   EXPECT_EQ(summary.sharedBlocks, 1U);
   EXPECT_EQ(summary.viasLeftOut, 1U);
   EXPECT_EQ(summary.weightsNotProgrammed, 1U);
   EXPECT_EQ(summary.count(DestinationState::success), 3U);
   EXPECT_EQ(summary.rowsWritten, agent.rows().count());
   EXPECT_THAT(text(summary, Paint()), HasSubstr("2 blocks of members for them, 1 of these shared"));
}

TEST_F(ExplanationTest, SummaryCountsRulesThatArePassedOver) {
   EXPECT_THAT(text(summaryOf(agent), Paint()), Not(HasSubstr("rule")));
   auto const rule = [](std::uint32_t priority, std::uint8_t tos) {
      MessageBuilder message(RTM_NEWRULE,
                             fib_rule_hdr{.family = AF_INET, .tos = tos, .action = FR_ACT_TO_TBL});
      return message.u32(FRA_PRIORITY, priority).datagram();
   };
   agent.messageIs(rule(10, 16));
   agent.messageIs(rule(11, 0));
   auto const summary = summaryOf(agent);
   EXPECT_EQ(summary.rulesPassedOver, 1U);
   EXPECT_EQ(json(summary).at("rulesPassedOver"), 1);
   EXPECT_THAT(text(summary, Paint()), HasSubstr("1 policy rule passed over"));
}

TEST_F(ExplanationTest, SummaryCountsDestinationsOfBoundTunnels) {
   auto const tell = [&](MessageBuilder const& message) { agent.messageIs(message.datagram()); };
   tell(linkMessage(9, "vx10", "vxlan"));
   tell(tunnelMessage(RTM_NEWNEIGH, 9, "10.255.1.1").u32(NDA_IFINDEX, 2));
   tell(tunnelMessage(RTM_NEWNEIGH, 9, "10.255.1.2"));
   while (agent.step()) {
   }
   auto const summary = summaryOf(agent);
   EXPECT_EQ(summary.bound, 1U);
   EXPECT_EQ(json(summary).at("bound"), 1);
   EXPECT_THAT(text(summary, Paint()),
               HasSubstr("1 destination of tunnels that are bound to a device, which is not looked at"));
   EXPECT_THAT(text(summaryOf(Agent()), Paint()), Not(HasSubstr("bound")));
}

TEST_F(ExplanationTest, OnlyWeightsThatDifferAmongProgrammedViasAreLost) {
   auto const weighted = [](std::uint8_t neighbour, unsigned weight) {
      auto via = unicastVia(neighbour, 10 + neighbour);
      via.weight = weight;
      return via;
   };
   auto cpu = otherVia(ViaKind::cpu);
   cpu.weight = 9;
   destinationIs(1, {weighted(1, 10), weighted(2, 10)});
   destinationIs(2, {weighted(1, 10)});
   destinationIs(3, {weighted(1, 10), weighted(2, 10), cpu});
   EXPECT_EQ(summaryOf(agent).weightsNotProgrammed, 0U);
   EXPECT_THAT(text(summaryOf(agent), Paint()), Not(HasSubstr("weights")));
   destinationIs(1, {weighted(1, 10), weighted(2, 10), weighted(3, 11), weighted(4, 12)});
   EXPECT_EQ(summaryOf(agent).weightsNotProgrammed, 1U);
   EXPECT_THAT(text(summaryOf(agent), Paint()), HasSubstr("1 destination with unequal weights"));
}

TEST_F(ExplanationTest, FailureForWantOfRoomIsAskedForAgainAndOneThatIsTooLargeNeedsOtherVias) {
   Agent small({.sizes = {{"L3UnderlayEcmpMember1Table", 3}}});
   auto const isTo = [&](std::vector<DerivedVia> vias) {
      small.fabric().destinationIs(destination(1, std::move(vias)));
      small.fabric().settle();
      return explained(small, address(1));
   };
   isTo({unicastVia(1, 11), unicastVia(2, 12)});
   EXPECT_THAT(isTo({unicastVia(3, 13), unicastVia(4, 14)}),
               HasSubstr("It failed: no run of 2 member rows is free.\nIt keeps the set that it had. It is "
                         "asked for again when something is released.\n"));
   EXPECT_THAT(isTo({unicastVia(3, 13), unicastVia(4, 14), unicastVia(5, 15), unicastVia(6, 16)}),
               AllOf(HasSubstr("It keeps the set that it had. A block has 3 members at the most, and this "
                               "one would have 4: other vias are needed.\n"),
                     Not(HasSubstr("asked for again"))));
}

TEST_F(ExplanationTest, SetThatIsTooLargeForAnyBlockNeedsOtherVias) {
   std::vector<DerivedVia> many;
   for (unsigned i = 0; i < 0x10001; ++i) {
      many.push_back(unicastVia(0, 1));
      many.back().mac = MacAddress{{2, 0, 0, std::uint8_t(i >> 16), std::uint8_t(i >> 8), std::uint8_t(i)}};
   }
   agent.fabric().destinationIs(destination(1, many));
   agent.fabric().settle();
   EXPECT_THAT(explain(1), AllOf(HasSubstr("The chip has nothing for it. A block has 65535 members at the "
                                           "most, and this one would have 65537: other vias are needed.\n"),
                                 Not(HasSubstr("asked for again"))));
}

TEST_F(ExplanationTest, DifferenceShowsViasGoneAndComeAndRowsInOrder) {
   destinationIs(1, {unicastVia(1, 11), unicastVia(2, 12)});
   destinationIs(2, {unicastVia(1, 11)});
   destinationIs(3, {unicastVia(1, 11)});
   auto const before = pictureOf(agent);
   agent.rows().isKept(true);
   destinationIs(1, {unicastVia(1, 11), unicastVia(3, 13)});
   agent.fabric().destinationDel(address(2));
   agent.fabric().settle();
   destinationIs(4, {unicastVia(1, 11)});
   auto const shown = differenceText(agent, before, Paint());
   EXPECT_THAT(shown, AllOf(HasSubstr("DESTINATIONS that differ: 3, as address(group)\n"),
                            HasSubstr("1 destination changed:\n  10.0.0.1(0)\n    block "),
                            HasSubstr("    - #12 to 02:00:00:00:00:02 from 02:01:00:00:00:01\n"
                                      "    + #13 to 02:00:00:00:00:03 from 02:01:00:00:00:01\n"),
                            HasSubstr("1 destination gone:\n  10.0.0.2(1)\n    state success -> none\n"),
                            HasSubstr("1 destination new:\n  10.0.0.4(1)\n    state none -> success\n"),
                            Not(HasSubstr("10.0.0.3"))));
   // A next hop comes before the members that point at it, these before the group.
   auto const at = [&](char const* text) { return shown.find(text, shown.find("ROWS written, in order: ")); };
   EXPECT_LT(at("EgrL3NextHop2"), at("L3UnderlayEcmpMember1Table"));
   EXPECT_LT(at("L3UnderlayEcmpMember1Table"), at("L3EcmpGroup0Table"));
   EXPECT_THAT(shown, AllOf(HasSubstr("no row"), HasSubstr("valid=1 ")));
}

TEST_F(ExplanationTest, NoDifferenceIsSaid) {
   destinationIs(1, {unicastVia(1, 11)});
   auto const before = pictureOf(agent);
   agent.rows().isKept(true);
   destinationIs(1, {unicastVia(1, 11)});
   EXPECT_EQ(differenceText(agent, before, Paint()), "0 rounds of messages\n\n"
                                                     "DESTINATIONS that differ: 0, as address(group)\n\n"
                                                     "ROWS written, in order: 0\n  (none)\n");
}

TEST(ExplanationOfRecordingTest, TellsWhatTheKernelSaid) {
   auto const agent = playedAgent("mixed");
   for (auto const& [address, destination] : agent->fabric().destinations()) {
      auto const shown = explained(*agent, address);
      EXPECT_THAT(shown, HasSubstr("The kernel says\n  "));
      EXPECT_THAT(shown, HasSubstr(address.text() + " is " + std::string(text(destination.state()))));
   }
   EXPECT_THAT(explained(*agent, IpAddress::parse("10.255.99.7").value()),
               AllOf(HasSubstr("[br0.300 to cpu (neighbour unresolved: no entry)]"),
                     HasSubstr("10.1.30.3 at 02:22:02:00:03:01")));
}

} // namespace
} // namespace L3TunnelAgent
