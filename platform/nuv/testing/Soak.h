#pragma once

#include "platform/nuv/Hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

/// Random runs of tests, to be made longer by `script/soak` and to be repeated when they fail:
///
///    TEST(Thing, RandomChanges) {
///       Nuv::soak(100'000, [](std::uint32_t seed, int steps) {
///          std::mt19937 random(seed);
///          ... `steps` random steps against a model, with ASSERT_...
///       });
///    }
///
/// "Random" in the name of the test or its suite is what `script/soak` goes by. A run is made with seed 1 and
/// with a fresh one. The environment decides otherwise:
///
///    L3TUNNEL_SEED        the one seed to run with, instead of these
///    L3TUNNEL_HASH_SEED   the process's hash seed, instead of a random one
///    L3TUNNEL_SOAK_STEPS  by how much to multiply the steps of every test, such as 50 or 0.2
///
/// Each run's seed is written out before it begins, with the hash seed, by which the order of hash
/// collections goes; they stand in the trace of a failed assertion. The test's property "seed" is the seed.
namespace Nuv {

namespace detail {

/// The variable's value, at least `least`. A text that is no such number fails the test.
inline std::optional<double>
soakVariable(char const* name, double least) {
   char const* text = std::getenv(name);
   if (!text || !*text) {
      return std::nullopt;
   }
   char* end = nullptr;
   double value = std::strtod(text, &end);
   if (*end != 0 || !(value >= least) || value > std::numeric_limits<std::uint32_t>::max()) {
      ADD_FAILURE() << name << " is no number of that kind: " << text;
      return std::nullopt;
   }
   return value;
}

// Before anybody uses it.
[[maybe_unused]] inline bool const hashSeedIsGiven = [] {
   char const* text = std::getenv("L3TUNNEL_HASH_SEED");
   return text && *text && hashSeedIs(std::uint32_t(std::strtoul(text, nullptr, 0)));
}();

} // namespace detail

/// How many steps a run has that usually has `usual`; at least 1.
inline int
soakSteps(int usual) {
   double factor = detail::soakVariable("L3TUNNEL_SOAK_STEPS", 0).value_or(1);
   return int(std::clamp<double>(usual * factor, 1, std::numeric_limits<int>::max()));
}

/// The seeds of a test's runs.
inline std::vector<std::uint32_t>
soakSeeds() {
   if (auto seed = detail::soakVariable("L3TUNNEL_SEED", 0)) {
      return {std::uint32_t(*seed)};
   }
   return {1, std::random_device()()};
}

/// Calls `run(seed, steps)` for each seed, until one fails.
template <class Run>
void
soak(int usualSteps, Run run) {
   int const steps = soakSteps(usualSteps);
   for (std::uint32_t seed : soakSeeds()) {
      auto const* info = testing::UnitTest::GetInstance()->current_test_info();
      std::string const text = "seed " + std::to_string(seed) + ", hash seed " + std::to_string(hashSeed()) +
                               ", " + std::to_string(steps) + " steps";
      std::cout << info->test_suite_name() << '.' << info->name() << ": " << text << std::endl;
      testing::Test::RecordProperty("seed", std::to_string(seed));
      SCOPED_TRACE(text);
      run(seed, steps);
      if (testing::Test::HasFailure() || testing::Test::IsSkipped()) {
         return;
      }
   }
}

} // namespace Nuv
