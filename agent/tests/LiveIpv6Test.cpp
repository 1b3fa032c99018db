#include "agent/tests/TwoWaysTest.h"

namespace L3TunnelAgent {
namespace {

/// What a kernel does otherwise with IPv6 than with IPv4.
class LiveIpv6Test : public TwoWaysTest {
 protected:
   void SetUp() override {
      TwoWaysTest::SetUp();
      if (kernel_.isThere()) {
         kernel_.addressIs("a0", "fd00:1::1", 64);
         kernel_.addressIs("b0", "fd00:2::1", 64);
         kernel_.vxlanIs("vx6", "fd00:2::1", 20);
         waysAre("vx6", "fd00:3::1", both);
      }
   }

   std::vector<std::string> const both{"fd00:1::2", "fd00:2::2"};
   std::vector<std::string> const second{"fd00:2::2"};
};

TEST_F(LiveIpv6Test, HopIsDeadFromSwitchingOffUntilItsDeviceHasCarrierToo) {
   start();
   runUntilWaysAre(both);
   auto const a0 = [&] { return *live_->agent().kernel().link(kernel_.index("a0")); };
   // What each loss may have taken along is read again, which would put anything right: that comes first.
   auto const runUntilConfirmed = [&](std::uint64_t times) {
      runUntil([&] { return live_->isCaughtUp() && live_->counters().confirmations >= times; });
   };
   kernel_.upIs("a1", false);
   runUntilDerived([&] { return !a0().hasCarrier(); });
   EXPECT_EQ(ways(live_->agent()), both);
   runUntilConfirmed(1);
   kernel_.upIs("a0", false);
   runUntilDerived([&] { return !a0().isUp(); });
   EXPECT_EQ(ways(live_->agent()), second);
   runUntilConfirmed(2);
   kernel_.upIs("a0", true);
   runUntilDerived([&] { return a0().isUp(); });
   EXPECT_FALSE(a0().hasCarrier());
   EXPECT_EQ(ways(live_->agent()), second);
   EXPECT_EQ(waysNow(), second);
   kernel_.upIs("a1", true);
   runUntilWaysAre(both);
   EXPECT_EQ(waysNow(), both);
}

} // namespace
} // namespace L3TunnelAgent
