// What a counted pointer's copy costs, beside an increment and a decrement of memory.

#include "platform/nuv/Ptr.h"

#include <benchmark/benchmark.h>

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
BENCHMARK(copyPtr);

void
incrementAndDecrement(benchmark::State& state) {
   std::uint32_t count = 1;
   for (auto _ : state) {
      benchmark::DoNotOptimize(++count);
      benchmark::DoNotOptimize(--count);
   }
}
BENCHMARK(incrementAndDecrement);

} // namespace
