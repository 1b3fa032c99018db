// Merged next hops, from the call to the chip's answers: written, shared by a second holder, rewritten, and
// released; and the bytes that one takes in all tables.

#include "bench/HeapBytes.h"
#include "chip/model/Chip.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"

#include <benchmark/benchmark.h>

namespace {

using namespace ZandorL3Tunnel;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr Asic::Index rows = Asic::Index(1) << 20;

class NextHops {
 public:
   explicit NextHops(std::size_t count) : count_(count) {
      chip_->publish(*stateDatabase_, 0);
      interfaces_->doInit(0, stateDatabase_, chip_->chipInfo());
      table_->doInit(0, stateDatabase_, chip_->chipInfo());
      egr_.l3Oif2Handle = interfaces_->entryCommit(1, {});
      loop_.runUntilIdle();
   }

   void writeAll(std::vector<Handle>& handles, std::uint8_t value) {
      handles.reserve(count_);
      for (std::size_t number = 0; number < count_; ++number) {
         L3UnderlayNextHopKey key;
         key.macAddr = {
               {2, 0, 0, std::uint8_t(number >> 16), std::uint8_t(number >> 8), std::uint8_t(number)}};
         IngL3NextHop2Table::Entry ing;
         ing.destinationId = std::uint16_t(number);
         egr_.dstMacAddress = key.macAddr;
         egr_.strengthProfileIndex = value;
         handles.push_back(table_->entryRef(key, ing, egr_));
         if (number % 64 == 0) {
            loop_.runUntilIdle();
         }
      }
      loop_.runUntilIdle();
   }

   void release(std::vector<Handle>& handles) {
      for (auto& handle : handles) {
         handle = nullptr;
      }
      loop_.runUntilIdle();
      handles.clear();
   }

 private:
   std::size_t count_;
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_ = Nuv::make<ModelChip::Chip>(
         loop_, ModelChip::Chip::Sizes{{"IngL3NextHop2Table", rows}, {"EgrL3NextHop2", rows}});
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> interfaces_ = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3NextHop2Table> table_ = l3NextHop2TableFactory();
   EgrL3NextHop2::Entry egr_;
};

enum class Work { write, share, rewrite, release };

template <Work work>
void
nextHops(benchmark::State& state) {
   // Index 0 is nobody's.
   auto count = std::size_t(state.range(0)) - 1;
   NextHops table(count);
   std::vector<Handle> handles;
   std::vector<Handle> shared;
   std::uint8_t value = 1;
   double bytes = 0;
   if (work != Work::write) {
      table.writeAll(handles, value);
   }
   for (auto _ : state) {
      switch (work) {
      case Work::write: {
         auto before = heapBytes();
         table.writeAll(handles, value);
         bytes = heapBytes() - before;
         state.PauseTiming();
         table.release(handles);
         state.ResumeTiming();
         break;
      }
      case Work::share:
         table.writeAll(shared, value);
         state.PauseTiming();
         table.release(shared);
         state.ResumeTiming();
         break;
      case Work::rewrite:
         table.writeAll(shared, ++value);
         state.PauseTiming();
         table.release(shared);
         state.ResumeTiming();
         break;
      case Work::release:
         table.release(handles);
         state.PauseTiming();
         table.writeAll(handles, value);
         state.ResumeTiming();
         break;
      }
   }
   state.SetItemsProcessed(state.iterations() * std::int64_t(count));
   if (work == Work::write) {
      state.counters["bytes"] = bytes / double(count);
   }
}

BENCHMARK(nextHops<Work::write>)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(nextHops<Work::share>)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(nextHops<Work::rewrite>)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(nextHops<Work::release>)->RangeMultiplier(10)->Range(1000, 1000000);

} // namespace
