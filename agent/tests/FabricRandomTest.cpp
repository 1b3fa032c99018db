#include "agent/RowLog.h"
#include "agent/tests/FabricDriver.h"
#include "platform/nuv/testing/Soak.h"

namespace L3TunnelAgent {
namespace {

/// Random sets for a few destinations on a small chip that refuses rows, against what was asked for: after
/// each row that the chip has written or cleared, every destination reaches the vias of one of its sets since
/// the last time that it was settled, or nothing.
class RandomFabric {
 public:
   enum class Chip { sound, refusing, withInterfacesForAll };

   RandomFabric(std::uint32_t seed, Chip chip)
       : random_(seed)
       , fabric_({.sizes = {{"L3UnderlayEcmpMember1Table", 24},
                            {"IngL3NextHop2Table", 12},
                            {"EgrL3NextHop2", 12},
                            {"EgrL3Oif2", chip == Chip::withInterfacesForAll ? 12 : 5},
                            {"L3EcmpGroup0Table", 6}},
                  .includeUnresolved = chance(2),
                  .dropToCpu = chance(2)})
       , faults_(Nuv::make<ModelChip::Faults>())
       , hasInterfacesForAll_(chip == Chip::withInterfacesForAll) {
      fabric_.chip().faultsIs(faults_);
      if (chip == Chip::refusing) {
         faults_->random(seed, {.refuseWrite = 20, .refuseDelete = 20, .repeat = 20, .delay = 100});
      }
      fabric_.chip().rowObserverIs([this](ModelChip::Table const&, Asic::Index) { checkForwarding(); });
   }

   void round() {
      for (unsigned changes = 1 + random_() % 3; changes > 0; --changes) {
         std::uint32_t const number = random_() % destinations;
         if (chance(5)) {
            fabric_.destinationDel(address(number));
            asked_[number].push_back({});
         } else {
            auto vias = randomVias();
            fabric_.destinationIs(destination(number, vias));
            asked_[number].push_back(vias);
         }
      }
      if (chance(4)) {
         faults_->hold({.table = chance(2) ? "EgrL3NextHop2" : "", .index = {}, .isWrite = {}},
                       1 + random_() % 8);
      }
      fabric_.settle();
      checkSettled();
      if (chance(3)) {
         faults_->releaseAll();
      }
   }

   void end() {
      faults_->stop();
      served_.clear();
      fabric_.clear();
      expectEmpty(fabric_);
   }

 private:
   static constexpr std::uint32_t destinations = 8;

   bool chance(unsigned of) { return random_() % of == 0; }

   std::vector<DerivedVia> randomVias() {
      std::vector<DerivedVia> vias;
      for (unsigned count = random_() % 5; count > 0; --count) {
         if (chance(6)) {
            vias.push_back(otherVia(chance(2) ? ViaKind::cpu : ViaKind::drop));
            continue;
         }
         auto const vlan = chance(2) ? std::optional<std::uint16_t>(100 + random_() % 2) : std::nullopt;
         vias.push_back(unicastVia(random_() % 6, int(1 + random_() % 3), random_() % 3, vlan));
      }
      return vias;
   }

   /// Nobody points at a group that the chip has not confirmed.
   ReachedSet reachedNow(std::uint32_t number) const {
      auto const found = fabric_.destinations().find(address(number));
      if (found == fabric_.destinations().end() || !found->second.group ||
          !found->second.group->isHwIndexValid()) {
         return {};
      }
      auto const rows = ModelChip::followGroup(fabric_.chip(), found->second.group->hwEntryIndex());
      EXPECT_EQ(rows.problem, "");
      return reached(rows);
   }

   /// What a set may come to: vias for which there is no room are the CPU's.
   bool mayReach(std::vector<DerivedVia> const& vias, ReachedSet const& found) const {
      if (found == wanted(fabric_, vias)) {
         return true;
      }
      for (unsigned subset = 1; subset < 1U << vias.size(); ++subset) {
         auto some = vias;
         for (std::size_t i = 0; i < some.size(); ++i) {
            if (subset & 1U << i && some[i].kind == ViaKind::unicast) {
               some[i] = otherVia(ViaKind::cpu);
            }
         }
         if (found == wanted(fabric_, some)) {
            return true;
         }
      }
      return false;
   }

   std::string describe(std::uint32_t number, ReachedSet const& found) const {
      std::string out = "destination " + std::to_string(number) + " reaches " + testing::PrintToString(found);
      auto const at = fabric_.destinations().find(address(number));
      if (at != fabric_.destinations().end()) {
         auto const& is = at->second;
         out += "\nstate " + std::string(text(is.state())) + ": " + is.reason + ", group " +
                Nuv::text(is.group->hwEntryIndex()) + " " + Nuv::text(is.group->entryState()) +
                (is.current ? ", has a current set" : "") + (is.wanted ? ", wants another" : "");
      }
      auto const asked = asked_.find(number);
      if (asked != asked_.end()) {
         for (auto const& vias : asked->second) {
            out += "\nasked for " + testing::PrintToString(wanted(fabric_, vias));
         }
      }
      return out;
   }

   void checkForwarding() const {
      for (std::uint32_t number = 0; number < destinations; ++number) {
         auto const found = reachedNow(number);
         auto const asked = asked_.find(number);
         // Only a destination that was never served, or that is to go, may reach nothing.
         bool isOne = found.empty() && !served_.contains(number);
         if (asked != asked_.end()) {
            for (auto const& vias : asked->second) {
               isOne |= vias.empty() ? found.empty() : mayReach(vias, found);
            }
         }
         ASSERT_TRUE(isOne) << describe(number, found);
      }
   }

   /// A set fails for want of room only where there is none: on a chip of its own with what the others have,
   /// it fails too. Runs of members may lie better there.
   void checkFailure(ProgrammedDestination const& failed) const {
      ASSERT_FALSE(failed.reason.empty()) << text(failed.state());
      auto const& members = *fabric_.programmer().l3EcmpMemberTable()->indexAllocator();
      if (failed.reason.starts_with("no run of")) {
         ASSERT_LT(members.largestFreeRun(), failed.wanted->members()) << failed.reason;
      } else if (hasInterfacesForAll_ && !owesAnswers()) {
         checkThereIsNoRoom(failed);
      }
   }

   /// What was let go is not free before the chip says so.
   bool owesAnswers() const {
      auto const& tables = fabric_.chip().tables();
      return std::any_of(tables.begin(), tables.end(),
                         [](auto const& table) { return table->unanswered() > 0; });
   }

   static std::vector<DerivedVia> derived(ViaSet const& set) {
      std::vector<DerivedVia> vias;
      for (auto const& each : set.vias()) {
         vias.push_back(each.via);
      }
      return vias;
   }

   /// On a chip of its own with what all have, the set fails too. Runs of members may lie better there, and
   /// with too few interfaces it depends on who came first.
   void checkThereIsNoRoom(ProgrammedDestination const& failed) const {
      Fabric fresh(fabric_.settings());
      for (auto const& [address, each] : fabric_.destinations()) {
         if (each.current) {
            fresh.destinationIs({.address = address, .vias = derived(*each.current), .reason = {}});
         }
      }
      fresh.settle();
      fresh.destinationIs({.address = failed.address, .vias = derived(*failed.wanted), .reason = {}});
      fresh.settle();
      auto const& again = fresh.destinations().at(failed.address);
      ASSERT_GE(again.state(), DestinationState::failedNeededEntry) << failed.reason;
      fresh.clear();
   }

   void checkSettled() {
      checkForwarding();
      for (auto& [number, sets] : asked_) {
         auto const found = fabric_.destinations().find(address(number));
         bool const isKnown = found != fabric_.destinations().end();
         if (!isKnown || found->second.state() == DestinationState::noRoute) {
            sets = {sets.back()};
            served_.erase(number);
            ASSERT_TRUE(sets.back().empty()) << "destination " << number;
            ASSERT_TRUE(reachedNow(number).empty());
         } else if (found->second.state() == DestinationState::success) {
            sets = {sets.back()};
            served_.insert(number);
            ASSERT_TRUE(mayReach(sets.back(), reachedNow(number)));
            ASSERT_TRUE(sets.back().empty() || found->second.reason.empty());
         } else if (found->second.state() >= DestinationState::failedNeededEntry) {
            checkFailure(found->second);
         }
      }
   }

   std::mt19937 random_;
   Fabric fabric_;
   Nuv::Ptr<ModelChip::Faults> faults_;
   bool hasInterfacesForAll_;
   std::map<std::uint32_t, std::vector<std::vector<DerivedVia>>> asked_; // the one that is served first
   std::set<std::uint32_t> served_;
};

// Sanitizers make a round thirty times as long.
#ifdef L3TUNNEL_LONG_TESTS
constexpr int rounds = 10'000;
#else
constexpr int rounds = 1'000;
#endif

void
runRandom(std::uint32_t seed, int steps, RandomFabric::Chip chip) {
   RandomFabric run(seed, chip);
   for (int step = 0; step < steps && !testing::Test::HasFatalFailure(); ++step) {
      SCOPED_TRACE(step);
      run.round();
   }
   run.end();
}

} // namespace

TEST(FabricRandomTest, EveryDestinationReachesItsOldOrItsNewSetAfterEveryRow) {
   Nuv::soak(rounds,
             [](std::uint32_t seed, int steps) { runRandom(seed, steps, RandomFabric::Chip::sound); });
}

TEST(FabricRandomTest, EveryDestinationReachesItsOldOrItsNewSetOfAChipThatRefusesRows) {
   Nuv::soak(rounds,
             [](std::uint32_t seed, int steps) { runRandom(seed, steps, RandomFabric::Chip::refusing); });
}

TEST(FabricRandomTest, SetsFailForWantOfRoomOnlyWhereThereIsNone) {
   Nuv::soak(rounds, [](std::uint32_t seed, int steps) {
      runRandom(seed, steps, RandomFabric::Chip::withInterfacesForAll);
   });
}

} // namespace L3TunnelAgent
