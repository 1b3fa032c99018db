#include "programmer/testing/Play.h"
#include "programmer/testing/ScriptFile.h"

#include <gmock/gmock.h>
#include <set>

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Act = Step::Act;

TEST(ShortenerTest, LeavesOnlyWhatMattersAndAsSimpleAsCanBe) {
   std::vector<int> numbers;
   for (int number = 0; number < 1000; ++number) {
      numbers.push_back(number);
   }
   unsigned trials = 0;
   auto fails = [&](std::vector<int> const& some) {
      ++trials;
      std::set<int> tens;
      for (int each : some) {
         tens.insert(each / 10);
      }
      return tens.contains(13) && tens.contains(42) && tens.contains(99);
   };
   auto simpler = [](int number) { return number % 10 == 0 ? std::vector<int>{} : std::vector{number - 1}; };
   Shortener<int> shortener(fails, simpler);
   EXPECT_THAT(shortener.shortened(numbers), ElementsAre(130, 420, 990));
   EXPECT_LT(trials, 300u);
}

TEST(ShortenerTest, StopsAfterAsManyTrialsAsItMayMake) {
   unsigned trials = 0;
   auto fails = [&](std::vector<int> const& some) {
      ++trials;
      return some.size() >= 10;
   };
   Shortener<int> shortener(
         fails, [](int) { return std::vector<int>{}; }, 3);
   EXPECT_EQ(shortener.shortened(std::vector<int>(64)).size(), 16u);
   EXPECT_EQ(trials, 3u);
}

TEST(ScriptTest, EveryStepIsReadAsItWasWritten) {
   for (std::uint32_t seed = 0; seed < 20; ++seed) {
      ScriptFile file{7, 8, RandomScript(seed).script(500)};
      std::istringstream in("# what it is\n" + file.text());
      auto read = ScriptFile::of(in);
      EXPECT_EQ(read.script, file.script);
      EXPECT_EQ(read.hashSeed, 7u);
      EXPECT_EQ(read.handles, 8u);
   }
   EXPECT_EQ(stepText({Act::destination, 5, 0, true, 0x12}), "destination 5 vias=0x12 flag");
   for (auto const* line :
        {"destinations 5", "destination", "run value=3 flag", "settle now", "run valu=3"}) {
      EXPECT_THROW(stepOf(line), Nuv::RangeException) << line;
   }
}

/// A chip that breaks a law on purpose, and what is said of it.
struct SpoilerCase {
   char const* name;
   World::Spoiler spoiler;
   char const* problem;
   std::size_t mostSteps;
};

void
PrintTo(SpoilerCase const& of, std::ostream* out) {
   *out << of.name;
}

bool
isRow(ModelChip::Table const& table, ModelChip::RowLayout const& layout, Asic::Index index) {
   return table.shape().name == layout.table && table.hasRow(index);
}

// Whenever interface 2 gets value 4 the chip forgets the next hops over it.
void
forgetNextHops(World& world, ModelChip::Table const& table, Asic::Index index) {
   namespace Interface = ModelChip::EgrL3Oif2;
   namespace Egress = ModelChip::EgrL3NextHop2;
   if (index != 2 || !isRow(table, Interface::layout, index) ||
       (Interface::srcMac.unpack(table.row(index)) & 0xff) != 4) {
      return;
   }
   auto& rows = world.rows(Egress::layout);
   for (Asic::Index nextHop = 0; nextHop < rows.size(); ++nextHop) {
      if (rows.has(nextHop) && Egress::l3Oif.unpack(rows.row(nextHop)) == index) {
         rows.rowDel(nextHop);
      }
   }
}

// Members at odd places point at the next hop before theirs.
void
misdirect(World& world, ModelChip::Table const& table, Asic::Index index) {
   namespace Member = ModelChip::L3UnderlayEcmpMember1Table;
   if (index % 2 == 0 || !isRow(table, Member::layout, index)) {
      return;
   }
   auto words = table.row(index);
   std::vector<std::uint32_t> changed(words.begin(), words.end());
   auto nextHop = Member::nextHop.unpack(words);
   if (nextHop > 1 && world.rows(ModelChip::EgrL3NextHop2::layout).has(Asic::Index(nextHop) - 1)) {
      Member::nextHop.pack(changed, nextHop - 1);
      world.rows(Member::layout).rowIs(index, changed);
   }
}

// A group of three paths loses one.
void
dropPath(World& world, ModelChip::Table const& table, Asic::Index index) {
   namespace Group = ModelChip::L3EcmpGroup0Table;
   if (isRow(table, Group::layout, index) && Group::numPaths.unpack(table.row(index)) == 3) {
      auto words = table.row(index);
      std::vector<std::uint32_t> changed(words.begin(), words.end());
      Group::numPaths.pack(changed, 2);
      world.rows(Group::layout).rowIs(index, changed);
   }
}

// A group's row goes with the clearing of another's.
void
loseGroup(World& world, ModelChip::Table const& table, Asic::Index index) {
   namespace Group = ModelChip::L3EcmpGroup0Table;
   if (table.shape().name == Group::layout.table && index == 0 && !table.hasRow(0) && table.hasRow(1)) {
      world.rows(Group::layout).rowDel(1);
   }
}

// The second member row of a run stops the process.
void
stop(World&, ModelChip::Table const& table, Asic::Index index) {
   if (index == 1 && isRow(table, ModelChip::L3UnderlayEcmpMember1Table::layout, index)) {
      std::abort();
   }
}

class SpoiledChip : public testing::TestWithParam<SpoilerCase> {};

TEST_P(SpoiledChip, IsFoundOutAndTheScriptIsMadeShort) {
   auto const& of = GetParam();
   Script script;
   Outcome outcome;
   for (std::uint32_t seed = 1; seed < 100 && outcome.problem.empty(); ++seed) {
      script = RandomScript(seed).script(800);
      outcome = playApart(script, of.spoiler, true);
   }
   ASSERT_THAT(outcome.problem, HasSubstr(of.problem));
   auto few = shortened(script, of.spoiler);
   SCOPED_TRACE(scriptText(few));
   EXPECT_LE(few.size(), of.mostSteps);

   // It fails in the same way when it is read from its text, and no step of it is one too many.
   ScriptFile const file{Nuv::hashSeed(), 0, few};
   std::istringstream in(file.text());
   auto again = playApart(ScriptFile::of(in).script, of.spoiler, true);
   EXPECT_EQ(again.kind(), outcome.kind());
   EXPECT_EQ(playApart(few, {}, true).problem, "") << "with an honest chip";
   for (std::size_t at = 0; at < few.size(); ++at) {
      auto fewer = few;
      fewer.erase(fewer.begin() + std::ptrdiff_t(at));
      EXPECT_NE(playApart(fewer, of.spoiler, true).kind(), outcome.kind()) << "without step " << at + 1;
   }
}

INSTANTIATE_TEST_SUITE_P(
      That, SpoiledChip,
      testing::Values(SpoilerCase{"ForgetsNextHops", forgetNextHops, "no row", 7},
                      SpoilerCase{"MisdirectsMembers", misdirect, "does not forward by via", 7},
                      SpoilerCase{"DropsAPath", dropPath, "has 2 paths instead of 3", 6},
                      SpoilerCase{"LosesAGroup", loseGroup, "no row 1 in L3EcmpGroup0Table", 7},
                      SpoilerCase{"StopsTheProcess", stop, "its process ended by signal 6", 6}),
      [](auto const& test) { return test.param.name; });

} // namespace
} // namespace ZandorL3Tunnel
