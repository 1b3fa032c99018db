// Blocks of 4 to 128 members: a reference to a known one, a new one with its rows, and its release; beside
// the known one, the floor: hashing and comparing the same members. And the bytes that one member takes.

#include "bench/HeapBytes.h"
#include "chip/model/Chip.h"
#include "tables/IngL3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <random>

namespace {

using namespace ZandorL3Tunnel;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
using Block = L3UnderlayEcmpMember1Table::EntryBlock;

constexpr Asic::Index rows = Asic::Index(1) << 20;
constexpr std::size_t hopCount = 256;
constexpr std::size_t blockCount = 1000;

class Blocks {
 public:
   explicit Blocks(std::size_t size) {
      chip_->publish(*stateDatabase_, 0);
      hopTable_->doInit(0, stateDatabase_, chip_->chipInfo());
      table_->doInit(0, stateDatabase_, chip_->chipInfo());
      for (Asic::Index index = 0; index < hopCount; ++index) {
         hops_.push_back(hopTable_->entryRef(index, {}));
      }
      loop_.runUntilIdle();
      std::mt19937 random(1);
      for (auto& numbers : numbers_) {
         for (std::size_t member = 0; member < size; ++member) {
            numbers.push_back(std::uint32_t(random() % hopCount));
         }
      }
   }

   std::vector<std::uint32_t> const& numbers(std::size_t number) const { return numbers_[number]; }

   Handle ref(std::size_t number) {
      Block block;
      Asic::Index position = 0;
      for (auto hop : numbers_[number]) {
         L3UnderlayEcmpMember1Table::Entry entry;
         entry.underlayEcmpNextHopIndexHandle = hops_[hop];
         block.entryIs(position++, entry);
      }
      return table_->entryBlockRef(block);
   }

   void answer() { loop_.runUntilIdle(); }

 private:
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_ =
         Nuv::make<ModelChip::Chip>(loop_, ModelChip::Chip::Sizes{{"L3UnderlayEcmpMember1Table", rows}});
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<IngL3NextHop2Table> hopTable_ = ingL3NextHop2TableFactory("IngL3NextHop2Table");
   Nuv::Ptr<L3UnderlayEcmpMember1Table> table_ = l3UnderlayEcmpMember1TableFactory();
   std::vector<Handle> hops_;
   std::vector<std::uint32_t> numbers_[blockCount];
};

void
known(benchmark::State& state) {
   Blocks blocks(std::size_t(state.range(0)));
   std::vector<Handle> held;
   for (std::size_t number = 0; number < blockCount; ++number) {
      held.push_back(blocks.ref(number));
   }
   blocks.answer();
   std::size_t number = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(blocks.ref(number));
      number = (number + 1) % blockCount;
   }
}

void
knownFloor(benchmark::State& state) {
   Blocks blocks(std::size_t(state.range(0)));
   absl::flat_hash_map<std::vector<std::uint32_t>, Asic::Index> known;
   for (std::size_t number = 0; number < blockCount; ++number) {
      known.emplace(blocks.numbers(number), Asic::Index(number));
   }
   std::size_t number = 0;
   for (auto _ : state) {
      std::vector<std::uint32_t> members;
      for (auto hop : blocks.numbers(number)) {
         members.push_back(hop);
      }
      benchmark::DoNotOptimize(known.find(members));
      number = (number + 1) % blockCount;
   }
}

template <bool isRelease>
void
newAndGone(benchmark::State& state) {
   Blocks blocks(std::size_t(state.range(0)));
   std::vector<Handle> held(blockCount);
   double bytes = 0;
   auto write = [&] {
      for (std::size_t number = 0; number < blockCount; ++number) {
         held[number] = blocks.ref(number);
      }
      blocks.answer();
   };
   auto release = [&] {
      for (auto& handle : held) {
         handle = nullptr;
      }
      blocks.answer();
   };
   for (auto _ : state) {
      if (isRelease) {
         state.PauseTiming();
         write();
         state.ResumeTiming();
         release();
      } else {
         auto before = heapBytes();
         write();
         bytes = heapBytes() - before;
         state.PauseTiming();
         release();
         state.ResumeTiming();
      }
   }
   state.SetItemsProcessed(state.iterations() * std::int64_t(blockCount));
   if (!isRelease) {
      state.counters["bytesPerMember"] = bytes / double(blockCount) / double(state.range(0));
   }
}

#define SIZES Arg(4)->Arg(16)->Arg(64)->Arg(128)

BENCHMARK(known)->SIZES;
BENCHMARK(knownFloor)->SIZES;
BENCHMARK(newAndGone<false>)->SIZES;
BENCHMARK(newAndGone<true>)->SIZES;

} // namespace
