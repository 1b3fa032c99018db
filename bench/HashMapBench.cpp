// The hash map against std::unordered_map and absl::flat_hash_map, with the next-hop key and one hash
// function.

#include "platform/nuv/HashMap.h"
#include "types/L3UnderlayNextHopKey.h"

#include <absl/container/flat_hash_map.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <unordered_map>

namespace {

using Key = ZandorL3Tunnel::L3UnderlayNextHopKey;
using Value = std::uint32_t;

struct KeyHash {
   std::size_t operator()(Key const& key) const { return key.hash(Nuv::collectionHashSeed()); }
};

using NuvMap = Nuv::HashMap<Key, Value>;
using StdMap = std::unordered_map<Key, Value, KeyHash>;
using AbslMap = absl::flat_hash_map<Key, Value, KeyHash>;

/// Distinct keys, in random order; those of different seeds share none.
std::vector<Key>
keys(std::size_t count, unsigned seed) {
   std::vector<Key> made(count);
   for (std::size_t number = 0; number < count; ++number) {
      made[number].nhEntryType = Brix::NextHopEntryType::unicast;
      made[number].macAddr = Fendo::EthAddr::fromValue(std::uint64_t(seed) << 32 | number);
      made[number].l2If = {std::uint16_t(number)};
   }
   std::shuffle(made.begin(), made.end(), std::mt19937(seed));
   return made;
}

void
insertInto(NuvMap& map, Key const& key, Value value) {
   map.insert(key, value);
}

template <class Map>
void
insertInto(Map& map, Key const& key, Value value) {
   map.emplace(key, value);
}

bool
finds(NuvMap const& map, Key const& key) {
   return map.find(key) != nullptr;
}

template <class Map>
bool
finds(Map const& map, Key const& key) {
   return map.find(key) != map.end();
}

template <class Map>
Map
filled(std::vector<Key> const& with) {
   Map map;
   for (auto const& key : with) {
      insertInto(map, key, 1);
   }
   return map;
}

template <class Map>
void
find(benchmark::State& state, unsigned seedOfProbes) {
   auto probes = keys(std::size_t(state.range(0)), seedOfProbes);
   auto map = filled<Map>(keys(std::size_t(state.range(0)), 1));
   std::shuffle(probes.begin(), probes.end(), std::mt19937(7));
   for (auto _ : state) {
      for (auto const& key : probes) {
         benchmark::DoNotOptimize(finds(map, key));
      }
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void
findHit(benchmark::State& state) {
   find<Map>(state, 1);
}

template <class Map>
void
findMiss(benchmark::State& state) {
   find<Map>(state, 2);
}

template <class Map>
void
insert(benchmark::State& state) {
   auto all = keys(std::size_t(state.range(0)), 1);
   for (auto _ : state) {
      auto map = filled<Map>(all);
      benchmark::DoNotOptimize(map);
      state.PauseTiming();
      map.clear();
      state.ResumeTiming();
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void
erase(benchmark::State& state) {
   auto all = keys(std::size_t(state.range(0)), 1);
   auto order = all;
   std::shuffle(order.begin(), order.end(), std::mt19937(7));
   for (auto _ : state) {
      state.PauseTiming();
      auto map = filled<Map>(all);
      state.ResumeTiming();
      for (auto const& key : order) {
         map.erase(key);
      }
      benchmark::DoNotOptimize(map);
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void
iterate(benchmark::State& state) {
   auto map = filled<Map>(keys(std::size_t(state.range(0)), 1));
   for (auto _ : state) {
      Value sum = 0;
      for (auto const& [key, value] : map) {
         sum += value;
      }
      benchmark::DoNotOptimize(sum);
   }
   state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Named <operation>/<map>/<size>, as bench/summary.py reads them.
#define MAP_BENCH(operation, name)                                                                           \
   BENCHMARK(operation<NuvMap>)->Name(name "/ours")->Arg(1000)->Arg(100000)->Arg(1000000);                   \
   BENCHMARK(operation<StdMap>)->Name(name "/std")->Arg(1000)->Arg(100000)->Arg(1000000);                    \
   BENCHMARK(operation<AbslMap>)->Name(name "/absl")->Arg(1000)->Arg(100000)->Arg(1000000)

MAP_BENCH(findHit, "find-hit");
MAP_BENCH(findMiss, "find-miss");
MAP_BENCH(insert, "insert");
MAP_BENCH(erase, "erase");
MAP_BENCH(iterate, "iterate");

} // namespace
