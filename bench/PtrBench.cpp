// What a counted pointer's copy costs, beside an increment and a decrement of memory.

#include "platform/nuv/Ptr.h"

#include <benchmark/benchmark.h>
#include <memory>

namespace {

class Thing final : public Nuv::Object {};

void
copyPtr(benchmark::State& state) {
   auto thing = Nuv::make<Thing>();
   for (auto _ : state) {
      Nuv::Ptr<Thing> copy(thing);
      benchmark::DoNotOptimize(copy);
   }
}
BENCHMARK(copyPtr)->Name("pointer/copy");

void
incrementAndDecrement(benchmark::State& state) {
   auto count = std::make_unique<std::uint32_t>(1);
   benchmark::DoNotOptimize(count.get());
   for (auto _ : state) {
      ++*count;
      benchmark::ClobberMemory();
      --*count;
      benchmark::ClobberMemory();
   }
}
BENCHMARK(incrementAndDecrement)->Name("pointer/increment");

} // namespace
