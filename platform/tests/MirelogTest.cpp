#include "platform/trace/Mirelog.h"

#include "platform/chipstate/FendoTypes.h"
#include "platform/nuv/testing/Soak.h"
#include "platform/trace/RingReader.h"

#include <atomic>
#include <barrier>
#include <bit>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <latch>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace MirelogTestTypes {

struct Mac {
   std::uint64_t bits;

   friend Trace::Raw<Trace::Kind::ethernetAddress> rawForTrace(Mac const& mac) { return {mac.bits}; }
};

struct Ip {
   std::uint32_t bits;

   friend Trace::Raw<Trace::Kind::ipv4Address> rawForTrace(Ip const& ip) { return {ip.bits}; }
};

struct Plain {
   unsigned value;

   friend std::uint64_t rawForTrace(Plain const& plain) { return plain.value; }
};

struct Flags {
   unsigned value;

   friend Trace::Raw<Trace::Kind::hexadecimal> rawForTrace(Flags const& flags) { return {flags.value}; }
};

} // namespace MirelogTestTypes

namespace Trace {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

static_assert(detail::placeholders("none") == 0);
static_assert(detail::placeholders("{}{} {{}} {}") == 3);
static_assert(detail::wordsPerText(1, 1) == 5);
static_assert(detail::wordsPerText(3, 2) == 2);
static_assert(detail::wordsPerText(5, 5) == 1);
static_assert(!detail::Traceable<double>);
static_assert(!detail::Traceable<RingMessage>);

class MirelogTest : public testing::Test {
 protected:
   MirelogTest() {
      Pelm::String pattern = testing::TempDir() + "mirelog.XXXXXX";
      folder = mkdtemp(pattern.data());
   }
   ~MirelogTest() override {
      ringFileDel();
      std::filesystem::remove_all(folder);
   }

   Pelm::String path(Pelm::String const& name) const { return folder + "/" + name; }

   /// The messages of this test alone.
   std::vector<RingMessage> mine(RingContents const& contents) const {
      std::vector<RingMessage> messages;
      for (auto const& message : contents.messages) {
         if (message.facility == facility.name()) {
            messages.push_back(message);
         }
      }
      return messages;
   }

   static std::vector<Pelm::String> textsOf(std::vector<RingMessage> const& messages) {
      std::vector<Pelm::String> texts;
      for (auto const& message : messages) {
         texts.push_back(message.text);
      }
      return texts;
   }

   std::vector<Pelm::String> texts(RingContents const& contents) const { return textsOf(mine(contents)); }
   std::vector<Pelm::String> texts() const { return texts(readRing(ringImage())); }
   std::vector<Pelm::String> textsIn(Pelm::String const& name) const {
      return texts(readRingFile(path(name)));
   }

   /// The only text there should be.
   Pelm::String text() const {
      auto const all = texts();
      return all.size() == 1 ? all.front() : std::to_string(all.size()) + " texts";
   }

   Facility facility{testing::UnitTest::GetInstance()->current_test_info()->name()};
   Pelm::String folder;
};

TEST_F(MirelogTest, WithoutAFileTheRingIsInMemory) {
   MIRELOG(facility, 3, "in memory");
   unsigned const line = __LINE__ - 1;
   auto const contents = readRing(ringImage());
   EXPECT_EQ(contents.error, "");
   EXPECT_EQ(contents.process, std::uint32_t(getpid()));
   auto const messages = mine(contents);
   ASSERT_THAT(messages, SizeIs(1));
   EXPECT_EQ(messages[0].text, "in memory");
   EXPECT_EQ(messages[0].level, 3u);
   EXPECT_EQ(messages[0].file, "MirelogTest.cpp");
   EXPECT_EQ(messages[0].line, line);
}

TEST_F(MirelogTest, TheMemoryRingHasItsDefaultSize) {
   for (std::size_t i = 0; i < defaultRingRecords + 10; ++i) {
      MIRELOG(facility, 3, "message {}", i);
   }
   auto const all = texts();
   ASSERT_THAT(all, SizeIs(defaultRingRecords));
   EXPECT_EQ(all.front(), "message 10");
   EXPECT_EQ(all.back(), "message " + std::to_string(defaultRingRecords + 9));
}

TEST_F(MirelogTest, MessagesComeBackInOrder) {
   MIRELOG(facility, 0, "first");
   for (int i = 0; i < 3; ++i) {
      MIRELOG(facility, 31, "again {}", i);
   }
   MIRELOG(facility, 0, "last");
   auto const messages = mine(readRing(ringImage()));
   EXPECT_THAT(textsOf(messages), ElementsAre("first", "again 0", "again 1", "again 2", "last"));
   for (std::size_t i = 1; i < messages.size(); ++i) {
      EXPECT_EQ(messages[i].sequence, messages[i - 1].sequence + 1);
      EXPECT_GE(messages[i].time, messages[i - 1].time);
   }
}

TEST_F(MirelogTest, IntegersOfAllSizes) {
   MIRELOG(facility, 1, "{} {} {} {} {}", std::int8_t(-128), std::uint8_t(255), std::int16_t(-32768),
           std::uint16_t(65535), std::numeric_limits<std::int32_t>::min());
   MIRELOG(facility, 1, "{} {} {}", std::numeric_limits<std::uint32_t>::max(),
           std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max());
   EXPECT_THAT(texts(), ElementsAre("-128 255 -32768 65535 -2147483648",
                                    "4294967295 -9223372036854775808 18446744073709551615"));
}

TEST_F(MirelogTest, BooleansEnumsAndPointers) {
   enum class Colour : std::int8_t { red = -3 };
   enum class Wide : std::uint64_t { most = ~std::uint64_t(0) };
   int const* const null = nullptr;
   auto const pointer = reinterpret_cast<int const*>(std::uintptr_t(0xabcdef0));
   MIRELOG(facility, 1, "{} {} {} {}", true, false, Colour::red, Wide::most);
   MIRELOG(facility, 1, "{} {} {}", pointer, null, nullptr);
   EXPECT_THAT(texts(), ElementsAre("True False -3 18446744073709551615", "0xabcdef0 0x0 0x0"));
}

TEST_F(MirelogTest, TypesWithARawForm) {
   using namespace MirelogTestTypes;
   MIRELOG(facility, 1, "{} {} {} {}", Mac{0x0242ac1e0fff}, Ip{0x0a0001fe}, Plain{17}, Flags{0xbeef});
   EXPECT_EQ(text(), "02:42:ac:1e:0f:ff 10.0.1.254 17 0xbeef");
}

TEST_F(MirelogTest, EthernetAddressesOfChips) {
   MIRELOG(facility, 3, "neighbour {}", Fendo::EthAddr{{2, 0, 0, 0xab, 0, 1}});
   EXPECT_EQ(text(), "neighbour 02:00:00:ab:00:01");
}

TEST_F(MirelogTest, Texts) {
   Pelm::String const string("string");
   char const* const pointer = "pointer";
   char const* const null = nullptr;
   char const unended[3]{'u', 'n', 'e'};
   MIRELOG(facility, 1, "<{}> <{}>", string, pointer);
   MIRELOG(facility, 1, "<{}> <{}>", Pelm::StringView(string).substr(1, 2), "");
   MIRELOG(facility, 1, "<{}> <{}>", unended, null);
   EXPECT_THAT(texts(), ElementsAre("<string> <pointer>", "<tr> <>", "<une> <(null)>"));
}

TEST_F(MirelogTest, TextsOfEveryLengthAreCutVisiblyWhereTheRoomEnds) {
   Pelm::String const long_("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
   for (std::size_t length = 0; length <= long_.size(); ++length) {
      // A heap block of just this size, so that reading beyond it is found.
      std::vector<char> const exact(long_.begin(), long_.begin() + std::ptrdiff_t(length));
      MIRELOG(facility, 1, "{}", Pelm::StringView(exact.data(), exact.size()));
      MIRELOG(facility, 1, "{} {}", length, Pelm::StringView(exact.data(), exact.size()));
      MIRELOG(facility, 1, "{} {} {}", long_.substr(0, length).c_str(), -1, long_);
   }
   auto const cut = [&long_](std::size_t length, std::size_t room) {
      return long_.substr(0, std::min(length, room)) + (length > room ? "..." : "");
   };
   auto const all = texts();
   ASSERT_THAT(all, SizeIs(3 * (long_.size() + 1)));
   for (std::size_t length = 0; length <= long_.size(); ++length) {
      EXPECT_EQ(all[3 * length], cut(length, 39));
      EXPECT_EQ(all[3 * length + 1], std::to_string(length) + " " + cut(length, 31));
      EXPECT_EQ(all[3 * length + 2], cut(length, 15) + " -1 abcdefghijklmno...");
   }
}

TEST_F(MirelogTest, BracesAndControlCharacters) {
   MIRELOG(facility, 1, "{{{}}} {{}}\n", 5);
   MIRELOG(facility, 1, "{}", "\x1b[2J\\\x7f\xc3\xa4");
   EXPECT_THAT(texts(), ElementsAre("{5} {}\\x0a", "\\x1b[2J\\x5c\\x7f\xc3\xa4"));
}

TEST_F(MirelogTest, TheFacilityIsAskedForOnceAndEachArgumentToo) {
   int asked = 0;
   auto const from = [&]() -> Facility const& {
      ++asked;
      return facility;
   };
   int evaluated = 0;
   MIRELOG(from(), 1, "{}", ++evaluated);
   EXPECT_EQ(asked, 1);
   EXPECT_EQ(text(), "1");
}

TEST_F(MirelogTest, FacilitiesAreTheirNames) {
   Facility const same(facility.name());
   Facility const other(facility.name() + "Other");
   EXPECT_EQ(same.origin(), facility.origin());
   EXPECT_NE(other.origin(), facility.origin());
   MIRELOG(same, 1, "same");
   MIRELOG(other, 1, "other");
   EXPECT_THAT(texts(), ElementsAre("same"));
}

template <class T>
void
logOf(Facility const& facility, T const& value) {
   MIRELOG(facility, 1, "value {}", value);
}

TEST_F(MirelogTest, OnePlaceWithArgumentsOfSeveralTypes) {
   logOf(facility, -1);
   logOf(facility, ~0u);
   logOf(facility, "text");
   logOf(facility, true);
   EXPECT_THAT(texts(), ElementsAre("value -1", "value 4294967295", "value text", "value True"));
}

TEST_F(MirelogTest, TheNewestOverwriteTheOldest) {
   ASSERT_EQ(ringFileIs(path("ring"), 8), "");
   for (int i = 0; i < 21; ++i) {
      MIRELOG(facility, 1, "{}", i);
      auto const all = textsIn("ring");
      ASSERT_THAT(all, SizeIs(std::min(i + 1, 8)));
      ASSERT_EQ(all.front(), std::to_string(std::max(0, i - 7)));
      ASSERT_EQ(all.back(), std::to_string(i));
   }
}

TEST_F(MirelogTest, RingsOfAFewRecords) {
   for (std::size_t const records : {1, 2, 3, 5}) {
      ASSERT_EQ(ringFileIs(path("ring"), records), "");
      for (int i = 0; i < 21; ++i) {
         MIRELOG(facility, 1, "{}", i);
      }
      EXPECT_THAT(textsIn("ring"), SizeIs(std::bit_ceil(records)));
      EXPECT_EQ(textsIn("ring").back(), "20");
   }
}

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

TEST_F(MirelogTest, SeveralThreadsLoseNothing) {
   constexpr unsigned threads = 3;
   constexpr unsigned each = 20000;
   ASSERT_EQ(ringFileIs(path("ring"), 65536), "");
   std::vector<std::thread> running;
   std::barrier start(threads);
   for (unsigned thread = 0; thread < threads; ++thread) {
      running.emplace_back([this, thread, &start] {
         start.arrive_and_wait();
         for (unsigned i = 0; i < each; ++i) {
            MIRELOG(facility, 1, "{} {}", thread, i);
         }
      });
   }
   for (auto& thread : running) {
      thread.join();
   }
   auto const contents = readRingFile(path("ring"));
   EXPECT_EQ(contents.remark, "");
   std::map<unsigned, unsigned> next;
   for (auto const& text : texts(contents)) {
      auto const thread = unsigned(text[0] - '0');
      ASSERT_EQ(text, std::to_string(thread) + " " + std::to_string(next[thread]++));
   }
   EXPECT_THAT(next, ElementsAre(std::pair(0u, each), std::pair(1u, each), std::pair(2u, each)));
}

TEST_F(MirelogTest, ThreadsThatOvertakeEachOtherNeverMixTheirMessages) {
   ASSERT_EQ(ringFileIs(path("ring"), 2), "");
   std::atomic<bool> stop{};
   auto const log = [&](std::uint64_t factor) {
      for (std::uint64_t i = 1; !stop; ++i) {
         MIRELOG(facility, 1, "{} {} {} {} {}", factor, i, i * factor, i * factor * 3, i * factor * 5);
      }
   };
   std::thread one(log, 1);
   std::thread two(log, 7);
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
   std::map<std::uint64_t, unsigned> seen;
   while ((seen[1] < 1000 || seen[7] < 1000) && std::chrono::steady_clock::now() < end) {
      for (auto const& text : texts()) {
         std::istringstream stream(text);
         std::uint64_t factor, i, a, b, c;
         stream >> factor >> i >> a >> b >> c;
         EXPECT_TRUE(a == i * factor && b == a * 3 && c == a * 5) << text;
         ++seen[factor];
      }
   }
   stop = true;
   one.join();
   two.join();
   EXPECT_THAT(seen, ElementsAre(Pair(1, Ge(1000u)), Pair(7, Ge(1000u))));
}

TEST_F(MirelogTest, EachMessageOfSeveralThreadsHasANumberOfItsOwn) {
   constexpr unsigned threads = 3;
   constexpr unsigned each = 4000000;
   std::barrier start(threads);
   MIRELOG(facility, 1, "before");
   auto const before = mine(readRing(ringImage())).back().sequence;
   std::vector<std::thread> running;
   for (unsigned thread = 0; thread < threads; ++thread) {
      running.emplace_back([this, &start] {
         start.arrive_and_wait();
         for (unsigned i = 0; i < each; ++i) {
            MIRELOG(facility, 1, "between");
         }
      });
   }
   for (auto& thread : running) {
      thread.join();
   }
   MIRELOG(facility, 1, "after");
   EXPECT_EQ(mine(readRing(ringImage())).back().sequence, before + std::uint64_t(threads) * each + 1);
}

TEST_F(MirelogTest, FacilitiesFromSeveralThreadsAtOnce) {
   constexpr unsigned threads = 4;
   constexpr unsigned names = 300;
   std::barrier start(threads);
   std::vector<std::thread> running;
   std::array<std::vector<std::uint32_t>, threads> origins;
   for (unsigned thread = 0; thread < threads; ++thread) {
      running.emplace_back([this, thread, &start, &origins] {
         start.arrive_and_wait();
         for (unsigned i = 0; i < names; ++i) {
            origins[thread].push_back(Facility(facility.name() + std::to_string(i)).origin());
         }
      });
   }
   for (auto& thread : running) {
      thread.join();
   }
   EXPECT_THAT(origins, testing::Each(origins[0]));
   EXPECT_THAT(std::set(origins[0].begin(), origins[0].end()), SizeIs(names));
}

TEST_F(MirelogTest, FirstMessagesOfOnePlaceFromSeveralThreadsAtOnceAreOnePlace) {
   constexpr unsigned threads = 4;
   std::barrier start(threads);
   std::vector<std::thread> running;
   static constinit MirelogSite site{"raced", "Nowhere.cpp", 1, 1};
   std::array<std::uint32_t, threads> ids{};
   for (unsigned thread = 0; thread < threads; ++thread) {
      running.emplace_back([&, thread] {
         start.arrive_and_wait();
         ids[thread] = site.idNew(nullptr, 0);
      });
   }
   for (auto& thread : running) {
      thread.join();
   }
   EXPECT_NE(ids[0], 0u);
   EXPECT_THAT(ids, testing::Each(ids[0]));
   EXPECT_EQ(site.id(), ids[0]);
}

/// The process's address space, in bytes.
std::size_t
addressSpace() {
   std::size_t pages = 0;
   std::ifstream("/proc/self/statm") >> pages;
   return pages * std::size_t(sysconf(_SC_PAGESIZE));
}

TEST_F(MirelogTest, FilesAreReplacedWhileThreadsLogAndCostNoMoreThanTheLast) {
   std::atomic<bool> stop{};
   // More threads than processors, so that some stop for a while in the middle of a message.
   unsigned const threads = std::thread::hardware_concurrency() + 2;
   std::latch started(threads);
   std::vector<std::thread> writers;
   for (unsigned thread = 0; thread < threads; ++thread) {
      writers.emplace_back([&] {
         // What a thread needs for itself is not to be counted below.
         Facility const own(facility.name());
         started.count_down();
         for (unsigned i = 0; !stop; ++i) {
            MIRELOG(facility, 1, "{} {}", i, i);
         }
      });
   }
   auto const moveRing = [&](int i) {
      EXPECT_EQ(ringFileIs(path("ring" + std::to_string(i % 3)), 1024), "");
      if (i % 5 == 0) {
         ringFileDel();
      }
   };
   started.wait();
   for (int i = 0; i < 20; ++i) {
      moveRing(i);
      for (auto const& text : texts()) {
         auto const number = text.substr(0, text.find(' '));
         EXPECT_EQ(text, number + " " + number);
      }
   }
   std::size_t const before = addressSpace();
   for (int i = 0; i < 40; ++i) {
      moveRing(i);
   }
   EXPECT_LT(addressSpace(), before + (20u << 20)) << "of 40 files that take a megabyte and more each";
   stop = true;
   for (auto& writer : writers) {
      writer.join();
   }
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

TEST_F(MirelogTest, Lines) {
   RingMessage message{12, 3'000'000'045, "Table", 4, "File.cpp", 67, "text"};
   EXPECT_EQ(lineOf(message), "12 +3.000000045 Table/4 File.cpp:67 text");
   message.time = -1;
   EXPECT_EQ(lineOf(message), "12 -0.000000001 Table/4 File.cpp:67 text");
   message.time = std::numeric_limits<std::int64_t>::min();
   EXPECT_THAT(lineOf(message), StartsWith("12 -9223372036.854775808 "));
}

TEST_F(MirelogTest, TheTimeIsThatSinceTheStart) {
   auto const nowIs = [] {
      timespec now;
      clock_gettime(CLOCK_REALTIME, &now);
      return std::int64_t(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
   };
   auto const before = nowIs();
   MIRELOG(facility, 1, "now");
   auto const after = nowIs();
   auto const contents = readRing(ringImage());
   ASSERT_THAT(mine(contents), SizeIs(1));
   auto const time = std::int64_t(contents.start) + mine(contents)[0].time;
   // The clock's tick, and what the wall clock is adjusted meanwhile.
   EXPECT_THAT(time, AllOf(Ge(before - 50'000'000), Le(after + 50'000'000)));
}

/// A small ring's bytes that may be damaged.
class RingDamageTest : public MirelogTest {
 protected:
   RingDamageTest() {
      EXPECT_EQ(ringFileIs(path("ring"), 8), "");
      for (int i = 0; i < 12; ++i) {
         MIRELOG(facility, 1, "{} and {} of {}", i, "some text", true);
      }
      image = ringImage();
      whole = texts(readRing(image));
      recordsAt = image.size() - std::size_t(8) * 64;
   }

   /// Reads a heap block of just this size, so that reading beyond it is found.
   static RingContents readExactly(Pelm::StringView bytes) {
      std::vector<char> const exact(bytes.begin(), bytes.end());
      auto contents = readRing(Pelm::StringView(exact.data(), exact.size()));
      for (auto const& message : contents.messages) {
         EXPECT_FALSE(lineOf(message).empty());
      }
      return contents;
   }

   /// Overwrites part of the image.
   template <class T>
   void put(std::size_t at, T value) {
      std::memcpy(image.data() + at, &value, sizeof(value));
   }
   template <class T>
   T get(std::size_t at) const {
      T value;
      std::memcpy(&value, image.data() + at, sizeof(value));
      return value;
   }

   Pelm::String image;
   std::vector<Pelm::String> whole;
   std::size_t recordsAt{};
};

TEST_F(RingDamageTest, TheImageAndTheFileSayTheSame) {
   EXPECT_THAT(whole, SizeIs(8));
   EXPECT_EQ(whole.front(), "4 and some text of True");
   EXPECT_EQ(textsIn("ring"), whole);
   EXPECT_EQ(readRing(image).remark, "");
}

TEST_F(RingDamageTest, CutAnywhere) {
   std::set<Pelm::String> const all(whole.begin(), whole.end());
   for (std::size_t size = 0; size < image.size(); ++size) {
      auto const contents = readExactly(Pelm::StringView(image).substr(0, size));
      if (size < recordsAt) {
         ASSERT_NE(contents.error, "") << size;
         ASSERT_THAT(contents.messages, IsEmpty());
      } else {
         ASSERT_EQ(contents.error, "") << size;
         ASSERT_THAT(contents.messages, SizeIs((size - recordsAt) / 64));
         ASSERT_THAT(contents.remark, StartsWith("cut short: ")) << size;
         for (auto const& text : texts(contents)) {
            ASSERT_TRUE(all.contains(text)) << text;
         }
      }
   }
   EXPECT_EQ(texts(readExactly(image)), whole);
}

TEST_F(RingDamageTest, ADamagedRecordIsSkippedAndTheOthersStay) {
   for (std::size_t at = recordsAt; at < image.size(); ++at) {
      for (unsigned bit = 0; bit < 8; ++bit) {
         Pelm::String damaged = image;
         damaged[at] = char(damaged[at] ^ 1 << bit);
         auto const contents = readRing(damaged);
         auto expected = whole;
         auto const sequence = get<std::uint64_t>(recordsAt + (at - recordsAt) / 64 * 64);
         auto const first = readRing(image).messages.front().sequence;
         expected.erase(expected.begin() + std::ptrdiff_t(sequence - first));
         ASSERT_EQ(texts(contents), expected) << at << " bit " << bit;
         ASSERT_EQ(contents.skipped, 1u);
         ASSERT_EQ(contents.remark, "1 records half-written or damaged");
      }
   }
}

TEST_F(RingDamageTest, ARecordThatIsBeingWrittenIsSkipped) {
   put(recordsAt, std::uint64_t(0));
   auto const contents = readRing(image);
   EXPECT_THAT(contents.messages, SizeIs(7));
   EXPECT_EQ(contents.skipped, 1u);
}

TEST_F(RingDamageTest, AnEmptyRecordIsNothingToSpeakOf) {
   std::fill(image.end() - 64, image.end(), '\0');
   auto const contents = readRing(image);
   EXPECT_THAT(contents.messages, SizeIs(7));
   EXPECT_EQ(contents.skipped, 0u);
   EXPECT_EQ(contents.remark, "");
}

TEST_F(RingDamageTest, ARecordInTheWrongPlaceIsSkipped) {
   std::swap_ranges(image.end() - 128, image.end() - 64, image.end() - 64);
   EXPECT_EQ(readRing(image).skipped, 2u);
}

TEST_F(RingDamageTest, HeadersThatMakeNoSense) {
   using ringfile::Header;
   auto const errorWith = [this](std::size_t at, auto value) {
      auto const old = get<decltype(value)>(at);
      put(at, value);
      auto const contents = readExactly(image);
      put(at, old);
      EXPECT_THAT(contents.messages, IsEmpty());
      return contents.error;
   };
   EXPECT_EQ(errorWith(0, 'm'), "not a trace ring");
   EXPECT_EQ(errorWith(offsetof(Header, version), 2u), "trace ring of version 2, not 1");
   EXPECT_EQ(errorWith(offsetof(Header, recordBytes), 63u), "damaged header: records of 63 bytes");
   for (std::uint64_t const records : {std::uint64_t(0), std::uint64_t(7), ~std::uint64_t(0),
                                       std::uint64_t(1) << 25, std::uint64_t(1) << 63}) {
      EXPECT_EQ(errorWith(offsetof(Header, records), records),
                "damaged header: " + std::to_string(records) + " records");
   }
   for (std::uint64_t const room : {std::uint64_t(63), ~std::uint64_t(63), std::uint64_t(1) << 32}) {
      EXPECT_EQ(errorWith(offsetof(Header, descriptorRoom), room),
                "damaged header: " + std::to_string(room) + " bytes of descriptors");
   }
   EXPECT_THAT(errorWith(offsetof(Header, descriptorRoom), std::uint64_t(1) << 20), StartsWith("cut short"));
   put(offsetof(Header, records), std::uint64_t(maxRingRecords));
   auto const contents = readExactly(image);
   EXPECT_EQ(contents.error, "");
   EXPECT_THAT(contents.remark, StartsWith("cut short: 8 of 16777216 records"));
   EXPECT_LE(contents.messages.size(), 8u);
}

TEST_F(RingDamageTest, DescriptorsThatMakeNoSense) {
   using ringfile::Descriptor;
   std::size_t const first = sizeof(ringfile::Header);
   auto const damages = [&](std::size_t at, auto value) {
      auto const old = get<decltype(value)>(first + at);
      put(first + at, value);
      auto const contents = readExactly(image);
      put(first + at, old);
      EXPECT_EQ(contents.error, "");
      EXPECT_THAT(contents.messages, SizeIs(8));
      return contents.remark == "damaged descriptors";
   };
   EXPECT_EQ(readExactly(image).remark, "");
   auto const size = get<std::uint32_t>(first);
   for (std::uint32_t const bytes : {8u, size + 1, 0x7ffffff8u, 0xfffffff8u}) {
      EXPECT_TRUE(damages(offsetof(Descriptor, bytes), bytes)) << bytes;
   }
   EXPECT_TRUE(damages(offsetof(Descriptor, fileLength), std::uint16_t(0xffff)));
   EXPECT_TRUE(damages(offsetof(Descriptor, textLength), std::uint16_t(0xffff)));
   EXPECT_TRUE(damages(offsetof(Descriptor, type), std::uint8_t(9)));
   // The first one is a facility, so these make a site of it first.
   put(first + offsetof(Descriptor, type), std::uint8_t(1));
   put(first + offsetof(Descriptor, id), std::uint16_t(0xfff0));
   EXPECT_FALSE(damages(offsetof(Descriptor, level), std::uint8_t(31)));
   EXPECT_TRUE(damages(offsetof(Descriptor, level), std::uint8_t(32)));
   EXPECT_TRUE(damages(offsetof(Descriptor, arguments), std::uint8_t(6)));
   EXPECT_TRUE(damages(offsetof(Descriptor, arguments), std::uint8_t(1))) << "of kind 0";
}

TEST_F(RingDamageTest, MessagesWithoutTheirDescriptorsAreShownRaw) {
   put(sizeof(ringfile::Header), std::uint32_t(0));
   auto const contents = readExactly(image);
   ASSERT_THAT(contents.messages, SizeIs(8));
   for (auto const& message : contents.messages) {
      EXPECT_EQ(message.facility, "?");
      EXPECT_THAT(message.text, AllOf(StartsWith("(no text for message "), EndsWith(" 0x0 0x1)")));
   }
}

TEST_F(RingDamageTest, BytesFlippedAtRandom) {
   Nuv::soak(5000, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int round = 0; round < steps; ++round) {
         Pelm::String damaged = image;
         for (unsigned left = 1 + random() % 20; left > 0; --left) {
            damaged[random() % damaged.size()] = char(random());
         }
         auto const contents = readExactly(damaged);
         ASSERT_LE(contents.messages.size(), 8u);
         ASSERT_TRUE(contents.error.empty() || contents.messages.empty());
      }
   });
}

TEST_F(RingDamageTest, RandomNoiseBehindAGoodHeader) {
   Nuv::soak(500, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      for (int round = 0; round < steps; ++round) {
         for (std::size_t at = sizeof(ringfile::Header); at < image.size(); ++at) {
            image[at] = char(random());
         }
         EXPECT_THAT(readExactly(image).messages, IsEmpty());
      }
   });
}

TEST_F(RingDamageTest, FilesThatAreNone) {
   EXPECT_EQ(readRingFile(path("none")).error, "cannot read " + path("none") + ": No such file or directory");
   EXPECT_EQ(readRingFile(folder).error, "cannot read " + folder + ": not a regular file");
   ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
   EXPECT_EQ(readRingFile(path("pipe")).error, "cannot read " + path("pipe") + ": not a regular file");
   std::ofstream(path("short")) << "short";
   EXPECT_EQ(readRingFile(path("short")).error,
             "cannot read " + path("short") + ": too short for a trace ring: 5 bytes");
   std::ofstream(path("text")) << Pelm::String(1000, 'x');
   EXPECT_EQ(readRingFile(path("text")).error, "cannot read " + path("text") + ": not a trace ring");
}

TEST_F(RingDamageTest, FilesThatAreCutOrPadded) {
   ringFileDel();
   std::filesystem::resize_file(path("ring"), (1u << 20) + 3 * 64 + 1);
   EXPECT_EQ(readRingFile(path("ring")).remark, "cut short: 3 of 8 records");
   EXPECT_THAT(textsIn("ring"), SizeIs(3));
   std::filesystem::resize_file(path("ring"), 1000);
   EXPECT_EQ(readRingFile(path("ring")).error,
             "cannot read " + path("ring") + ": cut short: 1000 bytes, the records would begin at 1048576");
   std::ofstream(path("image"), std::ios::binary) << image;
   // More than there is memory for: only what the header says is read.
   std::filesystem::resize_file(path("image"), std::uintmax_t(1) << (sizeof(off_t) == 4 ? 30 : 42));
   EXPECT_EQ(textsIn("image"), whole);
}

} // namespace
} // namespace Trace
