#include "agent/live/LiveAgent.h"
#include "agent/tests/live/FewestRows.h"
#include "agent/tests/live/KernelTruth.h"
#include "agent/tests/live/Process.h"
#include "agent/tests/live/Sandbox.h"
#include "agent/tests/live/Storm.h"
#include "agent/views/Audit.h"

#include <asio/io_context.hpp>
#include <chrono>
#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <iostream>

namespace L3TunnelAgent::Live {

namespace {

using Clock = std::chrono::steady_clock;

Seconds
processorTime() {
   return Seconds(static_cast<double>(std::clock()) / CLOCKS_PER_SEC);
}

std::string
machineLoad() {
   std::string load;
   std::getline(std::ifstream("/proc/loadavg"), load);
   return load;
}

/// An agent in this process, which follows a storm's kernel while its loop is run.
class Follower {
 public:
   explicit Follower(Namespace const& space) : live_(loop_, settings(space)) { live_.start(); }
   ~Follower() {
      live_.stop();
      loop_.run();
   }

   /// Runs until nothing has come from the kernel for so long that the agent also has made sure of what the
   /// kernel does silently.
   bool settles() {
      auto const end = Clock::now() + std::chrono::seconds(60);
      auto quietSince = Clock::now();
      auto heard = live_.counters().messages;
      while (Clock::now() < end) {
         loop_.run_for(std::chrono::milliseconds(5));
         if (heard != live_.counters().messages || !live_.isCaughtUp()) {
            heard = live_.counters().messages;
            quietSince = Clock::now();
         }
         if (Clock::now() > quietSince + std::chrono::milliseconds(2500)) {
            return true;
         }
      }
      return false;
   }

   LiveAgent& live() { return live_; }

 private:
   static LiveAgent::Settings settings(Namespace const& space) {
      LiveAgent::Settings result;
      result.kernel.netns = space.name();
      return result;
   }

   asio::io_context loop_{1};
   LiveAgent live_;
};

class Reaction : public testing::TestWithParam<int> {
 protected:
   void SetUp() override { SKIP_WITHOUT_SANDBOX(); }
};

TEST_P(Reaction, ToASpineThatGoesDownIsQuickAndWritesNoRowInVain) {
   Storm storm({.destinations = GetParam()}, 1);
   Follower follower(storm.space());
   ASSERT_TRUE(follower.settles());
   auto const before = kernelTruth(storm.space());
   ASSERT_EQ(before.size(), static_cast<std::size_t>(GetParam()));

   auto& live = follower.live();
   auto const rowsBefore = live.agent().rows().count();
   auto const overrunsBefore = live.counters().overruns;
   auto const reactionsBefore = live.counters().reactions.sum();
   auto const processorBefore = processorTime();
   storm.linkDown(0);
   ASSERT_TRUE(follower.settles());
   auto const processor = processorTime() - processorBefore;
   Seconds const reaction = live.counters().reactions.sum() - reactionsBefore;
   auto const rows = live.agent().rows().count() - rowsBefore;

   auto const after = kernelTruth(storm.space());
   auto const fewest = fewestRows(before, after);
   std::cout << fmt::format(
         "{} destinations, a spine down: {:.0f} ms from the kernel's first message to the chip's last "
         "answer, "
         "{:.0f} ms of processor time, confirmation included; {} rows written, {} are the fewest. Load {}\n",
         GetParam(), reaction.count() * 1000, processor.count() * 1000, rows, fewest, machineLoad());
   EXPECT_NE(before, after);
   EXPECT_GE(rows, fewest) << "the fewest are no fewer";
   EXPECT_LE(rows, fewest + fewest / 4);
   EXPECT_EQ(live.agent().rows().needless(), 0U);
   EXPECT_LT(processor.count(), 2.0) << "whatever else the machine does";
   EXPECT_EQ(live.counters().overruns, overrunsBefore);
   EXPECT_THAT(audit(live.agent().fabric()).findings, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Destinations, Reaction, testing::Values(3000, 10000),
                         [](auto const& each) { return std::to_string(each.param); });

TEST(FewestRows, AreThoseOfRunsGroupsNextHopsAndInterfacesThatChange) {
   TrueVia const one{.kind = "unicast", .device = "a", .mac = "1", .port = "a", .source = "11"};
   TrueVia const other{.kind = "unicast", .device = "b", .mac = "2", .port = "b", .source = "12"};
   Destinations const both{{"x", {one, other}}, {"y", {one, other}}, {"z", {one}}};
   EXPECT_EQ(fewestRows(both, both), 0U);
   // Its run of 2 goes, the groups of x and y move, the other next hop goes with its interface.
   EXPECT_EQ(fewestRows(both, {{"x", {one}}, {"y", {one}}, {"z", {one}}}), 2U + 2 + 2 + 1);
   // From nothing: runs of 2 and 1, three groups, two next hops, two interfaces.
   EXPECT_EQ(fewestRows({}, both), 3U + 3 + 4 + 2);
   EXPECT_EQ(fewestRows({{"x", {}}}, {}), 0U);
}

} // namespace

} // namespace L3TunnelAgent::Live
