// Index allocators under churn at 10 %, 50 % and 95 % use of 2^20 indices: beside a sorted list of free
// intervals and a scan of a plain bitmap, and with keys. All place a run at the lowest index where it fits,
// so the same requests bring them all to the same state, which the fastest of them reaches for all.

#include "platform/asic/AnySizedBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/nuv/Record.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <bit>
#include <map>
#include <random>
#include <set>
#include <time.h>
#include <vector>

namespace {

using Asic::Index;

constexpr Index indices = 1 << 20;
constexpr std::uint64_t warmUp = 10'000'000;

/// A run that is held, and the number of its key.
struct Run {
   Index base;
   Index length;
   std::uint32_t key;
};

/// The structure beneath the allocator of runs.
class Runs {
 public:
   Index take(Index length, std::uint32_t) {
      auto base = map_.firstFit(length);
      if (!base) {
         return Asic::invalidIndex;
      }
      map_.take(*base, length);
      return *base;
   }
   void give(Run const& run) { map_.give(run.base, run.length); }
   void held(Run const& run) { map_.take(run.base, run.length); }
   Asic::RunMap const& map() const { return map_; }

 private:
   Asic::RunMap map_{indices};
};

/// The structure beneath the allocator of single indices.
class Bits {
 public:
   Index take(Index, std::uint32_t) {
      auto index = map_.lowestFree();
      if (!index) {
         return Asic::invalidIndex;
      }
      map_.take(*index);
      return *index;
   }
   void give(Run const& run) { map_.give(run.base); }
   void held(Run const& run) { map_.take(run.base); }

 private:
   Asic::IndexBitmap map_{indices};
};

/// The free intervals, sorted.
class FreeList {
 public:
   Index take(Index length, std::uint32_t) {
      for (auto at = free_.begin(); at != free_.end(); ++at) {
         if (at->second - at->first >= length) {
            auto [first, end] = *at;
            auto next = free_.erase(at);
            if (end - first > length) {
               free_.emplace_hint(next, first + length, end);
            }
            return first;
         }
      }
      return Asic::invalidIndex;
   }
   void give(Run const& run) {
      auto [first, end] = std::pair(run.base, run.base + run.length);
      auto next = free_.lower_bound({first, 0});
      if (next != free_.end() && next->first == end) {
         end = next->second;
         next = free_.erase(next);
      }
      if (next != free_.begin() && std::prev(next)->second == first) {
         first = std::prev(next)->first;
         next = free_.erase(std::prev(next));
      }
      free_.emplace_hint(next, first, end);
   }
   void held(Run const& run) {
      auto [first, end] = *std::prev(free_.upper_bound({run.base, Asic::invalidIndex}));
      free_.erase({first, end});
      if (first < run.base) {
         free_.emplace(first, run.base);
      }
      if (run.base + run.length < end) {
         free_.emplace(run.base + run.length, end);
      }
   }

 private:
   std::set<std::pair<Index, Index>> free_{{0, indices}};
};

/// One bit for each index, looked through from the beginning.
class Scan {
 public:
   Index take(Index length, std::uint32_t) {
      Index open = 0;
      for (Index at = 0; at < indices;) {
         std::uint64_t word = words_[at / 64] >> (at % 64);
         if (word == 0) {
            open = 0;
            at += 64 - at % 64;
         } else if (word & 1) {
            auto run = Index(std::countr_one(word));
            open += run;
            at += run;
            if (open >= length) {
               fill(at - open, length, false);
               return at - open;
            }
         } else {
            open = 0;
            at += Index(std::countr_zero(word));
         }
      }
      return Asic::invalidIndex;
   }
   void give(Run const& run) { fill(run.base, run.length, true); }
   void held(Run const& run) { fill(run.base, run.length, false); }

 private:
   void fill(Index base, Index length, bool isFree) {
      for (Index at = base; at < base + length;) {
         Index bits = std::min(base + length - at, 64 - at % 64);
         std::uint64_t mask = (~std::uint64_t(0) >> (64 - bits)) << (at % 64);
         words_[at / 64] = isFree ? words_[at / 64] | mask : words_[at / 64] & ~mask;
         at += bits;
      }
   }

   std::vector<std::uint64_t> words_ = std::vector<std::uint64_t>(indices / 64, ~std::uint64_t(0));
};

/// What the rest of the loop costs.
class Nothing {
 public:
   Index take(Index, std::uint32_t) { return 0; }
   void give(Run const& run) { benchmark::DoNotOptimize(run.base); }
   void held(Run const&) {}
};

struct Key : Nuv::Record<Key> {
   std::uint32_t number{};
   std::uint32_t length{};

   std::uint32_t size() const { return length; }

   static constexpr auto fieldList() {
      return Nuv::fieldList("Bench::Key", Nuv::field("number", &Key::number),
                            Nuv::field("length", &Key::length));
   }
};

Key
keyOf(std::uint32_t number, Index length) {
   Key key;
   key.number = number;
   key.length = length;
   return key;
}

/// The allocators themselves, each run with a key of its own.
template <class A>
class WithKeys {
   static constexpr bool isRuns = std::derived_from<A, Asic::AnySizedBlockAllocator>;

 public:
   WithKeys() { allocator_->numEntriesIs(indices); }

   Index take(Index length, std::uint32_t number) {
      Key key = keyOf(number, length);
      if constexpr (isRuns) {
         return allocator_->newIndexForBlock(Nuv::nuvType<Key>(), &key);
      } else {
         return allocator_->newIndexForKey(Nuv::nuvType<Key>(), &key);
      }
   }
   void give(Run const& run) {
      Key key = keyOf(run.key, run.length);
      allocator_->releaseIndexForKey(Nuv::nuvType<Key>(), &key);
   }
   /// In order, with the gaps filled up meanwhile, each comes where it has to be.
   void heldAre(std::vector<Run> runs) {
      std::sort(runs.begin(), runs.end(), [](Run const& a, Run const& b) { return a.base < b.base; });
      std::vector<Run> gaps;
      auto filler = ~std::uint32_t(0);
      Index end = 0;
      for (auto const& run : runs) {
         for (; end < run.base; end += gaps.back().length) {
            gaps.push_back({end, isRuns ? run.base - end : 1, filler});
            take(gaps.back().length, filler--);
         }
         take(run.length, run.key);
         end += run.length;
      }
      for (auto const& gap : gaps) {
         give(gap);
      }
   }

 private:
   Nuv::Ptr<A> allocator_ = Nuv::make<A>("Bench");
};

using KeyedSingles = WithKeys<Asic::FirstFreeIndexAllocator>;
using KeyedRuns = WithKeys<Asic::AnySizedBlockAllocator>;

/// Pairs of giving a run back and taking one, at a constant share of the indices in use. Runs are given back
/// at random. The lengths of those given back last are taken again in random order, so the lengths stay
/// spread evenly; a length that nowhere fits waits, and the one just given back is taken instead, which does
/// fit.
class Churn {
 public:
   static constexpr std::size_t mostOwed = 64;

   template <class Structure>
   Churn(Structure& structure, Index longest, Index percent) {
      auto most = Index(indices / 100.0 * percent);
      for (Index used = 0; used + longest <= most; used += held_.back().length) {
         takes(structure, longest == 1 ? 1 : 1 + Index(next() % longest));
      }
   }

   template <class Structure>
   void step(Structure& structure) {
      Run& gone = held_[chosen()];
      Index last = gone.length;
      structure.give(gone);
      gone = held_.back();
      held_.pop_back();
      if (owed_.size() < mostOwed) {
         owed_.push_back(last);
         return;
      }
      Index& length = owed_[std::size_t(next() % mostOwed)];
      if (takes(structure, length)) {
         length = last;
      } else {
         ++refused_;
         takes(structure, last);
      }
   }

   std::vector<Run> const& held() const { return held_; }
   std::uint64_t refused() const { return refused_; }

 private:
   std::uint64_t next() {
      state_ ^= state_ << 13;
      state_ ^= state_ >> 7;
      state_ ^= state_ << 17;
      return state_ >> 11;
   }

   /// Which run is given back next. It is known some pairs earlier, so that to fetch it costs nothing.
   std::size_t chosen() {
      auto random = std::exchange(choices_[at_++ % choices_.size()], next());
      __builtin_prefetch(&held_[std::size_t(choices_[(at_ - 1) % choices_.size()] % held_.size())]);
      return std::size_t(random % held_.size());
   }

   template <class Structure>
   bool takes(Structure& structure, Index length) {
      Index base = structure.take(length, keys_);
      if (base != Asic::invalidIndex) {
         held_.push_back({base, length, keys_++});
      }
      return base != Asic::invalidIndex;
   }

   std::uint64_t refused_ = 0;
   std::uint32_t keys_ = 0;
   std::uint64_t state_ = 88172645463325252u;
   std::vector<Run> held_;
   std::vector<Index> owed_;
   std::array<std::uint64_t, 16> choices_{};
   std::size_t at_ = 0;
};

struct WarmedUp {
   Churn churn;
   double refused;
   double whole;
};

/// The state after 10^7 pairs, for any structure; made once.
WarmedUp const&
warmedUp(Index longest, Index percent) {
   static std::map<std::pair<Index, Index>, WarmedUp> made;
   auto found = made.find({longest, percent});
   if (found == made.end()) {
      Runs runs;
      Churn churn(runs, longest, percent);
      for (std::uint64_t step = 0; step < warmUp; ++step) {
         churn.step(runs);
      }
      double refused = double(churn.refused()) / double(warmUp);
      double whole = double(runs.map().largestFreeRun()) / double(runs.map().free());
      found = made.emplace(std::pair(longest, percent), WarmedUp{churn, refused, whole}).first;
   }
   return found->second;
}

/// Of this thread: the machine may have other things to do.
double
cpuNanoseconds() {
   timespec now{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
   return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

/// What one pair costs in the loop alone, by the greatest length and the share in use.
std::map<std::pair<Index, Index>, double> loopCost;

/// Names, for each case: `ns`, what one pair costs beyond the loop itself, which `Nothing` measures first;
/// `over10`, how much more that is than at 10 %; `whole`, the largest free run's share of what is free, and
/// `refused`, the share of requests that fitted nowhere, both after 10^7 pairs.
template <class Structure>
void
churn(benchmark::State& state) {
   auto longest = Index(state.range(0));
   auto percent = Index(state.range(1));
   auto const& warm = warmedUp(longest, percent);
   Churn churn = warm.churn;
   Structure structure;
   if constexpr (requires { structure.heldAre(churn.held()); }) {
      structure.heldAre(churn.held());
   } else {
      for (auto const& run : churn.held()) {
         structure.held(run);
      }
   }
   double begin = cpuNanoseconds();
   for (auto _ : state) {
      churn.step(structure);
   }
   double ns = (cpuNanoseconds() - begin) / double(state.iterations());
   if constexpr (std::same_as<Structure, Nothing>) {
      loopCost[{longest, percent}] = ns;
   } else {
      ns -= loopCost[{longest, percent}];
      static std::map<Index, double> atTen;
      if (percent == 10) {
         atTen[longest] = ns;
      }
      state.counters["ns"] = ns;
      state.counters["over10"] = ns / atTen[longest];
   }
   state.counters["whole"] = warm.whole;
   state.counters["refused"] = warm.refused;
}

void
singles(benchmark::internal::Benchmark* bench) {
   bench->ArgNames({"longest", "percent"})->Args({1, 10})->Args({1, 50})->Args({1, 95});
}

void
runs(benchmark::internal::Benchmark* bench) {
   bench->ArgNames({"longest", "percent"})->Args({128, 10})->Args({128, 50})->Args({128, 95});
}

BENCHMARK(churn<Nothing>)->Apply(singles)->Apply(runs);
BENCHMARK(churn<Bits>)->Apply(singles);
BENCHMARK(churn<Runs>)->Apply(singles)->Apply(runs);
BENCHMARK(churn<KeyedSingles>)->Apply(singles);
BENCHMARK(churn<KeyedRuns>)->Apply(runs);
BENCHMARK(churn<FreeList>)->Apply(singles)->Apply(runs);
BENCHMARK(churn<Scan>)->Apply(singles)->Apply(runs);

} // namespace
