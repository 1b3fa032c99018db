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

class AdvertisedRoutesTest : public testing::Test, protected StateBuilder {
 protected:
   static constexpr auto all = "::/0";

   AdvertisedRoutesTest() {
      link(port1, "swp1");
      link(port2, "swp2");
   }

   void told(std::vector<NextHop> hops, std::uint8_t protocol, RoutePlace place = RoutePlace::behind) {
      state.routeIs({main, prefix(all)},
                    {.type = RTN_UNICAST, .metric = 1024, .hops = std::move(hops), .protocol = protocol},
                    place);
   }

   bool del(std::vector<NextHop> hops, std::uint8_t protocol) {
      return state.routeDel(
            {main, prefix(all)},
            {.type = RTN_UNICAST, .metric = 1024, .hops = std::move(hops), .protocol = protocol});
   }

   /// @return the gateways, those of one route in brackets.
   std::string text() const {
      std::string result;
      auto const* const found = state.routes({main, prefix(all)});
      for (auto const& route : found ? *found : RouteTable::Routes()) {
         std::string gateways;
         for (auto const& each : route.hops) {
            gateways += (gateways.empty() ? "" : " ") + each.gateway->text();
         }
         result += "[" + gateways + "]";
      }
      return result;
   }

   NextHop const router1 = hop(port1, "fe80::1");
   NextHop const router2 = hop(port2, "fe80::2");
   NextHop const hand3 = hop(port1, "fe80::3");
   NextHop const hand4 = hop(port2, "fe80::4");
};

TEST_F(AdvertisedRoutesTest, EachOfTheKernelsOwnStaysAndGoesByItself) {
   told({router1}, RTPROT_RA);
   told({router2}, RTPROT_RA);
   EXPECT_EQ(text(), "[fe80::1][fe80::2]");
   told({hand3}, RTPROT_BOOT);
   told({hand4, hand3}, RTPROT_STATIC);
   EXPECT_EQ(text(), "[fe80::1][fe80::2][fe80::3 fe80::4]");
   EXPECT_TRUE(del({router1}, RTPROT_RA));
   EXPECT_EQ(text(), "[fe80::2][fe80::3 fe80::4]");
   told({hand4}, RTPROT_BOOT, RoutePlace::instead);
   EXPECT_EQ(text(), "[fe80::2][fe80::4]");
   EXPECT_TRUE(del({hand4}, RTPROT_BOOT));
   EXPECT_TRUE(del({router2}, RTPROT_RA));
   EXPECT_EQ(text(), "");
}

TEST_F(AdvertisedRoutesTest, ThoseThatAProgramMakesAreShared) {
   told({router1}, RTPROT_RA);
   told({router2, router1}, RTPROT_RA);
   EXPECT_EQ(text(), "[fe80::1 fe80::2]");
   told({hand3, router1, router2}, RTPROT_STATIC);
   EXPECT_EQ(text(), "[fe80::1 fe80::3 fe80::2]");
   EXPECT_TRUE(del({router1}, RTPROT_RA));
   EXPECT_TRUE(del({router2}, RTPROT_RA));
   EXPECT_EQ(text(), "[fe80::3]");
   EXPECT_TRUE(del({hand3}, RTPROT_STATIC));
   EXPECT_EQ(text(), "");
}

TEST_F(AdvertisedRoutesTest, WhoMadeASharedRouteIsToldInMoreThanOneWay) {
   told({hand3, hand4}, RTPROT_STATIC);
   state.takeChanges();
   told({hand4, hand3}, RTPROT_BOOT);
   EXPECT_EQ(state.takeChanges(), Changes{});
}

TEST_F(AdvertisedRoutesTest, Ipv4RoutesOfTwoMakersAreTwo) {
   RouteKey const key{main, prefix("10.9.0.0/24")};
   auto const by = [&](std::uint8_t protocol) {
      return Route{.type = RTN_UNICAST, .hops = {hop(port1, "10.0.0.2")}, .protocol = protocol};
   };
   state.routeIs(key, by(RTPROT_STATIC));
   state.routeIs(key, by(RTPROT_BGP));
   EXPECT_EQ(routes("10.9.0.0/24"), 2U);
   EXPECT_TRUE(state.routeDel(key, by(RTPROT_STATIC)));
   ASSERT_EQ(routes("10.9.0.0/24"), 1U);
   EXPECT_EQ(state.routes(key)->front().protocol, RTPROT_BGP);
}

} // namespace L3TunnelAgent
