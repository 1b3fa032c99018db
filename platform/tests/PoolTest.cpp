#include "platform/nuv/Pool.h"

#include "platform/nuv/Ptr.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace Nuv {
namespace {

struct Small : Pooled {
   explicit Small(int number) : value(number) {}
   virtual ~Small() = default;

   int value;
};

struct Larger final : Small {
   using Small::Small;

   char rest[100]{};
};

class PoolOfSize : public testing::TestWithParam<std::size_t> {};

// An object's size is a multiple of its alignment.
std::size_t
strictestAlignment(std::size_t size) {
   return std::min<std::size_t>(__STDCPP_DEFAULT_NEW_ALIGNMENT__, size & (~size + 1));
}

TEST_P(PoolOfSize, ObjectsAreAlignedAndApart) {
   auto size = GetParam();
   auto alignment = strictestAlignment(size);
   std::vector<void*> taken;
   for (int number = 0; number < 3000; ++number) {
      taken.push_back(poolTake(size));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(taken.back()) % alignment, 0u);
      std::memset(taken.back(), number & 0xff, size);
   }
   EXPECT_EQ(std::set<void*>(taken.begin(), taken.end()).size(), taken.size());
   for (std::size_t number = 0; number < taken.size(); ++number) {
      auto const* bytes = static_cast<unsigned char const*>(taken[number]);
      for (std::size_t at = 0; at < size; ++at) {
         ASSERT_EQ(bytes[at], number & 0xff);
      }
   }
   for (auto* memory : taken) {
      poolGive(memory, size);
   }
}

INSTANTIATE_TEST_SUITE_P(Sizes, PoolOfSize,
                         testing::Values(1, 8, 15, 16, 17, 24, 48, 80, 255, 256, 504, 511, 512, 513, 4096));

TEST(PoolTest, CountsWhatItGivesOut) {
   auto isPooling = [] {
      auto before = poolTaken();
      poolGive(poolTake(24), 24);
      return poolTaken() != before;
   }();
   auto before = poolTaken();
   auto* one = poolTake(24);
   auto* other = poolTake(24);
   EXPECT_EQ(poolTaken() - before, isPooling ? 2u : 0u);
   poolGive(one, 24);
   poolGive(other, 24);
   poolGive(poolTake(4096), 4096);
   EXPECT_EQ(poolTaken() - before, isPooling ? 2u : 0u) << "what is too large is not the pool's";
}

TEST(PoolTest, NothingIsTakenAndGivenToo) {
   auto* nothing = poolTake(0);
   EXPECT_NE(nothing, nullptr);
   poolGive(nothing, 0);
   poolGive(nullptr, 24);
}

TEST(PoolTest, ObjectsDeletedAsTheirBaseGoBackWhereTheyCameFrom) {
   std::vector<std::unique_ptr<Small>> held;
   for (int round = 0; round < 3; ++round) {
      for (int number = 0; number < 500; ++number) {
         held.push_back(number % 2 ? std::make_unique<Larger>(number) : std::make_unique<Small>(number));
      }
      for (int number = 0; number < 500; ++number) {
         ASSERT_EQ(held[std::size_t(number)]->value, number);
      }
      held.clear();
   }
}

// Ends with the switch off again, as the other tests expect it.
TEST(PoolTest, ThreadsShareItWithTheThreadSafeSwitchOn) {
   threadSafePtrIs(true);
   auto work = [](int seed) {
      std::vector<std::unique_ptr<Small>> held;
      for (int number = 0; number < 20000; ++number) {
         held.push_back(std::make_unique<Small>(seed + number));
         if (number % 3 == 0) {
            held.erase(held.begin());
         }
      }
      int last = -1;
      for (auto const& each : held) {
         ASSERT_GT(each->value - seed, last);
         last = each->value - seed;
      }
   };
   std::thread one(work, 0);
   std::thread other(work, 1000000);
   one.join();
   other.join();
   threadSafePtrIs(false);
}

} // namespace
} // namespace Nuv
