#include "agent/tests/live/Storm.h"

#include "agent/tests/live/Folder.h"
#include "agent/tests/live/Memory.h"
#include "agent/tests/live/RunningAgent.h"
#include "agent/tests/live/Sandbox.h"

#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <iostream>

namespace L3TunnelAgent::Live {

namespace {

using Clock = std::chrono::steady_clock;

/// Small enough that a storm overruns it again and again.
char const* const smallBuffer = "32768";

constexpr Seconds startLimit{60};
constexpr Seconds calmLimit{60};

unsigned long
fromEnvironment(char const* name, unsigned long otherwise) {
   char const* const text = std::getenv(name);
   return text ? std::stoul(text) : otherwise;
}

class StormTest : public testing::Test {
 protected:
   void SetUp() override { SKIP_WITHOUT_SANDBOX(); }

   void TearDown() override {
      if (HasFailure()) {
         std::cerr << log_;
      }
   }

   void blowFor(Seconds time, Storm& storm, RunningAgent& agent) {
      auto const end = Clock::now() + time;
      auto nextSample = Clock::now();
      while (Clock::now() < end && agent.isRunning()) {
         storm.blow();
         sleepFor(Seconds(0.002));
         if (Clock::now() >= nextSample) {
            samples_.push_back(residentBytes(agent.pid()));
            nextSample += std::chrono::seconds(1);
         }
      }
   }

   void report(Storm const& storm, RunningAgent const& agent) const {
      std::cout << fmt::format("{} messages, {} of them refused by the kernel. The agent: {} overruns, {} "
                               "reconciliations, "
                               "{} of them with a difference, {} rows written",
                               storm.injector().sent(), storm.injector().refused(),
                               agent.metric("l3tunnel_overruns_total"),
                               agent.metric("l3tunnel_reconciliations_total"),
                               agent.metric("l3tunnel_reconciliations_differing_total"),
                               agent.metric("l3tunnel_rows_written_total"))
                << "\nMemory in MiB, at most 60 samples:";
      for (std::size_t at = 0; at < samples_.size(); at += 1 + samples_.size() / 60) {
         std::cout << " " << (samples_[at] >> 20U);
      }
      std::cout << std::endl;
   }

   std::vector<std::size_t> samples_;
   std::string log_;
};

TEST_F(StormTest, AnAgentThatLosesMessagesInAStormIsRightWhenItCalms) {
   auto const seconds = fromEnvironment("L3TUNNEL_STORM_SECONDS", 10);
   auto const seed = static_cast<std::uint32_t>(fromEnvironment("L3TUNNEL_SEED", std::random_device()()));
   SCOPED_TRACE(fmt::format("L3TUNNEL_SEED={}", seed));
   Storm storm({}, seed);
   Folder const folder;
   RunningAgent agent(storm.space(), folder.path(), {"--receive-buffer", smallBuffer});
   agent.start();
   ASSERT_THAT(faults(storm.space(), agent, startLimit), testing::IsEmpty()) << agent.log();

   blowFor(Seconds(seconds), storm, agent);
   auto const calmed = Clock::now();
   auto const found = faults(storm.space(), agent, calmLimit);
   log_ = agent.log();
   ASSERT_TRUE(agent.isRunning());
   EXPECT_THAT(std::vector(found.begin(), found.begin() + std::min<std::ptrdiff_t>(10, std::ssize(found))),
               testing::IsEmpty());
   std::cout << fmt::format("After {} s of storm, right within {:.1f} s. ", seconds,
                            Seconds(Clock::now() - calmed).count());
   report(storm, agent);
   EXPECT_GT(agent.metric("l3tunnel_overruns_total"), 0);
   EXPECT_EQ(agent.metric("l3tunnel_messages_unreadable_total"), 0);
   if (seconds >= 60) {
      EXPECT_LT(growth(samples_), 1.1);
   }
   EXPECT_EQ(agent.stop(), 0);
}

TEST(Growth, IsThatOfTheMiddleSamples) {
   EXPECT_EQ(growth({1, 2, 3, 10, 10, 99, 20, 1, 20}), 2);
   EXPECT_EQ(growth({1, 1, 1, 8, 8, 8, 8, 8, 8}), 1);
   EXPECT_THROW(growth({1, 1}), std::invalid_argument);
}

} // namespace

} // namespace L3TunnelAgent::Live
