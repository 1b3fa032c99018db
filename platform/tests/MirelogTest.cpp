#include "platform/tests/MirelogFixture.h"

#include "platform/chipstate/FendoTypes.h"

#include <bit>
#include <limits>
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
using testing::Ge;
using testing::Le;
using testing::SizeIs;
using testing::StartsWith;

static_assert(detail::placeholders("none") == 0);
static_assert(detail::placeholders("{}{} {{}} {}") == 3);
static_assert(detail::wordsPerText(1, 1) == 5);
static_assert(detail::wordsPerText(3, 2) == 2);
static_assert(detail::wordsPerText(5, 5) == 1);
static_assert(!detail::Traceable<double>);
static_assert(!detail::Traceable<RingMessage>);

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

} // namespace
} // namespace Trace
