// What it takes to bring a recorded fabric of 3,022 destinations into the chip, and to follow its changes:
// the time is that of the whole, the counters tell its parts.

#include "agent/Agent.h"

#include <benchmark/benchmark.h>

namespace {

using namespace L3TunnelAgent;

double
milliseconds(Agent::Work::Time time) {
   return std::chrono::duration<double, std::milli>(time).count();
}

void
playBench(benchmark::State& state, char const* file) {
   Agent::Work sum;
   std::size_t destinations = 0;
   std::size_t rows = 0;
   for (auto _ : state) {
      state.PauseTiming();
      auto agent = std::make_unique<Agent>();
      Recording recording(std::string(AGENT_TESTDATA) + file);
      state.ResumeTiming();
      play(*agent, recording, std::nullopt);
      state.PauseTiming();
      sum.reading += agent->work().reading;
      sum.deriving += agent->work().deriving;
      sum.programming += agent->work().programming;
      destinations += agent->work().changedDestinations;
      rows += agent->rows().count();
      agent.reset();
      state.ResumeTiming();
   }
   auto const each = [&](double value) { return benchmark::Counter(value / double(state.iterations())); };
   state.counters["reading_ms"] = each(milliseconds(sum.reading));
   state.counters["deriving_ms"] = each(milliseconds(sum.deriving));
   state.counters["programming_ms"] = each(milliseconds(sum.programming));
   state.counters["destinations"] = each(double(destinations));
   state.counters["rows"] = each(double(rows));
   state.counters["destinations_per_s"] =
         benchmark::Counter(double(destinations), benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(playBench, bigFromItsDump, "/big/00-initial/dump.rnl.gz")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(playBench, bigByItsEvents, "/big/events.rnl.gz")->Unit(benchmark::kMillisecond);

} // namespace
