#include "chip/model/Faults.h"
#include "chip/model/testing/ChipTest.h"
#include "platform/nuv/testing/Soak.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <map>
#include <random>

namespace ZandorL3Tunnel {
namespace {

constexpr Asic::Index memberRows = 24;
constexpr std::uint16_t nextHopCount = 6;

/// Blocks of next hops on a small chip, changed at random, beside a plain model: a string of rows, and runs
/// at the first place where they fit.
class BlockRandom : public ModelChip::ChipTest {
 protected:
   using Block = L3UnderlayEcmpMember1Table::EntryBlock;
   using Numbers = std::vector<std::uint16_t>;

   struct Held {
      std::vector<Handle> users;
      bool isCommitted{};
      Asic::Index base{};
   };

   BlockRandom()
       : ChipTest({{"L3UnderlayEcmpMember1Table", memberRows},
                   {"EgrL3Oif2", 2},
                   {"EgrL3NextHop2", nextHopCount + 2},
                   {"IngL3NextHop2Table", nextHopCount + 2},
                   {"L3EcmpMember0Table", 1},
                   {"L3EcmpGroup0Table", 1}}) {
      interfaces->doInit(unit, stateDatabase, chip->chipInfo());
      nextHops->doInit(unit, stateDatabase, chip->chipInfo());
      blocks->doInit(unit, stateDatabase, chip->chipInfo());
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = interfaces->entryCommit(1, {});
      for (std::uint16_t number = 0; number < nextHopCount; ++number) {
         L3UnderlayNextHopKey key;
         key.l2If = {number};
         hops.push_back(nextHops->entryRef(key, {}, egr));
      }
      loop.runUntilIdle();
      chip->faultsIs(faults);
      afterRow = [this] { rowsApplied.clear(); };
   }

   unsigned draw(unsigned below) { return random() % below; }

   Numbers anyNumbers() {
      Numbers numbers(draw(6));
      for (auto& number : numbers) {
         number = std::uint16_t(draw(nextHopCount));
      }
      return numbers;
   }

   Block blockOf(Numbers const& numbers) const {
      Block block;
      for (Asic::Index position = 0; position < numbers.size(); ++position) {
         L3UnderlayEcmpMember1Table::Entry entry;
         entry.underlayEcmpNextHopIndexHandle = hops[numbers[position]];
         block.entryIs(position, entry);
      }
      return block;
   }

   void write(Numbers const& numbers, bool isCommit) {
      auto handle =
            isCommit ? blocks->entryBlockCommit(blockOf(numbers)) : blocks->entryBlockRef(blockOf(numbers));
      auto [found, isNew] = held.try_emplace(numbers);
      if (isNew) {
         auto place = rows.find(std::string(numbers.size(), '.'));
         found->second.base = place == std::string::npos ? Asic::invalidIndex : Asic::Index(place);
         fill(found->first, found->second, 'x');
      }
      if (isCommit) {
         found->second.isCommitted = true;
      } else {
         found->second.users.push_back(handle);
      }
   }

   void fill(Numbers const& numbers, Held const& block, char with) {
      if (block.base != Asic::invalidIndex) {
         std::fill_n(rows.begin() + block.base, numbers.size(), with);
      }
   }

   void release(Numbers const& numbers) {
      auto found = held.find(numbers);
      if (found == held.end()) {
         return;
      }
      if (!found->second.users.empty()) {
         found->second.users.pop_back();
      } else if (std::exchange(found->second.isCommitted, false)) {
         blocks->entryBlockRemove(blockOf(numbers));
      }
      if (found->second.users.empty() && !found->second.isCommitted) {
         fill(numbers, found->second, '.');
         held.erase(found);
      }
   }

   Numbers anyHeld() { return std::next(held.begin(), draw(unsigned(held.size())))->first; }

   void step() {
      switch (draw(6)) {
      case 0:
      case 1:
         write(anyNumbers(), draw(4) == 0);
         break;
      case 2:
         if (!held.empty()) {
            write(anyHeld(), draw(4) == 0);
         }
         break;
      case 3:
      case 4:
         if (!held.empty()) {
            release(anyHeld());
         }
         break;
      default:
         for (auto turns = draw(8); turns > 0; --turns) {
            loop.runOne();
         }
         break;
      }
   }

   // What the tables say needs no answer of the chip: runs, and who has them.
   void check() const {
      ASSERT_EQ(blocks->handles().size(), held.size());
      ASSERT_EQ(blocks->indexAllocator()->used(), std::count(rows.begin(), rows.end(), 'x'));
      for (auto const& [numbers, block] : held) {
         auto handle = blocks->entryHandle(blockOf(numbers));
         ASSERT_TRUE(handle);
         ASSERT_EQ(handle->hwIndexForDependentField(), block.base);
         if (block.base == Asic::invalidIndex) {
            ASSERT_EQ(handle->entryState(), State::failed);
         }
      }
   }

   void checkIdle() {
      loop.runUntilIdle();
      auto const& hardware = *chip->table("L3UnderlayEcmpMember1Table");
      for (auto const& [numbers, block] : held) {
         if (block.base == Asic::invalidIndex) {
            continue;
         }
         auto handle = blocks->entryHandle(blockOf(numbers));
         ASSERT_EQ(handle->entryState(), State::success);
         ASSERT_TRUE(handle->isHwIndexValid());
         for (Asic::Index position = 0; position < numbers.size(); ++position) {
            auto row = hardware.row(block.base + position);
            ASSERT_EQ(ModelChip::L3UnderlayEcmpMember1Table::nextHop.unpack(row),
                      hops[numbers[position]]->hwEntryIndex());
         }
      }
      ASSERT_EQ(hardware.rowsPresent(), std::count(rows.begin(), rows.end(), 'x'));
   }

   void releaseAll() {
      while (!held.empty()) {
         release(held.begin()->first);
      }
      faults->stop();
      loop.runUntilIdle();
   }

   void run(std::uint32_t seed, int steps, bool isFaulty) {
      random.seed(seed);
      for (int at = 0; at < steps && !HasFatalFailure(); ++at) {
         SCOPED_TRACE(at);
         if (isFaulty && at % 500 == 0) {
            ModelChip::Faults::Probabilities probabilities;
            probabilities.refuseWrite = 100;
            probabilities.refuseDelete = 100;
            probabilities.repeat = 50;
            probabilities.delay = 300;
            faults->random(seed + unsigned(at), probabilities);
         }
         step();
         check();
         if (!isFaulty && at % 16 == 0) {
            checkIdle();
         }
         // What was refused stays failed: it is let go, and all that comes afterwards is as it should be.
         if (isFaulty && at % 500 == 499) {
            releaseAll();
            ASSERT_EQ(chip->table("L3UnderlayEcmpMember1Table")->rowsPresent(), 0u);
            for (int calm = 0; calm < 50; ++calm) {
               step();
               checkIdle();
            }
         }
      }
      releaseAll();
      EXPECT_EQ(blocks->handles().size(), 0u);
      EXPECT_EQ(blocks->indexAllocator()->holders(), 0u);
      EXPECT_EQ(chip->table("L3UnderlayEcmpMember1Table")->rowsPresent(), 0u);
   }

   std::mt19937 random;
   Nuv::Ptr<ModelChip::Faults> faults = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<EgrL3Oif2> interfaces = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> nextHops = l3NextHop2TableFactory();
   Nuv::Ptr<L3UnderlayEcmpMember1Table> blocks = l3UnderlayEcmpMember1TableFactory();
   std::vector<Handle> hops;
   std::string rows = std::string(memberRows, '.');
   std::map<Numbers, Held> held;
};

TEST_F(BlockRandom, HasTheRunsAndRowsOfThePlainModel) {
   Nuv::soak(25'000, [this](std::uint32_t seed, int steps) { run(seed, steps, false); });
}

TEST_F(BlockRandom, KeepsItsRunsApartWhateverTheChipDoes) {
   Nuv::soak(25'000, [this](std::uint32_t seed, int steps) { run(seed, steps, true); });
}

} // namespace
} // namespace ZandorL3Tunnel
