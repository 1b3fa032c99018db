#include "platform/tests/MirelogFixture.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Trace {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

TEST_F(MirelogTest, TheFileTakesTheMessagesAlongAsFarAsTheyFit) {
   for (int i = 0; i < 6; ++i) {
      MIRELOG(facility, 1, "{}", i);
   }
   ASSERT_EQ(ringFileIs(path("large"), 1024), "");
   MIRELOG(facility, 1, "large");
   EXPECT_THAT(textsIn("large"), ElementsAre("0", "1", "2", "3", "4", "5", "large"));
   ASSERT_EQ(ringFileIs(path("small"), 4), "");
   MIRELOG(facility, 1, "small");
   EXPECT_THAT(textsIn("small"), ElementsAre("4", "5", "large", "small"));
   EXPECT_THAT(textsIn("large"), ElementsAre("0", "1", "2", "3", "4", "5", "large"));
   ringFileDel();
   MIRELOG(facility, 1, "memory");
   EXPECT_THAT(texts(), ElementsAre("4", "5", "large", "small", "memory"));
   EXPECT_THAT(textsIn("small"), ElementsAre("4", "5", "large", "small"));
}

TEST_F(MirelogTest, TheNewestGoAlongWhereverTheRingIsInItsRound) {
   for (int phase = 0; phase < 8; ++phase) {
      ASSERT_EQ(ringFileIs(path("eight"), 8), "");
      for (int i = 0; i < 9; ++i) {
         MIRELOG(facility, 1, "{}", i);
      }
      ASSERT_EQ(ringFileIs(path("four"), 4), "");
      ASSERT_THAT(textsIn("four"), ElementsAre("5", "6", "7", "8"));
   }
}

TEST_F(MirelogTest, SitesAndFacilitiesOfBeforeAndAfterAreInTheFile) {
   Facility const before(facility.name() + "Before");
   auto const log = [](Facility const& from) { MIRELOG(from, 7, "from everywhere"); };
   log(before);
   ASSERT_EQ(ringFileIs(path("ring"), 16), "");
   Facility const after(facility.name() + "After");
   log(before);
   log(after);
   MIRELOG(after, 8, "new");
   auto const contents = readRingFile(path("ring"));
   EXPECT_EQ(contents.remark, "");
   std::vector<Pelm::String> lines;
   for (auto const& message : contents.messages) {
      if (message.facility.starts_with(facility.name())) {
         lines.push_back(message.facility.substr(facility.name().size()) + "/" +
                         std::to_string(message.level) + " " + message.text);
      }
   }
   EXPECT_THAT(lines, ElementsAre("Before/7 from everywhere", "Before/7 from everywhere",
                                  "After/7 from everywhere", "After/8 new"));
}

TEST_F(MirelogTest, AFileOfThatNameIsReplacedAndNotWrittenInto) {
   std::ofstream(path("ring")) << "precious";
   std::filesystem::create_hard_link(path("ring"), path("other"));
   ASSERT_EQ(ringFileIs(path("ring"), 4), "");
   MIRELOG(facility, 1, "new");
   EXPECT_EQ(textsIn("ring").back(), "new");
   Pelm::String content;
   std::ifstream(path("other")) >> content;
   EXPECT_EQ(content, "precious");
}

TEST_F(MirelogTest, TheFileIsTheOwnersAndHasItsSpace) {
   ASSERT_EQ(ringFileIs(path("ring"), 1000), "");
   EXPECT_EQ(std::filesystem::status(path("ring")).permissions(),
             std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
   EXPECT_EQ(std::filesystem::file_size(path("ring")), (1u << 20) + 1024u * 64);
}

TEST_F(MirelogTest, AFileThatCannotBeMadeGivesTheReasonAndChangesNothing) {
   MIRELOG(facility, 1, "before");
   EXPECT_EQ(ringFileIs(path("no/such/folder"), 8),
             "cannot trace to " + path("no/such/folder") + ": No such file or directory");
   std::filesystem::create_directory(path("folder"));
   EXPECT_EQ(ringFileIs(path("folder"), 8), "cannot trace to " + path("folder") + ": Is a directory");
   EXPECT_EQ(ringFileIs(path("ring"), 0),
             "cannot trace to " + path("ring") + ": a ring has 1 to 16777216 messages, not 0");
   EXPECT_THAT(ringFileIs(path("ring"), maxRingRecords + 1), EndsWith("not 16777217"));
   MIRELOG(facility, 1, "after");
   EXPECT_THAT(texts(), ElementsAre("before", "after"));
   auto const left = std::filesystem::directory_iterator(folder);
   EXPECT_EQ(std::distance(begin(left), end(left)), 1) << "only the folder";
}

TEST_F(MirelogTest, AFileThatIsTooLargeIsAnErrorAndNoSignal) {
   ASSERT_EQ(ringFileIs(path("ring"), 8), "");
   rlimit old;
   ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
   rlimit const low{100000, old.rlim_max};
   ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
   auto const error = ringFileIs(path("ring2"), 8);
   ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
   EXPECT_EQ(error, "cannot trace to " + path("ring2") + ": File too large");
   MIRELOG(facility, 1, "still in the first file");
   EXPECT_THAT(textsIn("ring"), ElementsAre("still in the first file"));
}

TEST_F(MirelogTest, AKilledProcessLeavesItsMessages) {
   pid_t const child = fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      // Nothing of the test framework from here on: this ends by the signal, whatever happens.
      if (ringFileIs(path("ring"), 64).empty()) {
         for (int i = 0; i < 100; ++i) {
            MIRELOG(facility, 2, "child says {} {}", i, "text");
         }
         kill(getpid(), SIGKILL);
      }
      _exit(1);
   }
   int status = 0;
   ASSERT_EQ(waitpid(child, &status, 0), child);
   ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
   auto const contents = readRingFile(path("ring"));
   EXPECT_EQ(contents.error, "");
   EXPECT_EQ(contents.remark, "");
   EXPECT_EQ(contents.process, std::uint32_t(child));
   auto const all = texts(contents);
   ASSERT_THAT(all, SizeIs(64));
   EXPECT_EQ(all.front(), "child says 36 text");
   EXPECT_EQ(all.back(), "child says 99 text");
}

TEST_F(MirelogTest, WithoutRoomForTextsTheMessagesAreStillThere) {
   // In a process of its own, for it has no room for new texts any more.
   pid_t const child = fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      MIRELOG(facility, 2, "with text");
      bool const isDone = ringFileIs(path("ring"), 64).empty();
      for (unsigned i = 0; i < 20000; ++i) {
         Facility const filling(std::to_string(100000 + i) + Pelm::String(Facility::maxName, 'x'));
      }
      for (unsigned i = 0; i < 10; ++i) {
         Facility const fillingTheRest(std::to_string(i));
      }
      MIRELOG(facility, 2, "without text {} {}", 17, "t");
      Facility const late(facility.name() + " is too late");
      MIRELOG(late, 2, "without text either");
      _exit(isDone ? 0 : 1);
   }
   int status = 0;
   ASSERT_EQ(waitpid(child, &status, 0), child);
   ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
   auto const contents = readRingFile(path("ring"));
   EXPECT_EQ(contents.error, "");
   EXPECT_EQ(contents.remark, "");
   EXPECT_THAT(texts(contents),
               ElementsAre("with text", "(no text for message 65535: 0x11 0x7401 0x0 0x0 0x0)"));
   EXPECT_EQ(contents.messages.back().facility, "?");
   EXPECT_THAT(contents.messages.back().text, StartsWith("(no text for message 65535: "));
}

TEST_F(MirelogTest, NamesAndTextsOfTheGreatestLength) {
   Facility const longest(Pelm::String(Facility::maxName - 5, 'n') + "12345");
   Facility const longer(Pelm::String(Facility::maxName - 5, 'n') + "12345more");
   EXPECT_EQ(longer.origin(), longest.origin());
   MIRELOG(longer, 1, "named");
   EXPECT_EQ(readRing(ringImage()).messages.back().facility, longest.name());
   static constexpr auto filled = [] {
      std::array<char, MirelogSite::maxFormat + 1> text{};
      std::fill(text.begin(), text.end() - 1, 'f');
      return text;
   }();
   static_assert(detail::placeholders(filled.data()) == 0);
   MIRELOG(facility, 1, filled.data());
   EXPECT_EQ(text(), filled.data());
   EXPECT_EQ(readRing(ringImage()).remark, "");
}

TEST_F(MirelogTest, ARunningProcessIsReadFromOutside) {
   ASSERT_EQ(ringFileIs(path("ring"), 64), "");
   std::atomic<bool> stop{};
   std::atomic<unsigned> logged{};
   std::thread writer([&] {
      for (unsigned i = 0; !stop; ++i) {
         MIRELOG(facility, 1, "{} {} {} {} {}", i, i, i, i, i);
         ++logged;
      }
   });
   while (logged < 64) {
      std::this_thread::yield();
   }
   std::size_t read = 0;
   for (int round = 0; round < 50; ++round) {
      auto const contents = readRingFile(path("ring"));
      EXPECT_EQ(contents.error, "");
      for (auto const& message : mine(contents)) {
         auto const number = message.text.substr(0, message.text.find(' '));
         EXPECT_EQ(message.text, number + " " + number + " " + number + " " + number + " " + number);
         EXPECT_EQ(message.level, 1u);
         ++read;
      }
   }
   stop = true;
   writer.join();
   EXPECT_GT(read, 50u);
}

TEST_F(MirelogTest, AFileThatIsLetGoIsNoLongerMapped) {
   ASSERT_EQ(ringFileIs(path("first-ring"), 16), "");
   ASSERT_EQ(ringFileIs(path("second-ring"), 32), "");
   auto const maps = [] {
      std::ifstream file("/proc/self/maps");
      return Pelm::String(std::istreambuf_iterator<char>(file), {});
   };
   EXPECT_THAT(maps(), AllOf(HasSubstr("second-ring"), testing::Not(HasSubstr("first-ring"))));
   ringFileDel();
   EXPECT_THAT(maps(), testing::Not(HasSubstr("second-ring")));
}

} // namespace
} // namespace Trace
