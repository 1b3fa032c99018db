#include "agent/live/KernelReader.h"

#include "agent/tests/KernelTest.h"

#include <array>
#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <sys/resource.h>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// Notes what a reader says.
class Heard final : public KernelListener {
 public:
   void announced(std::span<std::byte const> /*datagram*/) override { ++announcements; }
   void burstRead() override {}
   void lost() override { ++losses; }
   void replied(DumpKind const& /*kind*/, std::span<std::byte const> /*datagram*/) override {
      ++replies;
      if (stopped) {
         stopped->stop();
      }
   }
   void dumped(bool /*fitsTogether*/) override { ++dumps; }
   void told(LogLevel level, std::string const& text) override {
      (level == LogLevel::warning ? warnings : notices).push_back(text);
   }

   std::size_t announcements{};
   std::size_t losses{};
   std::size_t replies{};
   std::size_t dumps{};
   KernelReader* stopped{}; // at the first reply
   std::vector<std::string> warnings;
   std::vector<std::string> notices;
};

/// A reader of a kernel of the test's own.
class KernelReaderTest : public KernelTest {
 protected:
   void SetUp() override {
      if (!kernel_.isThere()) {
         GTEST_SKIP() << "no network namespace can be made here; DumpReaderTest covers what replies come to";
      }
   }

   /// The sockets of this process to the kernel that hear no group's announcements.
   static std::set<int> quietSockets() {
      std::set<int> result;
      for (auto const& each : std::filesystem::directory_iterator("/proc/self/fd")) {
         int const descriptor = std::stoi(each.path().filename());
         if (groupsOf(descriptor) == 0U) {
            result.insert(descriptor);
         }
      }
      return result;
   }

   /// The groups up to 32 that the socket hears, a bit each; nothing when it is no socket to the kernel.
   static std::optional<std::uint32_t> groupsOf(int descriptor) {
      std::array<std::uint32_t, 32> groups{}; // the kernel has more of them
      socklen_t size = sizeof groups;
      if (getsockopt(descriptor, SOL_NETLINK, NETLINK_LIST_MEMBERSHIPS, groups.data(), &size) != 0) {
         return std::nullopt;
      }
      return groups[0];
   }

   /// Starts a reader.
   /// @return the descriptors of the socket that it asks at.
   static std::set<int> started(KernelReader& reader) {
      auto const before = quietSockets();
      reader.start();
      auto after = quietSockets();
      std::erase_if(after, [&](int descriptor) { return before.contains(descriptor); });
      return after;
   }

   Counters counters_;
   Heard heard_;
};

// A request without what the kernel needs to know, which it refuses, and one that it answers.
constexpr DumpKind refusedKind{.name = "settings", .type = RTM_GETNEIGHTBL, .family = AF_INET};
constexpr DumpKind answeredKind{.name = "links", .type = RTM_GETLINK, .family = AF_UNSPEC};

TEST_F(KernelReaderTest, GivesUpWhatIsRefusedBeforeTheFirstAnswer) {
   KernelReader reader(loop_, {}, heard_, counters_);
   reader.start();
   std::array const kinds{answeredKind, refusedKind};
   reader.read(kinds);
   try {
      loop_.run_for(20s);
      FAIL() << "it goes on";
   } catch (NetlinkError const& error) {
      EXPECT_THAT(error.what(), HasSubstr("settings cannot be read: Invalid argument"));
   }
   EXPECT_EQ(heard_.dumps, 0U);
   EXPECT_THAT(heard_.warnings, SizeIs(1));
}

TEST_F(KernelReaderTest, GoesOnAskingForWhatIsRefusedLaterAndTellsOfItOnce) {
   KernelReader reader(loop_, {}, heard_, counters_);
   reader.start();
   std::array kinds{answeredKind};
   reader.read(kinds);
   runUntil([&] { return heard_.dumps == 1; });
   kinds[0] = refusedKind;
   reader.read(kinds);
   runUntil([&] { return counters_.failedDumps == 6; }); // more than would be tried before the first answer
   EXPECT_THAT(heard_.warnings, SizeIs(1));
   EXPECT_TRUE(reader.isReading());
   EXPECT_THAT(heard_.notices, IsEmpty());
   kinds[0] = answeredKind;
   runUntil([&] { return heard_.dumps == 2; });
   EXPECT_THAT(heard_.warnings, SizeIs(1));
   EXPECT_THAT(heard_.notices, SizeIs(1));
}

TEST_F(KernelReaderTest, AsksAgainAtAnotherSocketWhenRepliesAreLost) {
   KernelReader reader(loop_, {}, heard_, counters_);
   auto const asking = started(reader);
   ASSERT_THAT(asking, SizeIs(2));
   int const least = 1;
   int const group = RTNLGRP_LINK;
   ASSERT_EQ(setsockopt(*asking.begin(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
   ASSERT_EQ(setsockopt(*asking.begin(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group), 0);
   for (int turn = 0; turn < 20; ++turn) {
      kernel_.upIs("lo", turn % 2 == 0);
   }
   std::array const kinds{answeredKind};
   reader.read(kinds);
   runUntil([&] { return heard_.dumps == 1; });
   EXPECT_EQ(counters_.interruptedDumps, 0U) << "what was lost is not made up for";
   for (int const descriptor : asking) { // closed, or another socket's
      EXPECT_NE(groupsOf(descriptor), 1U << (group - 1));
   }
}

TEST_F(KernelReaderTest, GoesOnWhenTheKernelDoesNotTakeARequestAndTellsOfItOnce) {
   KernelReader reader(loop_, {}, heard_, counters_);
   auto const asking = started(reader);
   ASSERT_THAT(asking, SizeIs(2));
   std::array const kinds{answeredKind};
   reader.read(kinds);
   runUntil([&] { return heard_.dumps == 1; });
   // Something that takes none stands where the socket was.
   Descriptor const kept(fcntl(*asking.begin(), F_DUPFD_CLOEXEC, 0));
   Descriptor const none(open("/dev/null", O_RDWR | O_CLOEXEC));
   ASSERT_GE(dup2(none.value(), *asking.begin()), 0);
   reader.read(kinds);
   runUntil([&] { return counters_.failedDumps == 2; });
   EXPECT_THAT(heard_.warnings, ElementsAre(HasSubstr("links cannot be read, which is tried again: ")));
   EXPECT_TRUE(reader.isReading());
   ASSERT_GE(dup2(kept.value(), *asking.begin()), 0);
   runUntil([&] { return heard_.dumps == 2; });
}

TEST_F(KernelReaderTest, HandsOnAFewRepliesAtATime) {
   kernel_.cableIs("a0", "a1");
   kernel_.addressIs("a0", "10.1.0.0", 31);
   for (std::uint32_t id = 1; id <= 5000; ++id) {
      kernel_.nextHopIs(id, "a0", "10.1.0.1");
   }
   constexpr DumpKind objects{.name = "next-hop objects", .type = RTM_GETNEXTHOP, .family = AF_UNSPEC};
   std::array const kinds{objects, answeredKind};
   KernelReader reader(loop_, {}, heard_, counters_);
   reader.start();
   reader.read(kinds);
   std::size_t most = 0;
   runUntil([&] {
      auto const before = heard_.replies;
      loop_.run_one_for(50ms);
      most = std::max(most, heard_.replies - before);
      return heard_.dumps == 1;
   });
   EXPECT_GT(heard_.replies, 8U);
   EXPECT_LE(most, 8U);
}

TEST_F(KernelReaderTest, MayBeStoppedAtAReply) {
   KernelReader reader(loop_, {}, heard_, counters_);
   heard_.stopped = &reader;
   reader.start();
   std::array const kinds{answeredKind, answeredKind};
   reader.read(kinds);
   loop_.run_for(20s);
   EXPECT_EQ(heard_.replies, 1U);
   EXPECT_EQ(heard_.dumps, 0U);
}

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
constexpr bool isUndefinedBehaviourSanitized = __has_feature(undefined_behavior_sanitizer);

/// Lets the process open no more than so many descriptors while it lasts.
class DescriptorLimit {
 public:
   explicit DescriptorLimit(rlim_t most) {
      EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
      rlimit const limit{.rlim_cur = most, .rlim_max = before_.rlim_max};
      EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
   }
   DescriptorLimit(DescriptorLimit const&) = delete;
   DescriptorLimit& operator=(DescriptorLimit const&) = delete;
   ~DescriptorLimit() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }

 private:
   rlimit before_{};
};

TEST_F(KernelReaderTest, SaysSoWhenNoDescriptorIsLeftForASocket) {
   if (isUndefinedBehaviourSanitized) {
      GTEST_SKIP() << "the sanitizer opens pipes itself to look at objects; the other builds show this";
   }
   auto const first = static_cast<rlim_t>(Descriptor(dup(STDERR_FILENO)).value());
   rlim_t more = 0;
   for (bool hasStarted = false; !hasStarted; ++more) {
      ASSERT_LT(more, 100U);
      KernelReader reader(loop_, {}, heard_, counters_);
      try {
         DescriptorLimit const limit(first + more);
         reader.start();
         hasStarted = true;
      } catch (NetlinkError const& error) {
         EXPECT_THAT(error.what(), HasSubstr("Too many open files"));
      }
   }
   EXPECT_GT(more, 4U); // two sockets, each with a duplicate
}

} // namespace
} // namespace L3TunnelAgent
