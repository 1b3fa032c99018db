// Writing and removing the entries of a keyed table, from the call to the chip's answer, and beside it the
// floor: the same values in a hash map and in an array of rows. What an operation costs should not grow with
// the table but by the cache misses that the floor has too.

#include "chip/model/Chip.h"
#include "tables/EgrL3Oif2.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <numeric>
#include <random>

namespace {

using ZandorL3Tunnel::EgrL3Oif2;

constexpr Asic::Index rows = Asic::Index(1) << 20;

EgrL3Oif2::Entry
interfaceOf(std::uint32_t value) {
   EgrL3Oif2::Entry entry;
   entry.srcMacAddress = {{2, 0, 0, 0, std::uint8_t(value >> 8), std::uint8_t(value)}};
   entry.tnlVlanTag = std::uint16_t(value >> 16);
   return entry;
}

/// Keys in random order, so that neither map nor rows are walked in theirs.
std::vector<Asic::Index>
shuffledKeys(std::size_t count) {
   std::vector<Asic::Index> keys(count);
   std::iota(keys.begin(), keys.end(), 0u);
   std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
   return keys;
}

class TableUnderTest {
 public:
   TableUnderTest() {
      chip_->publish(*stateDatabase_, 0);
      table_->doInit(0, stateDatabase_, chip_->chipInfo());
   }

   void write(Asic::Index key, std::uint32_t value) { table_->entryCommit(key, interfaceOf(value)); }
   void remove(Asic::Index key) { table_->entryRemove(key); }
   void answer() { loop_.runUntilIdle(); }

 private:
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_ =
         Nuv::make<ModelChip::Chip>(loop_, ModelChip::Chip::Sizes{{"EgrL3Oif2", rows}});
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> table_ = ZandorL3Tunnel::egrL3Oif2Factory("EgrL3Oif2");
};

class Floor {
 public:
   void write(Asic::Index key, std::uint32_t value) {
      auto entry = interfaceOf(value);
      auto& found = entries_[key];
      if (!(found == entry)) {
         found = entry;
         auto* row = rows_.data() + std::size_t(key) * 3;
         row[0] = 1u | unsigned(entry.isUnderlayL2HdrTagged) << 1 | std::uint32_t(entry.tnlVlanTag) << 16;
         row[1] = std::uint32_t(entry.srcMacAddress.value());
         row[2] = std::uint32_t(entry.srcMacAddress.value() >> 32);
      }
   }
   void remove(Asic::Index key) {
      entries_.erase(key);
      std::fill_n(rows_.data() + std::size_t(key) * 3, 3, 0u);
   }
   void answer() { benchmark::DoNotOptimize(rows_.data()); }

 private:
   absl::flat_hash_map<Asic::Index, EgrL3Oif2::Entry> entries_;
   std::vector<std::uint32_t> rows_ = std::vector<std::uint32_t>(std::size_t(rows) * 3);
};

enum class Work { writeNew, rewriteEqual, rewriteChanged, remove };

template <class Table, Work work>
void
entries(benchmark::State& state) {
   auto const keys = shuffledKeys(std::size_t(state.range(0)));
   Table table;
   std::uint32_t value = 1;
   auto each = [&](auto&& step) {
      // As an agent does: some work, then a turn of the loop.
      std::size_t done = 0;
      for (auto key : keys) {
         step(key);
         if (++done % 64 == 0) {
            table.answer();
         }
      }
      table.answer();
   };
   auto writeAll = [&] { each([&](auto key) { table.write(key, value); }); };
   auto removeAll = [&] { each([&](auto key) { table.remove(key); }); };
   if (work != Work::writeNew) {
      writeAll();
   }
   for (auto _ : state) {
      if (work == Work::rewriteChanged) {
         ++value;
      }
      if (work == Work::remove) {
         removeAll();
      } else {
         writeAll();
      }
      if (work == Work::remove || work == Work::writeNew) {
         state.PauseTiming();
         work == Work::remove ? writeAll() : removeAll();
         state.ResumeTiming();
      }
   }
   state.SetItemsProcessed(state.iterations() * std::int64_t(keys.size()));
}

#define ENTRIES(work)                                                                                        \
   BENCHMARK(entries<TableUnderTest, work>)->RangeMultiplier(10)->Range(1000, 1000000);                      \
   BENCHMARK(entries<Floor, work>)->RangeMultiplier(10)->Range(1000, 1000000)

ENTRIES(Work::writeNew);
ENTRIES(Work::rewriteEqual);
ENTRIES(Work::rewriteChanged);
ENTRIES(Work::remove);

} // namespace
