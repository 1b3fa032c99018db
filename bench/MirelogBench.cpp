// What a message of the ring trace costs, by its arguments.

#include "platform/trace/Mirelog.h"

#include <benchmark/benchmark.h>

namespace {

Trace::Facility const facility("bench");

void
mirelogPlain(benchmark::State& state) {
   for (auto _ : state) {
      MIRELOG(facility, 5, "a message");
   }
}
BENCHMARK(mirelogPlain)->Name("mirelog/no arguments");

void
mirelogTwoIntegers(benchmark::State& state) {
   std::uint32_t row = 7;
   std::uint64_t word = 70;
   for (auto _ : state) {
      benchmark::DoNotOptimize(row);
      benchmark::DoNotOptimize(word);
      MIRELOG(facility, 5, "row {} is {}", row, word);
   }
}
BENCHMARK(mirelogTwoIntegers)->Name("mirelog/two integers");

void
mirelogText(benchmark::State& state) {
   Pelm::String text = "IngL3NextHop2Table";
   for (auto _ : state) {
      benchmark::DoNotOptimize(text);
      MIRELOG(facility, 5, "table {}", text);
   }
}
BENCHMARK(mirelogText)->Name("mirelog/a text");

} // namespace
