#include "agent/tests/live/Folder.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"
#include "agent/tests/live/TwoPorts.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent::Live {

namespace {

using testing::IsEmpty;

constexpr Seconds limit{10};
constexpr auto destination = "10.255.1.2";

/// A way by swp1 in the main table and one by swp2 in table 100, and a tunnel.
class PolicyTest : public testing::Test {
 protected:
   void SetUp() override {
      SKIP_WITHOUT_SANDBOX();
      space_.emplace("policy");
      twoPortsAre(*space_);
      space_->ip("route add 10.255.1.2/32 via 10.1.1.1\nroute add 10.255.1.2/32 via 10.1.2.1 table 100");
      space_->bridge("fdb append 00:00:00:00:00:00 dev vx dst 10.255.1.2");
   }

   std::string device() const {
      auto const truth = kernelTruth(*space_);
      auto const& vias = truth.at(destination);
      return vias.empty() ? "" : vias.begin()->device;
   }

   std::optional<Namespace> space_;
};

TEST_F(PolicyTest, RulesThatTunnelPacketsMatchForCertainAreObeyed) {
   Folder const folder;
   RunningAgent agent(*space_, folder.path());
   agent.start();
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
   struct Case {
      char const* rule;
      bool isMatched;
   };
   for (auto const& [rule, isMatched] :
        {Case{"iif lo", true}, Case{"not iif lo", false}, Case{"iif swp2", false}, Case{"not iif swp2", true},
         Case{"not fwmark 5", true}, Case{"fwmark 5", false}, Case{"fwmark 0/0xff", true},
         Case{"ipproto udp dport 4789", true}, Case{"ipproto udp dport 4000-5000", true},
         Case{"dport 4790", false}, Case{"ipproto tcp", false}, Case{"not ipproto tcp", true},
         Case{"oif swp2", false}, Case{"not to 10.255.0.0/16", false}, Case{"not to 10.254.0.0/16", true}}) {
      space_->ip(std::string("rule add pref 100 ") + rule + " table 100");
      EXPECT_EQ(device(), isMatched ? "swp2" : "swp1") << rule;
      EXPECT_THAT(faults(*space_, agent, limit), IsEmpty()) << rule;
      space_->ip("rule del pref 100");
      EXPECT_THAT(faults(*space_, agent, limit), IsEmpty()) << "without " << rule;
   }
}

TEST_F(PolicyTest, KernelWithoutRulesHasNoRoutes) {
   space_->ip(R"(rule flush
rule del pref 0)");
   Folder const folder;
   RunningAgent agent(*space_, folder.path());
   agent.start();
   EXPECT_EQ(device(), "");
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
   space_->ip("rule add pref 50 table main");
   EXPECT_EQ(device(), "swp1");
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
}

TEST_F(PolicyTest, NeighbourOfADeviceThatAsksForNoneIsTheDeviceItself) {
   space_->ip("route replace 10.255.1.2/32 via 10.5.0.2 dev swp1 onlink");
   Folder const folder;
   RunningAgent agent(*space_, folder.path());
   agent.start();
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
   space_->ip("link set swp1 arp off");
   // The kernel makes the entry with the first packet, and announces nothing.
   outputOf({"bash", "-c", "echo > /dev/udp/10.255.1.2/9"}, space_->name());
   EXPECT_EQ(forwarding(kernelTruth(*space_), destination), 1U);
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
   space_->ip("link set swp1 address 02:00:00:00:00:77");
   outputOf({"bash", "-c", "echo > /dev/udp/10.255.1.2/9"}, space_->name());
   EXPECT_EQ(forwarding(kernelTruth(*space_), destination), 1U);
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
   space_->ip("link set swp1 arp on");
   EXPECT_EQ(forwarding(kernelTruth(*space_), destination), 0U);
   EXPECT_THAT(faults(*space_, agent, limit), IsEmpty());
}

} // namespace

} // namespace L3TunnelAgent::Live
