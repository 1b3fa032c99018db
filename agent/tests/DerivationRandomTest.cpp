#include "agent/Derivation.h"
#include "agent/tests/RandomMachine.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

/// @return where two derivations differ.
std::vector<IpAddress>
differing(std::map<IpAddress, Destination> const& before, std::map<IpAddress, Destination> const& after) {
   std::set<IpAddress> result;
   auto const compare = [&](auto const& one, auto const& other) {
      for (auto const& [address, destination] : one) {
         auto const found = other.find(address);
         if (found == other.end() || !(found->second == destination)) {
            result.insert(address);
         }
      }
   };
   compare(before, after);
   compare(after, before);
   return {result.begin(), result.end()};
}

} // namespace

TEST(DerivationRandomTest, UpdateLeadsToWhatIsDerivedFromScratchAndNamesWhatDiffers) {
   Nuv::soak(3000, [](std::uint32_t seed, int rounds) {
      RandomMachine machine(seed);
      Derivation derivation(machine.state);
      std::map<IpAddress, Destination> before;
      std::size_t vias = 0;
      std::size_t bridged = 0;
      for (int round = 0; round < rounds; ++round) {
         for (std::uint32_t count = 1 + machine.below(4); count > 0; --count) {
            machine.change();
         }
         auto const changed = derivation.update(machine.state.takeChanges());
         auto after = fromScratch(machine.state);
         ASSERT_EQ(derivation.destinations(), after) << "round " << round;
         ASSERT_EQ(changed, differing(before, after)) << "round " << round;
         for (auto const& [address, destination] : after) {
            vias += destination.vias.size();
            for (auto const& via : destination.vias) {
               bridged += via.kind == ViaKind::unicast && via.port && via.port != via.device && via.port != 5
                                ? 1
                                : 0;
            }
         }
         before = std::move(after);
      }
      if (rounds >= 1000) { // a short run may not come that far
         EXPECT_GT(vias, 0U) << "nothing was there to derive";
         EXPECT_GT(bridged, 0U) << "nothing was behind a bridge";
      }
      Derivation const late(machine.state);
      EXPECT_EQ(late.destinations(), before);
   });
}

} // namespace L3TunnelAgent
