#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"
#include "agent/tests/live/Topology.h"

#include <algorithm>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <iostream>

namespace L3TunnelAgent::Live {

namespace {

/// How long routers may take to agree about what happened, and the agent to follow the kernel.
constexpr Seconds routersLimit{40};
constexpr Seconds agentLimit{10};

constexpr std::size_t spines = 4;

/// Numbers of the spines by how the leaf under test reaches them.
constexpr int numbered = 1;
constexpr int otherNumbered = 2;
constexpr int unnumbered = 3;
constexpr int bridged = 4;

/// A fabric that all tests share: each leaves it as it found it.
struct Fabric {
   Folder folder;
   Topology topology{folder.path(),
                     {Uplink::numbered, Uplink::numbered, Uplink::unnumbered, Uplink::bridged}};
   std::unique_ptr<RunningAgent> agent;
};

class Routers : public testing::Test {
 protected:
   static void SetUpTestSuite() {
      if (!whyNoSandbox().empty() || !hasRouters()) {
         return;
      }
      fabric_ = std::make_unique<Fabric>();
      for (int leaf : {1, 2, 3}) {
         topology().addLeaf(leaf);
      }
      fabric_->agent = std::make_unique<RunningAgent>(lut(), fabric_->folder.path());
      agent().start();
   }

   static void TearDownTestSuite() { fabric_.reset(); }

   void SetUp() override {
      SKIP_WITHOUT_SANDBOX();
      ASSERT_TRUE(hasRouters()) << "FRR is not installed: script/bootstrap routers";
      expectAllWays("a test begins");
   }

   void TearDown() override {
      if (HasFailure() && fabric_) {
         std::cerr << agent().log();
      }
   }

   static Topology& topology() { return fabric_->topology; }
   static Router& underTest() { return topology().leaf(Topology::leafUnderTest); }
   static Namespace const& lut() { return underTest().space(); }
   static RunningAgent& agent() { return *fabric_->agent; }

   /// A spine's end of its link to the leaf under test.
   static std::string farEnd() { return Topology::portOf(Topology::leafUnderTest); }
   static Namespace const& spine(int number) { return topology().spine(number).space(); }

   /// Waits until the kernel of the leaf is as expected, and then for the agent to be so too.
   template <typename Expected>
   static void expect(std::string const& when, Expected const& isAsExpected) {
      Destinations last;
      bool const came = isWithin(routersLimit, [&] {
         try {
            last = kernelTruth(lut());
         } catch (std::exception const&) {
            return false; // something went away while it was read
         }
         return isAsExpected(last);
      });
      ASSERT_TRUE(came) << "When " << when << ", the kernel stays at\n"
                        << text(last) << "Daemons that ended:" << topology().endedDaemons() << "\n"
                        << underTest().show("show bgp summary");
      EXPECT_THAT(faults(lut(), agent(), agentLimit), testing::IsEmpty()) << when;
   }

   /// Expects these leaves, each over that many spines, and no others.
   static void expectWays(std::string const& when, std::vector<int> const& leaves, std::size_t count) {
      expect(when, [&](Destinations const& now) {
         return now.size() == leaves.size() && std::all_of(leaves.begin(), leaves.end(), [&](int leaf) {
                   auto const address = Topology::tunnelEnd(leaf);
                   return forwarding(now, address) == count && now.at(address).size() == count;
                });
      });
   }

   static void expectAllWays(std::string const& when) { expectWays(when, {2, 3}, spines); }

 private:
   inline static std::unique_ptr<Fabric> fabric_;
};

TEST_F(Routers, ConvergenceGivesEveryLeafTheWaysOverAllSpines) {
   for (int leaf : {2, 3}) {
      auto const hops = routeHops(lut(), Topology::tunnelEnd(leaf));
      EXPECT_THAT(hops, testing::SizeIs(spines));
      EXPECT_EQ(sampledHops(lut(), Topology::tunnelEnd(leaf), 200), hops);
   }
}

TEST_F(Routers, PortsThatLoseCarrierLeaveTheWaysUntilTheyAreBack) {
   for (int each : {numbered, unnumbered, bridged}) {
      spine(each).ip(fmt::format("link set {} down", farEnd()));
   }
   expectWays("three ports have no carrier", {2, 3}, 1);
   for (int each : {numbered, unnumbered, bridged}) {
      spine(each).ip(fmt::format("link set {} up", farEnd()));
   }
   expectAllWays("the ports have carrier again");
}

TEST_F(Routers, DevicesThatAreTakenDownLeaveTheWaysUntilTheyAreUp) {
   for (int each : {otherNumbered, unnumbered, bridged}) {
      lut().ip(fmt::format("link set {} down", topology().deviceTo(each)));
   }
   expectWays("three devices are down", {2, 3}, 1);
   for (int each : {otherNumbered, unnumbered, bridged}) {
      lut().ip(fmt::format("link set {} up", topology().deviceTo(each)));
   }
   expectAllWays("the devices are up again");
}

TEST_F(Routers, ASpineWhoseBgpdIsKilledLeavesTheWaysUntilItIsBack) {
   topology().spine(otherNumbered).kill("bgpd");
   expectWays("a spine's bgpd is killed", {2, 3}, spines - 1);
   topology().spine(otherNumbered).start("bgpd");
   expectAllWays("the spine's bgpd is back");
}

TEST_F(Routers, DestinationsGoWithTheLeafsOwnBgpdAndComeBackWithIt) {
   underTest().kill("bgpd");
   expectWays("the leaf's bgpd is killed", {}, 0);
   underTest().start("bgpd");
   expectAllWays("the leaf's bgpd is back");
}

/// Without zebra the kernel keeps its routes. A new one takes out those that it knows for its predecessor's:
/// mostly all, sometimes only next hops of theirs. bgpd has to begin anew for it.
TEST_F(Routers, TheLeafsOwnZebraMayBeKilledAndStartedAnew) {
   underTest().kill("zebra");
   sleepFor(Seconds(0.5));
   EXPECT_THAT(faults(lut(), agent(), agentLimit), testing::IsEmpty());
   underTest().kill("bgpd");
   underTest().start("zebra");
   Destinations before;
   int readingsAlike = 0;
   expect("the leaf's zebra is new", [&](Destinations const& now) {
      readingsAlike = now == before ? readingsAlike + 1 : 0;
      before = now;
      return readingsAlike == 20;
   });
   underTest().start("bgpd");
   expectAllWays("bgpd is new too");
}

TEST_F(Routers, ATunnelledHostThatMovesIsFollowed) {
   std::string const host = "02:11:0c:00:00:02";
   auto const isBehind = [&](int leaf) {
      auto const line = outputOf({"bridge", "fdb", "show", "dev", "vx10010"}, lut().name());
      return line.find(fmt::format("{} dst {} ", host, Topology::tunnelEnd(leaf))) != std::string::npos;
   };
   topology().leaf(2).space().bridge(fmt::format("fdb add {} dev host0 master dynamic", host));
   expect("a host is behind leaf 2", [&](Destinations const&) { return isBehind(2); });
   topology().leaf(3).space().bridge(fmt::format("fdb replace {} dev host0 master dynamic", host));
   expect("the host moved to leaf 3", [&](Destinations const&) { return isBehind(3); });
   topology().leaf(3).space().bridge(fmt::format("fdb del {} dev host0 master", host));
   expect("the host is gone", [&](Destinations const&) { return !isBehind(2) && !isBehind(3); });
}

TEST_F(Routers, ANeighbourThatMovesToAnotherPortOfABridgeIsFollowed) {
   auto const bridge = topology().deviceTo(bridged);
   auto const mac = nlohmann::json::parse(outputOf({"ip", "-j", "link", "show", "dev", farEnd()},
                                                   spine(bridged).name()))[0]["address"]
                          .get<std::string>();
   lut().ip(fmt::format("link add spare type veth peer name spare1\nlink set spare master {} up\n"
                        "link set spare1 up",
                        bridge));
   lut().bridge(fmt::format("fdb replace {} dev spare master static sticky", mac));
   expect("a spine's MAC moved to another port", [&](Destinations const& now) {
      auto const found = now.find(Topology::tunnelEnd(2));
      return found != now.end() && std::any_of(found->second.begin(), found->second.end(),
                                               [](TrueVia const& via) { return via.port == "spare"; });
   });
   lut().ip("link del spare");
   expectAllWays("it is behind its own port again");
}

TEST_F(Routers, ANeighbourThatIsForgottenIsLearnedAgain) {
   for (int each : {numbered, otherNumbered}) {
      lut().ip(
            fmt::format("neigh del {} dev {}", Topology::spineAddress(1, each), topology().deviceTo(each)));
   }
   expectAllWays("neighbours are learned again");
}

TEST_F(Routers, ANeighbourThatDoesNotAnswerLeavesTheWaysAtOnce) {
   spine(otherNumbered).ip(fmt::format("link set {} arp off", farEnd()));
   lut().ip(fmt::format("neigh del {} dev {}", Topology::spineAddress(1, otherNumbered),
                        topology().deviceTo(otherNumbered)));
   expect("a neighbour does not answer",
          [&](Destinations const& now) { return forwarding(now, Topology::tunnelEnd(2)) == spines - 1; });
   expectWays("its routes are gone", {2, 3}, spines - 1);
   spine(otherNumbered).ip(fmt::format("link set {} arp on", farEnd()));
   expectAllWays("the neighbour answers again");
}

TEST_F(Routers, FarEndsOfTunnelsComeAndGo) {
   auto const& other = topology().leaf(2).space();
   other.ip("link set vx10010 down");
   expectWays("a leaf withdraws its tunnels", {3}, spines);
   topology().addLeaf(4);
   expectWays("another leaf is added", {3, 4}, spines);
   topology().leafDel(4);
   expectWays("that leaf is gone again", {3}, spines);
   other.ip("link set vx10010 up");
   expectAllWays("the leaf's tunnels are back");
}

TEST_F(Routers, AnAgentThatIsKilledIsRightAgainAfterItsNextStart) {
   agent().kill();
   spine(numbered).ip(fmt::format("link set {} down", farEnd()));
   agent().start();
   expectWays("a port lost carrier while the agent was gone", {2, 3}, spines - 1);
   agent().kill();
   spine(numbered).ip(fmt::format("link set {} up", farEnd()));
   agent().start();
   expectAllWays("the port had carrier again while the agent was gone");
}

TEST_F(Routers, AnAgentThatIsAskedToEndDoesSoWith0) {
   EXPECT_EQ(agent().stop(), 0);
   agent().start();
   expectAllWays("the agent is started anew");
}

/// Destinations that no router would make, one of each kind.
TEST_F(Routers, DestinationsThatDoNotForwardAreToldApart) {
   lut().ip(fmt::format(R"(link add odd type vxlan id 999 dstport 4799 nolearning
link set odd up
route add blackhole 10.99.0.1/32
route add unreachable 10.99.0.2/32
route add prohibit 10.99.0.3/32
route add 10.99.0.4/32 nexthop via {0} dev {1} nexthop via 10.1.2.77 dev {2} onlink
route add 10.99.0.5/32 via 10.1.2.78 dev {2} onlink
nexthop add id 7001 via {3} fdb
nexthop add id 7002 via 10.99.0.4 fdb
nexthop add id 7003 group 7001/7002 fdb)",
                        Topology::spineAddress(1, numbered), topology().deviceTo(numbered),
                        topology().deviceTo(otherNumbered), Topology::tunnelEnd(2)));
   std::string lines;
   for (auto const* address :
        {"10.99.0.1", "10.99.0.2", "10.99.0.3", "10.99.0.5", "10.99.0.6", "10.255.1.1"}) {
      lines += fmt::format("fdb append 00:00:00:00:00:00 dev odd dst {}\n", address);
   }
   lut().bridge(lines + "fdb add 02:11:0c:00:00:99 dev odd nhid 7003");
   expect("there are destinations of every kind", [](Destinations const& now) {
      return now.size() == 9 && now.contains("10.99.0.4") && now.at("10.99.0.4").size() == 2 &&
             forwarding(now, "10.99.0.4") == 1 && now.at("10.99.0.1").contains({.kind = "drop"}) &&
             now.at("10.255.1.1").contains({.kind = "cpu"});
   });
   lut().ip("link del odd\nnexthop del id 7003\nnexthop del id 7001\nnexthop del id 7002\n"
            "route del 10.99.0.1\nroute del 10.99.0.2\nroute del 10.99.0.3\n"
            "route del 10.99.0.4\nroute del 10.99.0.5");
   expectAllWays("they are gone again");
}

} // namespace

} // namespace L3TunnelAgent::Live
