#pragma once

#include "agent/tests/KernelTest.h"
#include "agent/tests/StateBuilder.h"

namespace L3TunnelAgent {

/// Base of tests about a destination that a kernel of their own has two inline next hops to, one by each of
/// the devices a0 and b0.
class TwoWaysTest : public KernelTest {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; SettingMessagesTest and KernelStateTest "
                         "cover what follows";
      }
      kernel_.twoRoutersAre();
   }

   void TearDown() override { live_.reset(); }

   /// The way to that destination, to which a device has a tunnel.
   void waysAre(char const* tunnels, std::string const& destination,
                std::vector<std::string> const& gateways) {
      destination_ = StateBuilder::ip(destination);
      kernel_.tunnelIs(tunnels, destination);
      MessageBuilder route(RTM_NEWROUTE, rtmsg{.rtm_family = familyOf(destination),
                                               .rtm_dst_len = destination_.bits(),
                                               .rtm_table = RT_TABLE_MAIN,
                                               .rtm_protocol = RTPROT_BGP,
                                               .rtm_type = RTN_UNICAST});
      std::string hops;
      for (auto const* device : {"a0", "b0"}) {
         auto const gateway = StateBuilder::ip(gateways.at(hops.empty() ? 0 : 1));
         auto const size = static_cast<std::uint16_t>(gateway.bits() / 8);
         rtnexthop const hop{.rtnh_len = static_cast<std::uint16_t>(sizeof hop + NLA_HDRLEN + size),
                             .rtnh_ifindex = kernel_.index(device)};
         nlattr const head{.nla_len = static_cast<std::uint16_t>(NLA_HDRLEN + size), .nla_type = RTA_GATEWAY};
         hops.append(reinterpret_cast<char const*>(&hop), sizeof hop);
         hops.append(reinterpret_cast<char const*>(&head), sizeof head);
         hops.append(reinterpret_cast<char const*>(gateway.bytes.data()), size);
      }
      kernel_.does(route.ip(RTA_DST, destination).bytes(RTA_MULTIPATH, hops.data(), hops.size()));
   }

   void start() {
      live_ = std::make_unique<LiveAgent>(loop_, LiveAgent::Settings{});
      live_->start();
   }

   /// @return the gateways that an agent came to.
   std::vector<std::string> ways(Agent const& agent) const {
      std::vector<std::string> result;
      auto const& all = agent.derivation().destinations();
      auto const found = all.find(destination_);
      if (found != all.end()) {
         for (auto const& via : found->second.vias) {
            result.push_back(via.gateway ? via.gateway->text() : via.reason);
         }
      }
      return result;
   }

   /// @return those that an agent comes to that reads all now.
   std::vector<std::string> waysNow() const {
      std::vector<std::string> result;
      withFreshAgent([&](Agent const& fresh) { result = ways(fresh); });
      return result;
   }

   void runUntilWaysAre(std::vector<std::string> const& expected) {
      runUntil([&] { return live_->isCaughtUp() && ways(live_->agent()) == expected; });
   }

   /// Runs the loop until the agent knows of something, and has derived what follows.
   template <typename Condition>
   void runUntilDerived(Condition const& condition) {
      runUntil([&] { return condition() && live_->isCaughtUp(); });
   }

   IpAddress destination_;
   std::unique_ptr<LiveAgent> live_;
};

} // namespace L3TunnelAgent
