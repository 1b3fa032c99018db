// The job by the library: the programmer for vias and sets, the group table for destinations, the model chip
// answering through the reaction loop. Ring trace on, text trace off, as they are from the start.

#include "bench/job/Run.h"
#include "chip/model/Chip.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

namespace {

using namespace Bench;
using namespace ZandorL3Tunnel;
using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

constexpr Asic::UnitId unit = 0;

Nuv::Ptr<L3Via>
prepared(std::vector<Via> const& vias) {
   auto set = l3ViaFactory();
   for (auto const& via : vias) {
      L3ViaEntry entry;
      entry.nhEntryType = Brix::NextHopEntryType::unicast;
      entry.macAddr = Fendo::EthAddr::fromValue(via.mac);
      entry.l3Id.value = via.interface;
      entry.l2If.value = via.port;
      set->viaIs(entry, 1);
   }
   return set;
}

class Library {
 public:
   explicit Library(Job const& job) : job_(job), destinations_(job.sets() + job.changes()) {
      auto members = Asic::Index((job.sets() + Job::destinationsPerTurn) * job.set);
      chip_ = Nuv::make<ModelChip::Chip>(
            loop_, ModelChip::Chip::Sizes{{"IngL3NextHop2Table", Asic::Index(job.hopRows())},
                                          {"EgrL3NextHop2", Asic::Index(job.hopRows())},
                                          {"L3UnderlayEcmpMember1Table", members},
                                          {"L3EcmpGroup0Table", Asic::Index(destinations_.size())}});
      chip_->publish(*stateDatabase_, unit);
      interfaces_->doInit(unit, stateDatabase_, chip_->chipInfo());
      groups_->doInit(unit, stateDatabase_, chip_->chipInfo());
      for (Asic::Index interface = 1; interface <= Job::interfaces; ++interface) {
         interfaces_->entryCommit(interface, {});
      }
      auto local = Nuv::make<Local::EntityManager>();
      local->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces_);
      auto chipState = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
      chipState->logicalModInfoIs({0});
      programmer_ = l3UnderlayEcmpProgrammerFactory(chipState, stateDatabase_, local);
      programmer_->initTables(chip_->chipInfo());
      loop_.runUntilIdle();
      for (std::size_t set = 0; set < job.sets(); ++set) {
         vias_.push_back(prepared(job.setOf(set)));
      }
      changedVias_.resize(job.sets());
      auto order = job.order(2);
      for (std::size_t number = 0; number < job.changes(); ++number) {
         changedVias_[order[number]] = prepared(job.changedSetOf(order[number]));
      }
   }

   void add(std::size_t destination, std::size_t set) { viasAre(destination, vias_[set]); }

   void addChanged(std::size_t destination, std::size_t set) { viasAre(destination, changedVias_[set]); }

   void withdraw(std::size_t destination, std::size_t) {
      destinations_[destination] = nullptr;
      if (job_.hasGroups) {
         groups_->entryRemove(keyOf(destination));
      }
   }

   void settle() { loop_.runUntilIdle(); }

   // As the programmer writes them.
   void holdNextHops() {
      for (auto const& vias : vias_) {
         for (auto const& [via, number] : vias->via()) {
            L3UnderlayNextHopKey key;
            key.nhEntryType = via.nhEntryType;
            key.macAddr = via.macAddr;
            key.l3Id = via.l3Id;
            key.l2If = via.l2If;
            IngL3NextHop2Table::Entry ing;
            ing.destinationId = via.l2If.value;
            ing.destinationType = std::uint8_t(DestinationType::unicast);
            ing.strengthProfileIndex = 5;
            EgrL3NextHop2::Entry egr;
            egr.l3Oif2Handle = interfaces_->entryWeakRef(via.l3Id.value);
            egr.dstMacAddress = via.macAddr;
            egr.strengthProfileIndex = 9;
            programmer_->l3EcmpNextHopTable()->entryWrite(key, ing, egr, Asic::needsExplicitRemove());
         }
         loop_.runUntilIdle();
      }
   }

   std::uint64_t rowsWritten() const {
      std::uint64_t rows = 0;
      for (auto const& table : chip_->tables()) {
         rows += table->commandsIssued();
      }
      return rows;
   }

   /// The chip's own rows are not the library's.
   std::size_t rowBytes() const { return 0; }

   std::uint64_t digest(std::size_t destination) const {
      namespace Group = ModelChip::L3EcmpGroup0Table;
      namespace Member = ModelChip::L3UnderlayEcmpMember1Table;
      auto const& block = destinations_[destination];
      if (!block || !block->isComplete() || !block->isHwIndexValid()) {
         return 0;
      }
      auto base = block->hwEntryIndex();
      if (job_.hasGroups) {
         auto group = groups_->entryHandle(keyOf(destination));
         base =
               group && group->isComplete()
                     ? Asic::Index(Group::ecmpBlock.unpack(rowOf("L3EcmpGroup0Table", group->hwEntryIndex())))
                     : Asic::invalidIndex;
      }
      std::uint64_t sum = 0;
      for (Asic::Index at = base; at < base + job_.set; ++at) {
         auto member = rowOf("L3UnderlayEcmpMember1Table", at);
         auto hop = Asic::Index(Member::valid.unpack(member) ? Member::nextHop.unpack(member) : 0);
         sum += digestOfRows(rowOf("IngL3NextHop2Table", hop), rowOf("EgrL3NextHop2", hop));
      }
      return sum;
   }

   bool isEmpty() const {
      return std::all_of(chip_->tables().begin(), chip_->tables().end(), [](auto const& table) {
         return table->rowsPresent() == 0 || table->shape().name == "EgrL3Oif2";
      });
   }

 private:
   static ZandorL3Common::L3AdjIdKey keyOf(std::size_t destination) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = std::uint32_t(destination);
      return key;
   }

   void viasAre(std::size_t destination, Nuv::Ptr<L3Via> const& vias) {
      auto block = programmer_->getEcmpBlockHandle(vias, false);
      if (job_.hasGroups) {
         L3EcmpGroup0Table::Entry group;
         group.ecmpBlockPtrHandle = block;
         group.numPaths = std::uint16_t(vias->via().size());
         group.lbMode = 1;
         groups_->entryCommit(keyOf(destination), group);
      }
      destinations_[destination] = std::move(block);
   }

   std::span<std::uint32_t const> rowOf(char const* table, Asic::Index index) const {
      return chip_->table(table)->row(index);
   }

   Job job_;
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_;
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> interfaces_ = egrL3Oif2Factory(EgrL3Oif2::typeName());
   Nuv::Ptr<L3EcmpGroup0Table> groups_ = l3EcmpGroup0TableFactory(L3EcmpGroup0Table::typeName());
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer_;
   std::vector<Nuv::Ptr<L3Via>> vias_;
   std::vector<Nuv::Ptr<L3Via>> changedVias_;
   std::vector<Handle> destinations_;
};

} // namespace

int
main(int argc, char** argv) {
   return sideMain<Library>("library", argc, argv);
}
