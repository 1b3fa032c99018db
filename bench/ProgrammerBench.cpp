// Tunnel destinations over the whole library, from the call to the chip's answers: with new sets of vias,
// with known ones, with one via changed, and withdrawn. A destination is a block and the group that points at
// it. Columns: `rows` are the commands to the chip for each destination; `fewest` is the least that any
// scheme could do with, `fewestRuns` the least with a new run of members for each changed set.

#include "chip/model/Chip.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

#include <benchmark/benchmark.h>

namespace {

using namespace ZandorL3Tunnel;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr Asic::Index rows = Asic::Index(1) << 19;
constexpr unsigned interfaceCount = 64;
constexpr unsigned destinationCount = 500;

class Destinations {
 public:
   explicit Destinations(unsigned vias) : vias_(vias) {
      chip_->publish(*stateDatabase_, 0);
      interfaces_->doInit(0, stateDatabase_, chip_->chipInfo());
      groups_->doInit(0, stateDatabase_, chip_->chipInfo());
      local_->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces_);
      auto fcsd = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(0);
      fcsd->logicalModInfoIs({0});
      programmer_ = l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase_, local_);
      programmer_->initTables(chip_->chipInfo());
      for (Asic::Index interface = 1; interface <= interfaceCount; ++interface) {
         interfaces_->entryCommit(interface, {});
      }
      loop_.runUntilIdle();
      blocks_.resize(destinationCount);
   }

   /// Destination `number` over vias of its own, or over those of destination `like`; with `changed`, its
   /// first via is another one.
   void request(unsigned number, unsigned like, unsigned changed = 0) {
      auto set = l3ViaFactory();
      for (unsigned via = 0; via < vias_; ++via) {
         L3ViaEntry entry;
         entry.nhEntryType = Brix::NextHopEntryType::unicast;
         entry.macAddr =
               Fendo::EthAddr::fromValue(std::uint64_t(like) << 16 | via << 8 | (via == 0 ? changed : 0u));
         entry.l3Id = {std::uint16_t(1 + via % interfaceCount)};
         entry.l2If = {std::uint16_t(via)};
         set->viaIs(entry, 1);
      }
      blocks_[number] = programmer_->getEcmpBlockHandle(set, false);
      L3EcmpGroup0Table::Entry group;
      group.ecmpBlockPtrHandle = blocks_[number];
      group.numPaths = std::uint16_t(vias_);
      groups_->entryCommit(adjacency(number), group);
   }

   void requestAll(unsigned like, unsigned changed = 0) {
      for (unsigned number = 0; number < destinationCount; ++number) {
         request(number, like == own ? number : like, changed);
         loop_.runUntilIdle();
      }
   }

   void withdrawAll() {
      for (unsigned number = 0; number < destinationCount; ++number) {
         blocks_[number] = nullptr;
         groups_->entryRemove(adjacency(number));
         loop_.runUntilIdle();
      }
   }

   void settle() { loop_.runUntilIdle(); }

   double commands() const {
      std::uint64_t all = 0;
      for (auto const& table : chip_->tables()) {
         all += table->commandsIssued();
      }
      return double(all);
   }

   static constexpr unsigned own = ~0u;

 private:
   static ZandorL3Common::L3AdjIdKey adjacency(unsigned number) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = number;
      return key;
   }

   unsigned vias_;
   Nuv::ReactionLoop loop_;
   // Groups name their blocks in 16 bits, and each changed set has two runs for a moment.
   Nuv::Ptr<ModelChip::Chip> chip_ = Nuv::make<ModelChip::Chip>(
         loop_, ModelChip::Chip::Sizes{{"IngL3NextHop2Table", rows}, {"EgrL3NextHop2", rows}});
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<Local::EntityManager> local_ = Nuv::make<Local::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> interfaces_ = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3EcmpGroup0Table> groups_ = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer_;
   std::vector<Handle> blocks_;
};

enum class Work { newSets, knownSets, againSame, changeOneVia, withdraw };

template <Work work>
void
destinations(benchmark::State& state) {
   auto const vias = unsigned(state.range(0));
   Destinations all(vias);
   double commands = 0;
   unsigned changed = 0;
   if (work == Work::changeOneVia || work == Work::againSame) {
      all.requestAll(Destinations::own);
   }
   for (auto _ : state) {
      state.PauseTiming();
      if (work == Work::withdraw) {
         all.requestAll(Destinations::own);
      } else if (work == Work::knownSets) {
         // One destination keeps the set known.
         all.request(0, 0);
         all.settle();
      }
      commands -= all.commands();
      state.ResumeTiming();
      switch (work) {
      case Work::newSets:
      case Work::againSame:
         all.requestAll(Destinations::own);
         break;
      case Work::knownSets:
         all.requestAll(0);
         break;
      case Work::changeOneVia:
         changed = 1 - changed;
         all.requestAll(Destinations::own, changed);
         break;
      case Work::withdraw:
         all.withdrawAll();
         break;
      }
      state.PauseTiming();
      commands += all.commands();
      if (work == Work::newSets || work == Work::knownSets) {
         all.withdrawAll();
      }
      state.ResumeTiming();
   }
   auto const count = double(state.iterations()) * destinationCount;
   state.SetItemsProcessed(std::int64_t(count));
   state.counters["rows"] = commands / count;
   // Two rows for each next hop that comes or goes, one for each member, one for the group.
   switch (work) {
   case Work::newSets:
   case Work::withdraw:
      state.counters["fewest"] = 3 * vias + 1;
      break;
   case Work::knownSets:
      state.counters["fewest"] = 1;
      break;
   case Work::againSame:
      state.counters["fewest"] = 0;
      break;
   case Work::changeOneVia:
      state.counters["fewest"] = 2 + 1 + 2;
      state.counters["fewestRuns"] = 2 + vias + 1 + vias + 2;
      break;
   }
}

#define SIZES Arg(4)->Arg(16)->Arg(64)

BENCHMARK(destinations<Work::newSets>)->SIZES;
BENCHMARK(destinations<Work::knownSets>)->SIZES;
BENCHMARK(destinations<Work::againSame>)->SIZES;
BENCHMARK(destinations<Work::changeOneVia>)->SIZES;
BENCHMARK(destinations<Work::withdraw>)->SIZES;

} // namespace
