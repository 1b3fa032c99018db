// What deriving tunnel destinations takes where somebody has a great many policy rules or tables: it should
// grow as their number does, and not at all with what nobody searches.

#include "agent/Derivation.h"
#include "agent/tests/StateBuilder.h"

#include <benchmark/benchmark.h>

namespace {

using namespace L3TunnelAgent;

void
tunnelsAre(StateBuilder& builder, std::int64_t count) {
   for (std::int64_t i = 0; i < count; ++i) {
      builder.tunnelTo(IpAddress::fromV4(0x0aff0000 + static_cast<std::uint32_t>(i)).text());
   }
}

/// Measures what it takes to derive what `change` changes in a state that is as `before` makes it.
template <class Before, class Change>
void
updateBench(benchmark::State& state, Before const& before, Change const& change) {
   for (auto _ : state) {
      state.PauseTiming();
      {
         StateBuilder builder;
         before(builder);
         Derivation derivation(builder.state);
         derivation.update(builder.state.takeChanges());
         change(builder);
         auto const changes = builder.state.takeChanges();
         state.ResumeTiming();
         derivation.update(changes);
         state.PauseTiming();
      }
      state.ResumeTiming();
   }
   state.SetComplexityN(state.range(0));
}

/// Ten destinations come, with so many rules, each to a table of its own that has no routes.
void
rulesBench(benchmark::State& state) {
   auto const rules = [&](StateBuilder& builder) {
      for (std::uint32_t i = 0; i < state.range(0); ++i) {
         builder.rule(1 + i, 1000 + i);
      }
   };
   updateBench(state, rules, [](StateBuilder& builder) { tunnelsAre(builder, 10); });
}

/// Default routes come in 2,000 tables that no rule names, with so many destinations.
void
tablesElsewhereBench(benchmark::State& state) {
   auto const routes = [](StateBuilder& builder) {
      for (std::uint32_t table = 1000; table < 3000; ++table) {
         builder.routeOfType(RTN_BLACKHOLE, "0.0.0.0/0", table);
      }
   };
   updateBench(
         state, [&](StateBuilder& builder) { tunnelsAre(builder, state.range(0)); }, routes);
}

BENCHMARK(rulesBench)->RangeMultiplier(2)->Range(2000, 16000)->Complexity()->Unit(benchmark::kMillisecond);
BENCHMARK(tablesElsewhereBench)
      ->RangeMultiplier(2)
      ->Range(200, 6400)
      ->Complexity()
      ->Unit(benchmark::kMillisecond);

} // namespace
