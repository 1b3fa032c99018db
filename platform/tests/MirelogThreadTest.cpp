#include "platform/tests/MirelogFixture.h"

#include <atomic>
#include <barrier>
#include <chrono>
#include <fstream>
#include <latch>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace Trace {
namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::Pair;
using testing::SizeIs;

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

} // namespace
} // namespace Trace
