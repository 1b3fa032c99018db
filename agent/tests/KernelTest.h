#pragma once

#include "agent/live/LiveAgent.h"
#include "agent/tests/TestKernel.h"

#include <asio/io_context.hpp>
#include <chrono>

namespace L3TunnelAgent {

/// Base of tests that hear from a kernel of their own, in an event loop.
class KernelTest : public testing::Test {
 protected:
   template <typename Condition>
   void runUntil(Condition const& condition) {
      using namespace std::chrono_literals;
      auto const deadline = std::chrono::steady_clock::now() + 20s;
      while (!condition()) {
         ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "it did not come that far";
         loop_.run_one_for(50ms);
      }
   }

   /// Calls use(agent) with an agent that has just read all that the kernel has.
   template <typename Use>
   static void withFreshAgent(Use const& use) {
      asio::io_context loop;
      LiveAgent fresh(loop, {});
      fresh.hooks().caughtUp = [&] {
         if (fresh.isCaughtUp()) {
            loop.stop();
         }
      };
      fresh.start();
      loop.run_for(std::chrono::seconds(20));
      EXPECT_TRUE(fresh.isCaughtUp());
      use(fresh.agent());
   }

   TestKernel kernel_;
   asio::io_context loop_;
};

} // namespace L3TunnelAgent
