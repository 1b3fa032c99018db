#include "agent/tests/KernelTest.h"
#include "agent/tests/StateBuilder.h"
#include "agent/views/Audit.h"

#include <chrono>
#include <csignal>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// An agent that follows a kernel of the test's own.
class LiveAgentTest : public KernelTest {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; ReconciliationTest, DumpReaderTest and "
                         "EventReplayTest cover reading and following with recordings";
      }
      kernel_.twoRoutersAre();
   }

   void TearDown() override { live_.reset(); }

   /// Runs the loop until the agent has caught up with all that the kernel has told so far.
   void catchUp() {
      bool isCaughtUp = false;
      live_->hooks().caughtUp = [&] { isCaughtUp = live_->isCaughtUp(); };
      runUntil([&] { return isCaughtUp; });
      EXPECT_TRUE(live_->isCaughtUp());
      live_->hooks().caughtUp = {};
   }

   void start(LiveAgent::Settings const& settings = {}) {
      live_ = std::make_unique<LiveAgent>(loop_, settings);
      live_->hooks().log = [this](LogLevel, std::string const& text) { log_.push_back(text); };
      live_->start();
   }

   /// More links than the first reply holds, which is made when it is asked for, and z0 behind them.
   void manyCablesAre() const {
      for (int at = 0; at < 40; ++at) {
         kernel_.cableIs(("y" + std::to_string(at)).c_str(), ("x" + std::to_string(at)).c_str());
      }
      kernel_.cableIs("z0", "z1");
      kernel_.addressIs("z0", "10.3.0.0", 31);
      kernel_.neighbourIs("z0", "10.3.0.1", "02:00:00:00:00:0c");
   }

   /// Where the chip sends packets to a destination: devices by name.
   std::vector<std::string> ways(std::string const& destination) const {
      std::vector<std::string> result;
      auto const& all = live_->agent().fabric().destinations();
      auto const found = all.find(StateBuilder::ip(destination));
      if (found != all.end() && found->second.state() == DestinationState::success) {
         for (auto const& via : found->second.current->vias()) {
            result.push_back(live_->agent().kernel().linkName(via.via.port.value_or(0)));
         }
      }
      return result;
   }

   /// What differs between what was followed and what a new agent reads now, but for neighbours, which time
   /// out by themselves.
   Changes differenceToFresh() {
      Changes changes;
      withFreshAgent([&](Agent const& fresh) {
         loop_.poll();
         KernelState known = live_->agent().kernel();
         known.becomes(fresh.kernel());
         changes = known.takeChanges();
      });
      changes.neighbours.clear();
      return changes;
   }

   /// @return the keys of what differs, in words.
   static std::string text(Changes const& changes) {
      std::ostringstream out;
      auto const add = [&](char const* what, auto const& keys, auto const& textOf) {
         for (auto const& key : keys) {
            out << what << " " << textOf(key) << "\n";
         }
      };
      auto const number = [](auto const& key) { return std::to_string(static_cast<std::uint64_t>(key)); };
      add("link", changes.links, number);
      add("forwarding entry of", changes.vxlanEntries,
          [](auto const& key) { return std::to_string(key.device) + " for " + key.mac.text(); });
      add("forwarding entry of bridge", changes.bridgeEntries,
          [](auto const& key) { return std::to_string(key.bridge) + " for " + key.mac.text(); });
      add("VLANs of port", changes.portVlans, number);
      add("next hop", changes.nextHops, number);
      add("routes of", changes.routes,
          [](auto const& key) { return key.prefix.text() + " in table " + std::to_string(key.table); });
      add("rules of family", changes.rules, number);
      return out.str();
   }

   /// Expects that what was followed is what the kernel has, and that the chip has just that. The kernel may
   /// still do something by itself.
   void expectExact() {
      auto const deadline = std::chrono::steady_clock::now() + 20s;
      auto differing = differenceToFresh();
      while (!differing.empty() && std::chrono::steady_clock::now() < deadline) {
         loop_.run_one_for(50ms);
         differing = differenceToFresh();
      }
      EXPECT_EQ(text(differing), "");
      EXPECT_THAT(audit(live_->agent().fabric()).findings, IsEmpty());
      EXPECT_EQ(live_->agent().derivation().destinations(),
                Derivation(live_->agent().kernel()).destinations());
   }

   /// A link's carrier goes a moment after the other end went down.
   void awaitWays(std::string const& destination, std::vector<std::string> const& expected) {
      runUntil([&] { return ways(destination) == expected; });
   }

   std::unique_ptr<LiveAgent> live_;
   std::vector<std::string> log_;
};

TEST_F(LiveAgentTest, ProgramsWhatTheKernelHasAtTheStart) {
   kernel_.destinationsAre(3);
   start();
   catchUp();
   EXPECT_EQ(live_->agent().fabric().destinations().size(), 3U);
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   EXPECT_EQ(live_->counters().dumps, allDumps().size());
   EXPECT_EQ(live_->counters().reconciliations, 1U);
   EXPECT_THAT(log_, IsEmpty());
   expectExact();
}

TEST_F(LiveAgentTest, FollowsAKernelThatMakesLinkLocalAddressesMeanwhile) {
   kernel_.cableIs("c0", "c1", TestKernel::LinkLocal::made);
   kernel_.destinationsAre(3);
   start();
   catchUp();
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   expectExact();
}

TEST_F(LiveAgentTest, TakesTheFirstOfEqualIpv6RoutesAsTheKernelDoes) {
   constexpr auto destination = "fd00:4::9";
   kernel_.vxlanIs("vx6", "fd00:1::1", 20);
   kernel_.tunnelIs("vx6", destination);
   for (auto const* device : {"a0", "b0"}) {
      kernel_.neighbourIs(device, destination, "02:00:00:00:00:0d");
   }
   start();
   catchUp();
   auto const kernelsWay = [&] {
      int const device = kernel_.deviceTo(destination);
      return std::vector{live_->agent().kernel().linkName(device)};
   };
   // Each brings the route to one network, and the second goes behind the first.
   kernel_.addressIs("b0", "fd00:4::2", 64);
   kernel_.addressIs("a0", "fd00:4::1", 64);
   catchUp();
   EXPECT_THAT(kernelsWay(), ElementsAre("b0"));
   EXPECT_EQ(ways(destination), kernelsWay());
   expectExact();
}

TEST_F(LiveAgentTest, HeedsThatTheHopsOfAnIpv6RouteComeInAnyOrder) {
   kernel_.addressIs("a0", "fd00:4::1", 64);
   start();
   catchUp();
   for (auto const* gateway : {"fd00:4::12", "fd00:4::13", "fd00:4::11"}) {
      MessageBuilder route(RTM_NEWROUTE, rtmsg{.rtm_family = AF_INET6,
                                               .rtm_dst_len = 64,
                                               .rtm_table = RT_TABLE_MAIN,
                                               .rtm_protocol = RTPROT_BGP,
                                               .rtm_type = RTN_UNICAST});
      route.ip(RTA_DST, "fd00:5::").ip(RTA_GATEWAY, gateway);
      route.u32(RTA_OIF, static_cast<std::uint32_t>(kernel_.index("a0")));
      kernel_.does(route, NLM_F_CREATE | NLM_F_APPEND);
   }
   catchUp();
   auto const* const routes =
         live_->agent().kernel().routes({RT_TABLE_MAIN, StateBuilder::prefix("fd00:5::/64")});
   ASSERT_NE(routes, nullptr);
   EXPECT_EQ(routes->at(0).hops.size(), 3U);
   EXPECT_EQ(text(differenceToFresh()), "");
}

TEST_F(LiveAgentTest, FollowsWhatTheKernelAnnounces) {
   start();
   catchUp();
   kernel_.destinationsAre(2);
   catchUp();
   EXPECT_THAT(ways("10.255.0.2"), UnorderedElementsAre("a0", "b0"));
   kernel_.groupIs(10, {2});
   catchUp();
   EXPECT_THAT(ways("10.255.0.2"), ElementsAre("b0"));
   kernel_.routeIs("10.255.0.2", 10, RTM_DELROUTE);
   catchUp();
   EXPECT_THAT(ways("10.255.0.2"), IsEmpty());
   EXPECT_GT(live_->counters().reactions.count(), 2U);
   expectExact();
}

TEST_F(LiveAgentTest, NamesTheDestinationsThatMayHaveChanged) {
   start();
   catchUp();
   std::set<IpAddress> named;
   live_->hooks().changed = [&](auto const& addresses) { named.insert(addresses.begin(), addresses.end()); };
   kernel_.destinationsAre(2);
   catchUp();
   EXPECT_THAT(named, ElementsAre(StateBuilder::ip("10.255.0.1"), StateBuilder::ip("10.255.0.2")));
   named.clear();
   kernel_.routeIs("10.255.0.2", 2);
   catchUp();
   EXPECT_THAT(named, ElementsAre(StateBuilder::ip("10.255.0.2")));
}

TEST_F(LiveAgentTest, NoticesWhatTheKernelDropsSilentlyWithALink) {
   kernel_.destinationsAre(2);
   kernel_.routeIs("10.255.0.2", 1);
   start();
   catchUp();
   kernel_.upIs("a1", false); // a0 has no carrier any more
   awaitWays("10.255.0.1", {"b0"});
   awaitWays("10.255.0.2", {});
   runUntil([&] { return live_->counters().confirmations >= 1; });
   EXPECT_EQ(live_->counters().dumps, allDumps().size() + routeDumps().size());
   EXPECT_EQ(live_->counters().confirmations, 1U);
   EXPECT_EQ(live_->counters().confirmationsDiffering, 0U);
   expectExact();
}

TEST_F(LiveAgentTest, CorrectsAWrongConclusion) {
   kernel_.destinationsAre(1);
   start();
   catchUp();
   // Something that the kernel has not, and then a reason to look.
   live_->agent().messageIs(routeMessage(RTM_NEWROUTE, "10.255.0.1", 32, RTN_BLACKHOLE).datagram());
   MessageBuilder gone(RTM_DELNEXTHOP, nhmsg{});
   live_->agent().messageIs(gone.u32(NHA_ID, 1).datagram());
   kernel_.upIs("vx", true);
   kernel_.upIs("vx", false);
   runUntil([&] { return live_->counters().confirmations >= 1; });
   EXPECT_GE(live_->counters().confirmationsDiffering, 1U);
   catchUp();
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   expectExact();
}

TEST_F(LiveAgentTest, ReadsTheStateAgainWhenAnnouncementsAreLost) {
   kernel_.destinationsAre(100);
   start({.kernel = {.netns = {}, .receiveBuffer = 1}}); // as little as the kernel grants
   catchUp();
   auto const rows = live_->agent().rows().count();
   kernel_.routeIs("10.255.0.1", 2);
   for (int turn = 0; turn < 3; ++turn) {
      for (std::size_t at = 1; at < 100; ++at) {
         kernel_.routeIs(TestKernel::destination(at), 2 - turn % 2);
      }
   }
   kernel_.destinationsAre(100);
   kernel_.routeIs("10.255.0.2", 2);
   catchUp();
   EXPECT_GT(live_->counters().overruns, 0U);
   EXPECT_GT(live_->counters().reconciliations, 1U);
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   EXPECT_THAT(ways("10.255.0.2"), ElementsAre("b0"));
   // What is as it was is not written again.
   EXPECT_LT(live_->agent().rows().count() - rows, 100U);
   EXPECT_EQ(live_->agent().rows().needless(), 0U);
   expectExact();
}

TEST_F(LiveAgentTest, EndsWithWhatTheKernelHasWhenItDroppedMoreThanItSaid) {
   constexpr std::size_t count = 12'000;
   for (std::size_t at = 0; at < count; ++at) {
      kernel_.tunnelIs("vx", TestKernel::destination(at));
   }
   start({.kernel = {.netns = {}, .receiveBuffer = 16'000'000}});
   catchUp();
   // All of it before the loop turns: the end is dropped, and only the loss of its first is told.
   for (std::uint32_t const nextHop : {1U, 2U, 10U}) {
      for (std::size_t at = 0; at < count; ++at) {
         kernel_.routeIs(TestKernel::destination(at), nextHop);
      }
   }
   for (std::size_t at = 0; at < count; ++at) {
      kernel_.routeIs(TestKernel::destination(at), 10, RTM_DELROUTE);
   }
   runUntil([&] { return live_->counters().overruns > 0 && live_->isCaughtUp(); });
   std::size_t routed = 0;
   for (std::size_t at = 0; at < count; ++at) {
      routed += ways(TestKernel::destination(at)).empty() ? 0 : 1;
   }
   EXPECT_EQ(routed, 0U);
   expectExact();
}

TEST_F(LiveAgentTest, RereadsWithoutWritingWhatIsThere) {
   kernel_.destinationsAre(20);
   start();
   catchUp();
   auto const rows = live_->agent().rows().count();
   live_->reread();
   catchUp();
   EXPECT_EQ(live_->counters().reconciliations, 2U);
   EXPECT_EQ(live_->counters().differing, 0U);
   EXPECT_EQ(live_->agent().rows().count(), rows);
}

TEST_F(LiveAgentTest, TakesWhatIsAnnouncedWhileTheStateIsRead) {
   kernel_.destinationsAre(50);
   start();
   // Turn by turn of the loop, so that changes fall between the parts of the state.
   for (std::size_t at = 0; at < 50; ++at) {
      loop_.poll_one();
      kernel_.routeIs(TestKernel::destination(at), at % 2 + 1);
      if (at % 5 == 0) {
         kernel_.groupIs(10, {1});
         kernel_.groupIs(10, {1, 2});
      }
   }
   catchUp();
   expectExact();
}

TEST_F(LiveAgentTest, AsksAgainForWhatChangedWhileItWasRead) {
   kernel_.destinationsAre(3);
   for (std::uint32_t id = 100; id < 1600; ++id) { // more than one reply holds
      kernel_.nextHopIs(id, "a0", "10.1.0.1");
   }
   auto const child = fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
   }
   while (child == 0) { // until it is killed
      kernel_.groupIs(10, {1});
      kernel_.groupIs(10, {1, 2});
   }
   start();
   live_->hooks().caughtUp = [&] { live_->reread(); };
   runUntil([&] { return live_->counters().interruptedDumps >= 2; });
   EXPECT_EQ(kill(child, SIGKILL), 0);
   EXPECT_EQ(waitpid(child, nullptr, 0), child);
   kernel_.groupIs(10, {1, 2});
   live_->reread();
   catchUp();
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   expectExact();
}

TEST_F(LiveAgentTest, TellsThatWhatItFirstReadIsProgrammedThoughItIsToBeReadAgain) {
   kernel_.destinationsAre(3);
   for (std::uint32_t id = 100; id < 1600; ++id) { // more than one reply holds
      kernel_.nextHopIs(id, "a0", "10.1.0.1");
   }
   start();
   std::vector<std::uint64_t> readings;
   std::vector<bool> caughtUp;
   live_->hooks().caughtUp = [&] {
      readings.push_back(live_->counters().reconciliations);
      caughtUp.push_back(live_->isCaughtUp());
   };
   runUntil([&] {
      if (live_->counters().reconciliations == 0) { // between a reply and the next
         kernel_.groupIs(10, {1});
         kernel_.groupIs(10, {1, 2});
      }
      return !readings.empty();
   });
   EXPECT_GE(live_->counters().interruptedDumps, 8U);
   EXPECT_THAT(readings, ElementsAre(1U));
   EXPECT_THAT(caughtUp, ElementsAre(false));
   EXPECT_THAT(log_, Contains("the kernel's state changed while it was read, and is read again"));
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   runUntil([&] { return live_->isCaughtUp(); });
   EXPECT_GT(live_->counters().reconciliations, 1U);
   expectExact();
}

TEST_F(LiveAgentTest, TakesADeviceOutThatIsRemoved) {
   kernel_.destinationsAre(1);
   start();
   catchUp();
   kernel_.linkDel("b0");
   awaitWays("10.255.0.1", {"a0"});
   kernel_.linkDel("vx");
   runUntil([&] { return live_->agent().fabric().destinations().empty(); });
   expectExact();
}

TEST_F(LiveAgentTest, DropsWhatALinkTookAlongBeforeItWasReadFirst) {
   kernel_.destinationsAre(2);
   manyCablesAre();
   start();
   kernel_.nextHopIs(7, "z0", "10.3.0.1");
   kernel_.routeIs("10.255.0.2", 7);
   kernel_.upIs("z0", false);
   runUntil([&] { return live_->counters().confirmations >= 1; });
   EXPECT_EQ(live_->agent().kernel().nextHop(7), nullptr);
   catchUp();
   EXPECT_THAT(ways("10.255.0.2"), IsEmpty());
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
   expectExact();
}

TEST_F(LiveAgentTest, DropsWhatALinkTookAlongThatWasTakenForOneThatIsDownAnyway) {
   kernel_.destinationsAre(2);
   manyCablesAre();
   start();
   catchUp();
   // As if it had come up and that was lost.
   live_->agent().messageIs(linkMessage(kernel_.index("z0"), "z0", "veth", 0).datagram());
   kernel_.upIs("vx", true);
   runUntil([&] { return live_->counters().confirmations >= 1; });
   live_->reread();
   loop_.poll_one(); // the first reply is made, in which that link is not yet
   kernel_.nextHopIs(7, "z0", "10.3.0.1");
   kernel_.routeIs("10.255.0.2", 7);
   kernel_.upIs("z0", false);
   catchUp();
   runUntil([&] { return !live_->agent().kernel().nextHop(7); });
   catchUp();
   EXPECT_THAT(ways("10.255.0.2"), IsEmpty());
   expectExact();
}

TEST_F(LiveAgentTest, StopsWithTheChipAsItIs) {
   kernel_.destinationsAre(1);
   start();
   catchUp();
   auto const rows = live_->agent().rows().count();
   live_->stop();
   kernel_.routeIs("10.255.0.1", 1);
   loop_.run(); // out of work
   EXPECT_EQ(live_->agent().rows().count(), rows);
   EXPECT_THAT(ways("10.255.0.1"), UnorderedElementsAre("a0", "b0"));
}

TEST_F(LiveAgentTest, ConfirmsADoubtAgainOnlyAfterARest) {
   kernel_.destinationsAre(1);
   start();
   catchUp();
   using Clock = std::chrono::steady_clock;
   std::vector<Clock::time_point> confirmed;
   auto const begin = Clock::now();
   runUntil([&] {
      kernel_.upIs("b0", false); // each time a reason to look
      kernel_.upIs("b0", true);
      while (confirmed.size() < live_->counters().confirmations) {
         confirmed.push_back(Clock::now());
      }
      return confirmed.size() >= 3;
   });
   EXPECT_LT(confirmed[0] - begin, 10s);
   EXPECT_GE(confirmed[1] - confirmed[0], 900ms);
   EXPECT_GE(confirmed[2] - confirmed[1], 900ms);
}

TEST_F(LiveAgentTest, RestsTheLongerTheLongerItRead) {
   EXPECT_EQ(LiveAgent::restAfter(10ms), 1s);
   EXPECT_EQ(LiveAgent::restAfter(250ms), 1s);
   EXPECT_EQ(LiveAgent::restAfter(2s), 8s);
   EXPECT_EQ(LiveAgent::restAfter(1h), 60s);
}

TEST_F(LiveAgentTest, RefusesANamespaceThatIsNotThere) {
   for (auto const* name : {"no-such-namespace-here", "", "..", "a/b"}) {
      LiveAgent agent(loop_, {.kernel = {.netns = name}});
      EXPECT_THROW(agent.start(), NetlinkError) << name;
   }
}

} // namespace
} // namespace L3TunnelAgent
