#include "platform/nuv/testing/Soak.h"
#include "programmer/testing/Play.h"
#include "programmer/testing/ScriptFile.h"

#include <gtest/gtest.h>

// A failing run prints a short script as well. With the name of a file of that in L3TUNNEL_SCRIPT it is
// played instead, in this very process.

namespace ZandorL3Tunnel {
namespace {

constexpr std::size_t longestScript = 2000;

#ifdef L3TUNNEL_LONG_TESTS
constexpr int usualSteps = 500'000;
#else
constexpr int usualSteps = 50'000;
#endif

char const*
scriptPath() {
   char const* path = std::getenv("L3TUNNEL_SCRIPT");
   return path && *path ? path : nullptr;
}

// Before anybody uses the seed.
[[maybe_unused]] bool const scriptsHashSeedIsGiven = [] {
   if (auto const* path = scriptPath()) {
      std::ifstream in(path);
      std::string name;
      std::uint32_t seed{};
      return in >> name >> seed && name == "hash-seed" && Nuv::hashSeedIs(seed);
   }
   return false;
}();

/// Plays scripts until they have had so many steps. One that fails is made short and told.
void
playMany(std::uint32_t seed, int steps) {
   SwTableWorkaround::dontCareHandle(0);
   auto const handles = handlesMadeAre();
   std::mt19937 random(seed);
   std::uint64_t rows = 0;
   for (int played = 0; played < steps;) {
      auto length = std::size_t(random() % longestScript + 1);
      auto script = RandomScript(std::uint32_t(random())).script(length);
      played += int(length);
      auto outcome = playApart(script);
      rows += outcome.rows;
      if (!outcome.problem.empty()) {
         ScriptFile few{Nuv::hashSeed(), handles, shortened(script)};
         FAIL() << outcome.problem << "\nShortened from " << script.size() << " to " << few.script.size()
                << " steps: " << playApart(few.script, {}, true).problem
                << "\nTo be played with L3TUNNEL_SCRIPT:\n"
                << few.text();
      }
   }
   std::cout << "   rows applied and looked at: " << rows << std::endl;
}

void
playFile(char const* path) {
   std::ifstream in(path);
   ASSERT_TRUE(in) << path;
   auto file = ScriptFile::of(in);
   ASSERT_EQ(file.hashSeed, Nuv::hashSeed()) << "the hash seed was used before it could be set";
   SwTableWorkaround::dontCareHandle(0);
   EXPECT_EQ(handlesMadeAre(file.handles), file.handles) << "run this test alone";
   EXPECT_EQ(play(file.script).problem, "");
}

TEST(WholeSystemRandom, ForwardsByTheOldOrByTheNewSetAtEveryRow) {
   if (auto const* path = scriptPath()) {
      playFile(path);
   } else {
      Nuv::soak(usualSteps, playMany);
   }
}

} // namespace
} // namespace ZandorL3Tunnel
