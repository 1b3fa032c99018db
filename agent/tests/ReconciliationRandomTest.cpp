#include "agent/Adjacency.h"
#include "agent/Derivation.h"
#include "agent/tests/RandomMachine.h"
#include "platform/nuv/testing/Soak.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

/// All routes of a state, by where they are.
std::map<RouteKey, RouteTable::Routes>
routesOf(KernelState const& state) {
   std::map<RouteKey, RouteTable::Routes> result;
   for (auto const family : {IpAddress::Family::v4, IpAddress::Family::v6}) {
      for (std::uint32_t const table : {RandomMachine::main, std::uint32_t{RT_TABLE_LOCAL}, 100U}) {
         if (auto const* const found = state.table(family, table)) {
            found->each([&](Prefix const& prefix, RouteTable::Routes const& routes) {
               result[{table, prefix}] = routes;
            });
         }
      }
   }
   return result;
}

/// What a map must be noted to differ in, where values say all.
template <typename Map>
auto
differingKeys(Map const& one, Map const& other) {
   std::set<typename Map::key_type> keys;
   for (auto const& [key, value] : one) {
      if (!other.contains(key) || !(other.at(key) == value)) {
         keys.insert(key);
      }
   }
   for (auto const& [key, value] : other) {
      if (!one.contains(key)) {
         keys.insert(key);
      }
   }
   return keys;
}

/// What is derived from each neighbour.
std::map<NeighbourKey, std::pair<std::optional<MacAddress>, std::string>>
meaning(KernelState const& state) {
   std::map<NeighbourKey, std::pair<std::optional<MacAddress>, std::string>> result;
   for (auto const& [key, neighbour] : state.neighbours()) {
      result[key] = {neighbour.mac, isUsable(neighbour) ? "usable" : unusableState(neighbour)};
   }
   return result;
}

/// Each link, and whether IPv4 routes over it are left out while it has no carrier.
std::map<int, std::pair<Link, bool>>
settings(KernelState const& state) {
   std::map<int, std::pair<Link, bool>> result;
   for (auto const& [index, link] : state.links()) {
      result[index] = {link, state.ignoresLinkdown(link, IpAddress::Family::v4)};
   }
   return result;
}

void
expectEqual(KernelState const& one, KernelState const& other) {
   EXPECT_EQ(settings(one), settings(other));
   EXPECT_EQ(one.neighbours(), other.neighbours());
   EXPECT_EQ(one.vxlanEntries(), other.vxlanEntries());
   EXPECT_EQ(one.bridgeEntries(), other.bridgeEntries());
   EXPECT_EQ(one.portVlans(), other.portVlans());
   EXPECT_EQ(one.nextHops(), other.nextHops());
   EXPECT_EQ(routesOf(one), routesOf(other));
   EXPECT_EQ(one.rules(IpAddress::Family::v4), other.rules(IpAddress::Family::v4));
   EXPECT_EQ(one.rules(IpAddress::Family::v6), other.rules(IpAddress::Family::v6));
}

} // namespace

TEST(ReconciliationRandomTest, AnyStateBecomesAnyOtherAndNotesTheDifferences) {
   Nuv::soak(60, [](std::uint32_t seed, int rounds) {
      RandomMachine standing(seed);
      Derivation derivation(standing.state);
      for (int round = 0; round < rounds; ++round) {
         // Of one that has little to do with it, or of itself some changes later.
         RandomMachine stranger(seed * 7919 + static_cast<std::uint32_t>(round));
         RandomMachine& other = round % 2 ? stranger : standing;
         KernelState const before = standing.state;
         for (std::uint32_t count = standing.below(round % 2 ? 400 : 8); count > 0; --count) {
            other.change();
         }
         KernelState const fresh = other.state;
         standing.state = before;
         bool const differs = standing.state.becomes(KernelState(fresh));

         expectEqual(standing.state, fresh);
         auto const changes = standing.state.takeChanges();
         EXPECT_EQ(differs, !changes.empty());
         EXPECT_EQ(changes.links, differingKeys(settings(before), settings(fresh)));
         EXPECT_EQ(changes.neighbours, differingKeys(meaning(before), meaning(fresh)));
         EXPECT_EQ(changes.vxlanEntries, differingKeys(before.vxlanEntries(), fresh.vxlanEntries()));
         EXPECT_EQ(changes.bridgeEntries, differingKeys(before.bridgeEntries(), fresh.bridgeEntries()));
         EXPECT_EQ(changes.portVlans, differingKeys(before.portVlans(), fresh.portVlans()));
         // Of next hops, what they came to be counts, whatever their own messages said.
         derivation.update(changes);
         ASSERT_EQ(derivation.destinations(), fromScratch(fresh)) << "round " << round;
         EXPECT_FALSE(standing.state.becomes(KernelState(fresh)));
         if (testing::Test::HasFailure()) {
            FAIL() << "round " << round;
         }
      }
   });
}

TEST(ReconciliationRandomTest, RoutesReadAnewOverACopyWithoutThemAreTheState) {
   Nuv::soak(200, [](std::uint32_t seed, int rounds) {
      RandomMachine machine(seed);
      for (int round = 0; round < rounds; ++round) {
         machine.change();
         auto copy = machine.state.withoutRoutes();
         for (auto const& [id, object] : machine.state.nextHops()) {
            auto told = object;
            auto const [dead, linkdown] = machine.state.hopState(object.hop);
            told.hop.dead = dead;
            told.hop.linkdown = linkdown;
            copy.nextHopIs(id, told);
         }
         for (auto const& [key, routes] : routesOf(machine.state)) {
            for (Route told : routes) {
               for (NextHop& hop : told.hops) {
                  auto const [dead, linkdown] = machine.state.hopState(hop, key.prefix.address.family);
                  hop.dead = dead;
                  hop.linkdown = linkdown;
               }
               copy.routeIs(key, told);
            }
         }
         KernelState standing = machine.state;
         standing.takeChanges();
         bool const differs = standing.becomes(std::move(copy));
         auto const changes = standing.takeChanges();
         // Routes that the kernel would have as one, and routes twice, are told otherwise than they came to
         // be.
         EXPECT_EQ(changes, (Changes{.routes = changes.routes}));
         EXPECT_EQ(differs, !changes.routes.empty());
      }
   });
}

} // namespace L3TunnelAgent
