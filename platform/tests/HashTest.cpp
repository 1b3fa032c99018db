#include "platform/nuv/Hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

TEST(Hash, StringsHashByTheirBytes) {
   std::string text = "a text of more than eight bytes";
   EXPECT_EQ(Nuv::hashOf(text, 3), Nuv::hashOf(std::string(text), 3));
   EXPECT_EQ(Nuv::hashOf(text, 3), Nuv::hashOf(std::string_view(text), 3));
   EXPECT_NE(Nuv::hashOf(text, 3), Nuv::hashOf(text, 4));
   std::set<std::uint32_t> hashes;
   for (std::size_t size = 0; size <= text.size(); ++size) {
      hashes.insert(Nuv::hashOf(std::string_view(text).substr(0, size), 3));
   }
   EXPECT_EQ(hashes.size(), text.size() + 1);
}

TEST(Hash, SeedIsFixedByItsFirstUse) {
   std::uint32_t seed = Nuv::hashSeed();
   EXPECT_FALSE(Nuv::hashSeedIs(seed + 1));
   EXPECT_FALSE(Nuv::hashSeedIs(seed));
   EXPECT_EQ(Nuv::hashSeed(), seed);
}

// Each of these starts in a process that has not used the seed.

TEST(HashDeathTest, SeedMayBeSetBeforeItsFirstUse) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
         {
            bool isGood = Nuv::hashSeedIs(6) && Nuv::hashSeedIs(7) && Nuv::hashSeed() == 7;
            isGood = isGood && !Nuv::hashSeedIs(8) && Nuv::hashSeed() == 7;
            isGood = isGood && Nuv::collectionHashSeed() == (7 ^ 0x1e7eda4a);
            std::_Exit(isGood ? 0 : 1);
         },
         testing::ExitedWithCode(0), "");
}

TEST(HashDeathTest, ThreadsAgreeOnTheSeed) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   EXPECT_EXIT(
         {
            std::vector<std::uint32_t> seeds(8);
            std::vector<std::thread> threads;
            for (std::uint32_t& seed : seeds) {
               threads.emplace_back([&seed] { seed = Nuv::hashSeed(); });
            }
            for (std::thread& thread : threads) {
               thread.join();
            }
            bool isGood = std::all_of(seeds.begin(), seeds.end(),
                                      [](std::uint32_t seed) { return seed == Nuv::hashSeed(); });
            std::_Exit(isGood ? 0 : 1);
         },
         testing::ExitedWithCode(0), "");
}

} // namespace
