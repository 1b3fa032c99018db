#pragma once

#include "chip/model/Faults.h"
#include "platform/asic/DontCareHandle.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "programmer/testing/RowWatch.h"
#include "programmer/testing/Script.h"
#include "tables/L3EcmpGroup0Table.h"

namespace ZandorL3Tunnel {

/// A whole system on a small chip, to which the steps of a script happen: an agent's interfaces and groups,
/// the programmer, and a chip that does wrong what it is told to. After each row that the chip applied, the
/// rows are looked at; at rest, what the tables say is compared with them.
class World {
 public:
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
   using State = Asic::SwTableBase::EntryState;

   static constexpr unsigned destinationCount = Wishes::destinations;
   static constexpr Asic::Index interfaceRows = ViaPool::interfaces; ///< the last interface is outside
   static constexpr unsigned interfaceValues = 6;
   static constexpr unsigned tableCount = 5;

   /// Is called with each row that the chip applied, before it is looked at, and may spoil rows.
   using Spoiler = std::function<void(World&, ModelChip::Table const&, Asic::Index)>;

   explicit World(Spoiler spoiler = {}) : spoiler_(std::move(spoiler)) {
      chip_->publish(*stateDatabase_, unit);
      chip_->faultsIs(faults_);
      chip_->rowObserverIs(
            [this](ModelChip::Table const& table, Asic::Index index) { applied(table, index); });
      interfaces_->doInit(unit, stateDatabase_, chip_->chipInfo());
      groups_->doInit(unit, stateDatabase_, chip_->chipInfo());
      local_->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces_);
      auto fcsd = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
      fcsd->logicalModInfoIs({0});
      programmer_ = l3UnderlayEcmpProgrammerFactory(fcsd, stateDatabase_, local_);
      programmer_->initTables(chip_->chipInfo());
   }

   /// What went wrong first; empty when nothing did.
   std::string const& problem() const { return problem_; }

   /// Rows applied so far.
   std::uint64_t rowsApplied() const { return rowsApplied_; }

   void step(Step const& step) {
      switch (step.act) {
      case Step::Act::interface:
      case Step::Act::interfaceGone:
         interfaceStep(step);
         break;
      case Step::Act::destination:
      case Step::Act::reference:
         destinationIs(step);
         break;
      case Step::Act::destinationGone:
      case Step::Act::letGo:
         destinationDel(step);
         break;
      case Step::Act::again:
         destinationAgain(destinations_[step.what % destinationCount], step.what % destinationCount);
         break;
      case Step::Act::initTables:
         programmer_->initTables(chip_->chipInfo());
         break;
      case Step::Act::run:
         for (unsigned turn = 0; turn < step.value && loop_.runOne();) {
            ++turn;
         }
         break;
      case Step::Act::settle:
         settle();
         break;
      default:
         faultStep(step);
         break;
      }
   }

   /// Everything is let go, the chip does what it is told again, and nothing may be left.
   void finish() {
      faults_->stop();
      settle();
      for (unsigned number = 0; number < destinationCount; ++number) {
         destinationDel({Step::Act::destinationGone, std::uint8_t(number), 0, false, 0});
      }
      settle();
      interfaces_->entryRemoveAll();
      settle();
      if (isLossy_ || faults_->counts().refused != 0) {
         writeEveryRow();
      }
      expectNothingLeft();
   }

   /// The rows of the chip, for spoilers.
   ModelChip::Rows& rows(ModelChip::RowLayout const& layout) {
      return memory_->rows(layout, chip_->table(layout.table)->numEntries());
   }

 private:
   static constexpr Asic::UnitId unit = 0;

   struct Destination {
      Handle block;
      Handle group; ///< of one that lives by a handle
      std::uint32_t vias{};
      bool isCpuDrop{};
   };

   static ModelChip::Chip::Sizes sizes() {
      return {{"EgrL3Oif2", interfaceRows}, {"IngL3NextHop2Table", 28},         {"EgrL3NextHop2", 28},
              {"L3EcmpMember0Table", 1},    {"L3UnderlayEcmpMember1Table", 64}, {"L3EcmpGroup0Table", 24}};
   }

   template <class... Parts>
   void fail(Parts const&... parts) {
      if (problem_.empty()) {
         problem_ = Nuv::text(parts...);
      }
   }

   void applied(ModelChip::Table const& table, Asic::Index index) {
      ++rowsApplied_;
      if (spoiler_) {
         spoiler_(*this, table, index);
      }
      if (!problem_.empty() || !isWatched_) {
         return;
      }
      auto found = watch_.applied(table, index);
      if (!found.empty()) {
         fail("after ", table.shape().name, table.hasRow(index) ? " written " : " cleared ", index, ": ",
              found);
      }
   }

   static ZandorL3Common::L3AdjIdKey adjacency(unsigned destination) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = destination;
      return key;
   }

   void interfaceStep(Step const& step) {
      Asic::Index interface = 1 + (step.what + interfaceRows - 1) % interfaceRows;
      if (step.act == Step::Act::interfaceGone) {
         interfaces_->entryRemove(interface);
         return;
      }
      auto value = std::uint8_t(step.value % interfaceValues);
      EgrL3Oif2::Entry entry;
      entry.srcMacAddress = {{2, 1, 0, 0, 0, value}};
      wishes_.interfaceIs(interface, value);
      interfaces_->entryCommit(interface, entry);
   }

   // Vias over an interface that is not in its table are not asked for: an agent does not know of them.
   Nuv::Ptr<L3Via> viaSet(std::uint32_t vias, std::vector<std::uint8_t>& order) const {
      auto set = l3ViaFactory();
      std::array<std::uint8_t, 256> numbers{};
      for (unsigned via = 0; via < ViaPool::count; ++via) {
         bool isThere = !ViaPool::isUnicast(via) || interfaces_->entryHas(ViaPool::interface(via));
         if ((vias >> via & 1) != 0 && isThere) {
            auto entry = ViaPool::entry(via);
            numbers[entry.macAddr.bytes[5]] = std::uint8_t(via);
            set->viaIs(entry, via);
         }
      }
      for (auto const& [via, value] : set->via()) {
         order.push_back(numbers[via.macAddr.bytes[5]]);
      }
      return set;
   }

   void destinationIs(Step const& step) {
      auto number = step.what % destinationCount;
      auto& destination = destinations_[number];
      destination.vias = step.vias;
      destination.isCpuDrop = step.flag;
      hasDropped_ = hasDropped_ || step.flag;
      std::vector<std::uint8_t> order;
      auto set = viaSet(step.vias, order);
      auto paths = order.size();
      auto wish = wishes_.wishIs(number, std::move(order), step.flag);
      destination.block = programmer_->getEcmpBlockHandle(set, step.flag);
      groupIs(destination, number, wish, paths, step.act == Step::Act::reference);
   }

   /// The newest request once more: the same set, as far as its interfaces are still there, and the same
   /// group.
   void destinationAgain(Destination& destination, unsigned number) {
      auto wish = wishes_.destination(number).newest;
      std::vector<std::uint8_t> order;
      auto set = viaSet(destination.vias, order);
      if (wish == 0 || order != wishes_.wish(wish)->vias) {
         return;
      }
      destination.block = programmer_->getEcmpBlockHandle(set, destination.isCpuDrop);
      wishes_.askedAgain(wish, destination.isCpuDrop);
      groupIs(destination, number, wish, order.size(), destination.group != nullptr);
   }

   void groupIs(Destination& destination, unsigned number, std::uint32_t wish, std::size_t paths,
                bool isReference) {
      L3EcmpGroup0Table::Entry entry;
      entry.ecmpBlockPtrHandle = destination.block;
      entry.numPaths = std::uint16_t(paths);
      entry.lbMode = wish;
      if (isReference) {
         destination.group = groups_->entryRef(adjacency(number), entry);
      } else {
         groups_->entryCommit(adjacency(number), entry);
      }
   }

   void destinationDel(Step const& step) {
      auto number = step.what % destinationCount;
      auto& destination = destinations_[number];
      destination.block = nullptr;
      if (step.act == Step::Act::destinationGone) {
         wishes_.gone(number);
         destination.group = nullptr;
         groups_->entryRemove(adjacency(number));
      }
   }

   void faultStep(Step const& step) {
      static constexpr char const* names[] = {"",
                                              "EgrL3Oif2",
                                              "IngL3NextHop2Table",
                                              "EgrL3NextHop2",
                                              "L3UnderlayEcmpMember1Table",
                                              "L3EcmpGroup0Table"};
      ModelChip::Faults::Commands commands;
      commands.table = names[step.what % std::size(names)];
      ModelChip::Faults::Probabilities probabilities;
      probabilities.refuseWrite = probabilities.refuseDelete = probabilities.repeat = step.value;
      probabilities.delay = step.value * 2u;
      probabilities.lose = step.flag ? step.value : 0u;
      switch (step.act) {
      case Step::Act::refuse:
         commands.isWrite = step.flag;
         faults_->refuse(commands, step.value);
         break;
      case Step::Act::hold:
         faults_->hold(commands, step.value);
         break;
      case Step::Act::delay:
         faults_->delay(commands, step.value, 3);
         break;
      case Step::Act::lose:
         isLossy_ = true;
         faults_->lose(commands, step.value);
         break;
      case Step::Act::repeat:
         faults_->repeat(commands, step.value);
         break;
      case Step::Act::draw:
         isLossy_ = isLossy_ || step.flag;
         faults_->random(step.vias, probabilities);
         break;
      case Step::Act::answers:
         faults_->releaseAll();
         break;
      default:
         faults_->stop();
         break;
      }
   }

   void settle() {
      for (unsigned turns = 0; loop_.runOne(); ++turns) {
         if (turns > 1000000) {
            fail("the chip and its tables do not come to rest");
            return;
         }
      }
      if (isWatched_) {
         checkAtRest();
      }
   }

   /// Whether all that the chip was told has been answered, and done.
   bool isCalm() const { return !isLossy_ && faults_->counts().refused == 0 && faults_->answersHere() == 0; }

   void checkAtRest() {
      for (auto const& line : ModelChip::danglingRows(*chip_)) {
         fail("at rest: ", line);
      }
      if (auto found = watch_.atRest(); !found.empty()) {
         fail("at rest: ", found);
      }
      for (unsigned number = 0; number < destinationCount; ++number) {
         checkDestination(number);
      }
      for (Asic::Index interface = 1; interface <= interfaceRows; ++interface) {
         auto handle = interfaces_->entryHandle(interface);
         if (handle && handle->entryState() == State::success &&
             !watch_.carries(interface, wishes_.newestValue(interface))) {
            fail("at rest: interface ", interface, " succeeded without its row");
         }
      }
      if (isCalm()) {
         checkCalm();
      }
   }

   void checkDestination(unsigned number) {
      auto newest = wishes_.destination(number).newest;
      auto inForce = watch_.inForce(number);
      auto group = groups_->entryHandle(adjacency(number));
      if (newest != 0 && group && group->entryState() == State::success && inForce != newest) {
         fail("at rest: the group of destination ", number, " succeeded, and the chip has request ", inForce,
              " instead of ", newest);
      }
      if (newest != 0 && !group) {
         fail("at rest: destination ", number, " has no group");
      }
      bool mayLinger = faults_->counts().refused != 0 || faults_->answersHere() != 0;
      if (newest == 0 && inForce != 0 && !mayLinger) {
         fail("at rest: destination ", number, " is gone, and in the chip still");
      }
   }

   // Nothing is on its way: each entry has come to an end, and who failed has a reason.
   void checkCalm() {
      checkStates("interface", *interfaces_);
      checkStates("block", *programmer_->l3EcmpMemberTable());
      checkStates("next hop", *programmer_->l3EcmpNextHopTable());
      checkStates("ingress half", *programmer_->l3EcmpNextHopTable()->ingL3NextHop2Table());
      checkStates("egress half", *programmer_->l3EcmpNextHopTable()->egrL3NextHop2());
      for (unsigned number = 0; number < destinationCount; ++number) {
         checkReason(number);
      }
      auto const& nextHops = *programmer_->l3EcmpNextHopTable()->indexAllocator();
      if (chip_->table("IngL3NextHop2Table")->rowsPresent() != nextHops.holders()) {
         fail("at rest: there are ", chip_->table("IngL3NextHop2Table")->rowsPresent(), " ingress rows and ",
              nextHops.holders(), " next hops with an index");
      }
      auto const& members = *programmer_->l3EcmpMemberTable()->indexAllocator();
      if (chip_->table("L3UnderlayEcmpMember1Table")->rowsPresent() != members.used()) {
         fail("at rest: there are ", chip_->table("L3UnderlayEcmpMember1Table")->rowsPresent(),
              " member rows, and runs of ", members.used());
      }
      wishes_.settled();
   }

   template <class Table>
   void checkStates(char const* what, Table const& table) {
      table.handles().forEach([&](auto const& handle) {
         if (handle.entryState() == State::unresolved || handle.entryState() == State::inProgress) {
            fail("at rest: ", what, " ", handle.key(), " is ", handle.entryState());
         }
      });
   }

   void checkReason(unsigned number) {
      auto group = groups_->entryHandle(adjacency(number));
      if (wishes_.destination(number).newest == 0 || !group || group->entryState() == State::success) {
         return;
      }
      auto entry = groups_->entry(adjacency(number));
      auto const& block = *entry->ecmpBlockPtrHandle;
      bool hasReason = group->entryState() == State::failed ? groups_->hwIndexFailures() != 0
                                                            : block.isFailed() || block.hasLeft();
      if (!hasReason && !isOvertaken(block)) {
         fail("at rest: the group of destination ", number, " is ", group->entryState(),
              ", and its block is ", block.entryState());
      }
   }

   /// Whether the block is of former tables and waits for a next hop that the present ones wrote otherwise
   /// before the chip had answered: that one's own row is not there.
   bool isOvertaken(Asic::SwTableBase::EntryHandle const& block) const {
      auto const& handle = static_cast<L3UnderlayEcmpMember1Table::EntryHandle const&>(block);
      return hasDropped_ && handle.table() != programmer_->l3EcmpMemberTable().get();
   }

   /// Commands whose answers were lost, and deletes that were refused too often, are made up for by later
   /// ones at the same rows.
   void writeEveryRow() {
      isWatched_ = false;
      spoiler_ = {};
      for (Asic::Index interface = 1; interface < interfaceRows; ++interface) {
         interfaces_->entryCommit(interface, {});
      }
      settle();
      interfaces_->entryRemoveAll();
      auto members = programmer_->l3EcmpMemberTable();
      L3UnderlayEcmpMember1Table::EntryBlock block;
      L3UnderlayEcmpMember1Table::Entry member;
      member.underlayEcmpNextHopIndexHandle = SwTableWorkaround::dontCareHandle(0);
      for (Asic::Index position = 0; position < members->numEntries(); ++position) {
         block.entryIs(position, member);
      }
      for (unsigned number = 0; number < destinationCount; ++number) {
         groups_->entryCommit(adjacency(number), {});
      }
      settle();
      groups_->entryRemoveAll();
      settle();
      auto all = members->entryBlockRef(block);
      settle();
      all = nullptr;
      settle();
      auto nextHops = programmer_->l3EcmpNextHopTable();
      EgrL3NextHop2::Entry egr;
      egr.l3Oif2Handle = SwTableWorkaround::dontCareHandle(0);
      std::vector<Handle> halves;
      for (Asic::Index index = 1; index < nextHops->numEntries(); ++index) {
         halves.push_back(nextHops->ingL3NextHop2Table()->entryRef(index, {}));
         halves.push_back(nextHops->egrL3NextHop2()->entryRef(index, egr));
      }
      settle();
      halves.clear();
      settle();
      interfaces_->entryRemoveAll();
      settle();
   }

   void expectNothingLeft() {
      auto expect = [&](char const* what, std::size_t left) {
         if (left != 0) {
            fail("in the end: ", left, " ", what);
         }
      };
      for (auto const& table : chip_->tables()) {
         expect(table->shape().name.c_str(), table->rowsPresent());
         if (!isLossy_) {
            expect("unanswered commands", table->unanswered());
         }
      }
      auto const& nextHops = *programmer_->l3EcmpNextHopTable();
      expect("interfaces", interfaces_->handles().size());
      expect("groups", groups_->handles().size());
      expect("group indices", groups_->indexAllocator()->used());
      expect("blocks", programmer_->l3EcmpMemberTable()->handles().size());
      expect("runs", programmer_->l3EcmpMemberTable()->indexAllocator()->holders());
      expect("next hops", nextHops.handles().size());
      expect("ingress halves", nextHops.ingL3NextHop2Table()->handles().size());
      expect("egress halves", nextHops.egrL3NextHop2()->handles().size());
      expect("next-hop indices", nextHops.indexAllocator()->holders());
      expect("old tables", nextHops.indexAllocator()->sharers() - 1);
   }

   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Memory> memory_ = Nuv::make<ModelChip::Memory>();
   Nuv::Ptr<ModelChip::Chip> chip_ = Nuv::make<ModelChip::Chip>(loop_, sizes(), memory_);
   Nuv::Ptr<ModelChip::Faults> faults_ = Nuv::make<ModelChip::Faults>();
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_ = Nuv::make<Kallo::EntityManager>();
   Nuv::Ptr<Local::EntityManager> local_ = Nuv::make<Local::EntityManager>();
   Nuv::Ptr<EgrL3Oif2> interfaces_ = egrL3Oif2Factory("EgrL3Oif2");
   Nuv::Ptr<L3EcmpGroup0Table> groups_ = l3EcmpGroup0TableFactory("L3EcmpGroup0Table");
   Nuv::Ptr<L3UnderlayEcmpProgrammer> programmer_;
   Wishes wishes_;
   RowWatch watch_{*chip_, wishes_};
   std::array<Destination, destinationCount> destinations_;
   Spoiler spoiler_;
   std::string problem_;
   std::uint64_t rowsApplied_{};
   bool isLossy_{};
   bool hasDropped_{};
   bool isWatched_{true};
};

} // namespace ZandorL3Tunnel
