#include "agent/Recording.h"
#include "agent/tests/AgentProcess.h"
#include "agent/tests/TestKernel.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

std::string const agent = AGENT_BINARY;

/// The agent, started in a network namespace of the test's own.
class LiveCommandsTest : public testing::Test {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; ReconciliationTest and RecordingWriterTest "
                         "cover what run and record stand on";
      }
      kernel_.twoRoutersAre();
      kernel_.destinationsAre(3);
   }

   static nlohmann::json parsed(std::string const& command) {
      auto const outcome = runAgent(command);
      EXPECT_EQ(outcome.exitCode, 0) << command;
      EXPECT_EQ(outcome.error, "") << command;
      return nlohmann::json::parse(outcome.out, nullptr, false);
   }

   /// What a command's JSON says of the destinations, but for where their rows are.
   static std::map<std::string, std::string> destinations(nlohmann::json const& document) {
      std::map<std::string, std::string> result;
      for (auto const& each : document.at("destinations")) {
         std::set<std::string> ways;
         for (auto via : each.at("vias")) {
            via.erase("nextHopIndex");
            ways.insert(via.dump());
         }
         auto& text = result[each.at("vtep")];
         text = each.at("state");
         for (auto const& way : ways) {
            text += " " + way;
         }
      }
      return result;
   }

   template <typename Condition>
   static bool isWithin(std::chrono::seconds time, Condition const& condition) {
      auto const deadline = std::chrono::steady_clock::now() + time;
      while (!condition()) {
         if (std::chrono::steady_clock::now() > deadline) {
            return false;
         }
         std::this_thread::sleep_for(20ms);
      }
      return true;
   }

   /// Whether a recording has an announcement in it, though it may be without an end.
   static bool hasAnnouncement(std::string const& file) {
      try {
         Recording recording(file);
         while (auto const frame = recording.next()) {
            if (frame->kind == FrameKind::datagram) {
               return true;
            }
         }
      } catch (RecordingError const&) { // its end
      }
      return false;
   }

   TestKernel kernel_;
};

TEST_F(LiveCommandsTest, RunOneshotProgramsWhatThereIsAndSumsUp) {
   auto const outcome = runAgent("run --oneshot");
   EXPECT_EQ(outcome.exitCode, 0);
   EXPECT_EQ(outcome.error, "");
   EXPECT_THAT(outcome.out, HasSubstr("3 tunnel destinations over 6 vias\n  success                  3\n"));
   auto const document = parsed("run --oneshot --json");
   EXPECT_EQ(document.at("netns"), nullptr);
   EXPECT_EQ(document.at("summary").at("states").at("success"), 3);
   EXPECT_EQ(destinations(document).size(), 3U);
}

TEST_F(LiveCommandsTest, RunTakesTheOptionsOfTheChip) {
   auto const outcome = runAgent("--chip-size L3EcmpGroup0Table=2 run --oneshot");
   EXPECT_THAT(outcome.out, HasSubstr("failed                   1"));
   EXPECT_EQ(runAgent("--chip-size L3EcmpGroup0Table=2000000 run --oneshot").exitCode, 2);
   EXPECT_EQ(runAgent("run --json").exitCode, 2) << "of an agent that does not end";
}

TEST_F(LiveCommandsTest, RunSaysThatThereIsNoSuchNamespace) {
   auto const outcome = runAgent("run --oneshot --netns no-such-one");
   EXPECT_EQ(outcome.exitCode, 4);
   EXPECT_THAT(outcome.error, HasSubstr("network namespace no-such-one: "));
   EXPECT_THAT(outcome.error, HasSubstr("No such file or directory"));
}

TEST_F(LiveCommandsTest, RunEndsCleanlyWhenAskedTo) {
   for (std::string const signal : {"TERM", "INT"}) {
      // A shell's own background has SIGINT ignored, unless it is said otherwise.
      // In the foreground the signal comes once: a second one may find the agent at its very end.
      auto const outcome = runShell("timeout --foreground --signal=" + signal + " --preserve-status 3 " +
                                    agent + " run --control none");
      EXPECT_EQ(outcome.exitCode, 0) << signal << outcome.error;
      EXPECT_EQ(outcome.out, "");
   }
}

TEST_F(LiveCommandsTest, RunGoesOnWhenNobodyReadsItsLog) {
   auto const outcome = runShell("{ { " + agent +
                                 " run --control none & running=$!; sleep 2; kill -TERM $running;"
                                 " wait $running; echo $? >&3; } 2>&1 | true; } 3>&1");
   EXPECT_EQ(outcome.out, "0\n");
}

TEST_F(LiveCommandsTest, RunOneshotThatIsInterruptedSaysSoAndSumsUpNothing) {
   // Too early, no handler is there yet; too late, all is done.
   for (std::size_t at = 3; at < 2000; ++at) {
      kernel_.tunnelIs("vx", TestKernel::destination(at));
      kernel_.routeIs(TestKernel::destination(at), 10);
   }
   bool isInterrupted = false;
   for (int milliseconds = 20; milliseconds < 2000 && !isInterrupted; milliseconds += 20) {
      auto const outcome = runShell("timeout --foreground --signal=TERM --preserve-status " +
                                    std::to_string(milliseconds / 1000.0) + " " + agent + " run --oneshot");
      isInterrupted = outcome.exitCode == 4;
      if (isInterrupted) {
         EXPECT_EQ(outcome.out, "");
         EXPECT_THAT(outcome.error, HasSubstr("interrupted before the kernel's state was programmed"));
      }
   }
   EXPECT_TRUE(isInterrupted);
}

TEST_F(LiveCommandsTest, RunOneshotEndsWithAnErrorWhenTheStateChangesAllTheWhile) {
   for (std::uint32_t id = 100; id < 12'000; ++id) { // which takes a while to read
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
   // A busy machine may give the child no turn in a whole reading.
   Outcome outcome;
   bool const isError = isWithin(60s, [&] {
      outcome = runAgent("run --oneshot");
      return outcome.exitCode != 0;
   });
   EXPECT_EQ(kill(child, SIGKILL), 0);
   EXPECT_EQ(waitpid(child, nullptr, 0), child);
   EXPECT_TRUE(isError);
   EXPECT_EQ(outcome.exitCode, 4);
   EXPECT_EQ(outcome.out, "");
   EXPECT_THAT(outcome.error, HasSubstr("the kernel's state never was still while it was read"));
   EXPECT_EQ(runAgent("run --oneshot").exitCode, 0);
}

TEST_F(LiveCommandsTest, RecordsWhatProgramReplaysAlike) {
   for (std::string const ending : {"", ".gz"}) {
      TemporaryFile const place;
      auto const file = place.path().string() + ending;
      auto const record = runAgent("record --force --duration 0.2 " + file);
      EXPECT_EQ(record.exitCode, 0) << record.error;
      EXPECT_THAT(record.out, HasSubstr(file + ": 11 parts of the kernel's state, "));
      EXPECT_EQ(destinations(parsed("program --json " + file)), destinations(parsed("run --oneshot --json")));
      std::filesystem::remove(file);
   }
}

TEST_F(LiveCommandsTest, RecordReplacesNoFileUnlessItIsToldTo) {
   TemporaryFile const file;
   file.write("precious");
   auto const outcome = runAgent("record --duration 0 " + file.path().string());
   EXPECT_EQ(outcome.exitCode, 2);
   EXPECT_THAT(outcome.error, HasSubstr("is there already; --force replaces it"));
   EXPECT_EQ(contentOf(file.path()), "precious");
}

TEST_F(LiveCommandsTest, RecordEndsCleanlyWhenInterrupted) {
   for (std::string const signal : {"INT", "TERM", "HUP"}) {
      TemporaryFile const file;
      auto const outcome = runShell("timeout --foreground --signal=" + signal + " --preserve-status 3 " +
                                    agent + " record --force " + file.path().string());
      EXPECT_EQ(outcome.exitCode, 0) << signal << outcome.error;
      EXPECT_EQ(runAgent("program --until end " + file.path().string()).exitCode, 0) << signal;
   }
}

TEST_F(LiveCommandsTest, RecordThatIsKilledLeavesWhatIsOlderThanASecond) {
   for (std::string const ending : {"", ".gz"}) {
      TemporaryFile const place;
      auto const file = place.path().string() + ending;
      auto const before = destinations(parsed("run --oneshot --json"));
      pid_t const record = std::stoi(runShell("(" + agent + " record --force " + file + " & echo $!)").out);
      EXPECT_TRUE(isWithin(20s, [&] { return runAgent("program --until start " + file).exitCode == 0; }));
      EXPECT_EQ(destinations(parsed("program --until start --json " + file)), before);
      kernel_.routeIs("10.255.0.1", 1);
      EXPECT_TRUE(isWithin(20s, [&] { return hasAnnouncement(file); }));
      EXPECT_EQ(kill(record, SIGKILL), 0);
      kernel_.routeIs("10.255.0.1", 10);
      std::filesystem::remove(file);
   }
}

TEST_F(LiveCommandsTest, RecordSaysThatTheDiskIsFull) {
   auto const outcome = runAgent("record --duration 0.1 - > /dev/full");
   EXPECT_EQ(outcome.exitCode, 4);
   EXPECT_THAT(outcome.error, HasSubstr("standard output: cannot be written: No space left on device"));
}

} // namespace
} // namespace L3TunnelAgent
