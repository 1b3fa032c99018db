#include "agent/Derivation.h"
#include "agent/tests/StateBuilder.h"

#include <algorithm>
#include <ctime>
#include <gmock/gmock.h>
#include <memory>

namespace L3TunnelAgent {
namespace {

constexpr int tries = 3;

/// The least time of the processor that work(), which is made anew for each try, takes.
template <typename Made>
double
leastTime(Made const& made) {
   double least = 1e9;
   for (int i = 0; i < tries; ++i) {
      auto work = made();
      auto const start = std::clock();
      work();
      least = std::min(least, double(std::clock() - start));
   }
   return std::max(least, 1.0);
}

std::string
destination(int number) {
   return IpAddress::fromV4(0x0aff0000 + static_cast<std::uint32_t>(number)).text();
}

/// Each rule to a table of its own that has no routes.
double
timeWithRules(int rules) {
   return leastTime([rules] {
      auto builder = std::make_shared<StateBuilder>();
      for (int i = 0; i < rules; ++i) {
         auto const number = static_cast<std::uint32_t>(i);
         builder->rule(1 + number, 1000 + number);
      }
      auto derivation = std::make_shared<Derivation>(builder->state);
      derivation->update(builder->state.takeChanges());
      for (int i = 0; i < 10; ++i) {
         builder->tunnelTo(destination(i));
      }
      return [builder, derivation] { derivation->update(builder->state.takeChanges()); };
   });
}

/// Default routes come in many tables that no rule names.
double
timeOfRoutesElsewhere(int destinations) {
   return leastTime([destinations] {
      auto builder = std::make_shared<StateBuilder>();
      for (int i = 0; i < destinations; ++i) {
         builder->tunnelTo(destination(i));
      }
      auto derivation = std::make_shared<Derivation>(builder->state);
      derivation->update(builder->state.takeChanges());
      for (std::uint32_t table = 1000; table < 3000; ++table) {
         builder->routeOfType(RTN_BLACKHOLE, "0.0.0.0/0", table);
      }
      return [builder, derivation] { derivation->update(builder->state.takeChanges()); };
   });
}

} // namespace

TEST(DerivationCost, GrowsWithTheRulesAndNoFaster) {
   double const few = timeWithRules(2000);
   double const many = timeWithRules(16000);
   EXPECT_LT(many, 24 * few) << "eight times as many rules";
}

TEST(DerivationCost, RoutesOfTablesThatNobodySearchesAreTheSameForAnyNumberOfDestinations) {
   double const few = timeOfRoutesElsewhere(200);
   double const many = timeOfRoutesElsewhere(6400);
   EXPECT_LT(many, 6 * few) << "32 times as many destinations";
}

} // namespace L3TunnelAgent
