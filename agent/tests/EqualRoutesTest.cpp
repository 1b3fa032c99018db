#include "agent/tests/StateBuilder.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

namespace {

constexpr int port1 = 1;
constexpr int port2 = 2;
constexpr std::uint32_t object = 61;
constexpr std::uint32_t otherObject = 62;

struct Prefixes {
   char const* all;
   char const* gateway;
   char const* other;
};

/// Routes of one prefix and metric, of which the kernel tells one at a time.
class EqualRoutesTest : public testing::TestWithParam<Prefixes>, protected StateBuilder {
 protected:
   EqualRoutesTest() {
      link(port1, "swp1");
      link(port2, "swp2");
      state.nextHopIs(otherObject, {.hop = hop(port1, GetParam().other)});
      state.nextHopIs(object, {.hop = hop(port2, GetParam().gateway)});
      state.takeChanges();
   }

   RouteKey key() const { return {main, prefix(GetParam().all)}; }

   static Route byGateway(std::string const& gateway) {
      return {.type = RTN_UNICAST, .metric = 20, .hops = {hop(port1, gateway)}};
   }

   static Route byObject(std::uint32_t id = object) {
      return {.type = RTN_UNICAST, .metric = 20, .nextHopId = id};
   }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Families, EqualRoutesTest,
                         testing::Values(Prefixes{"10.9.0.0/24", "10.0.0.2", "10.0.0.3"},
                                         Prefixes{"2001:db8:9::/64", "fe80::2", "fe80::3"}),
                         [](auto const& of) { return of.index == 0 ? "IPv4" : "IPv6"; });

TEST_P(EqualRoutesTest, RouteThatIsToldAnewAfterItsObjectWasReplacedStaysWhereItIs) {
   state.routeIs(key(), byObject(otherObject), RoutePlace::behind);
   state.routeIs(key(), byObject(), RoutePlace::behind);
   auto const before = *state.routes(key());
   auto const doubts = state.doubts();
   state.takeChanges();
   state.routeIs(key(), byObject(), RoutePlace::instead);
   EXPECT_EQ(*state.routes(key()), before);
   EXPECT_EQ(state.takeChanges(), Changes{});
   EXPECT_GT(state.doubts(), doubts) << "a route that is replaced by one that is there reads the same";
}

TEST_P(EqualRoutesTest, FirstRouteThatIsToldAnewLeavesNoDoubt) {
   state.routeIs(key(), byObject(), RoutePlace::behind);
   state.routeIs(key(), byGateway(GetParam().other), RoutePlace::behind);
   auto const before = *state.routes(key());
   auto const doubts = state.doubts();
   state.routeIs(key(), byObject(), RoutePlace::instead);
   EXPECT_EQ(*state.routes(key()), before);
   EXPECT_EQ(state.doubts(), doubts);
}

TEST_P(EqualRoutesTest, RouteThatIsNotThereReplacesTheFirst) {
   state.routeIs(key(), byGateway(GetParam().other), RoutePlace::behind);
   state.routeIs(key(), byGateway(GetParam().gateway), RoutePlace::instead);
   ASSERT_EQ(state.routes(key())->size(), 1U);
   EXPECT_TRUE(state.routes(key())->front().isSame(byGateway(GetParam().gateway)));
}

} // namespace L3TunnelAgent
