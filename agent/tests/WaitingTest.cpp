#include "agent/Waiting.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {
namespace {

using Kind = Need::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

class WaitingTest : public testing::Test {
 protected:
   static IpAddress address(std::uint32_t number) { return IpAddress::fromV4(number); }

   /// The last numbers of all that wait after a place, in their order.
   std::vector<std::uint32_t> all(Waiting::Place place = {}) const {
      std::vector<std::uint32_t> found;
      while (auto const next = waiting.next(place)) {
         found.push_back(next->address->v4());
         place = *next;
      }
      return found;
   }

   Waiting waiting;
};

TEST_F(WaitingTest, GoesThroughTheNeedsInTheirOrderAndRunsByTheirLength) {
   waiting.needIs(address(1), {.kind = Kind::nextHop, .content = 7});
   waiting.needIs(address(2), {.kind = Kind::memberRun, .length = 20, .content = 1});
   waiting.needIs(address(3), {.kind = Kind::memberRun, .length = 3, .content = 9});
   waiting.needIs(address(4), {.kind = Kind::group});
   waiting.needIs(address(5), {.kind = Kind::memberRun, .length = 3, .content = 9});
   waiting.needIs(address(6), {.kind = Kind::attempt});
   EXPECT_THAT(all(), ElementsAre(6, 4, 3, 5, 2, 1));
   EXPECT_THAT(all(Waiting::Place::after({.kind = Kind::memberRun, .length = 3, .content = 9})),
               ElementsAre(2, 1));
   EXPECT_THAT(all(Waiting::Place::after(Kind::memberRun)), ElementsAre(1));
}

TEST_F(WaitingTest, EachHasItsLastNeedAlone) {
   waiting.needIs(address(1), {.kind = Kind::group});
   waiting.needIs(address(1), {.kind = Kind::interface});
   EXPECT_THAT(all(), ElementsAre(1));
   EXPECT_EQ(*waiting.need(address(1)), (Need{.kind = Kind::interface}));
   waiting.needDel(address(1));
   waiting.needDel(address(2));
   EXPECT_TRUE(waiting.empty());
   EXPECT_EQ(waiting.need(address(1)), nullptr);
   EXPECT_THAT(all(), IsEmpty());
}

TEST_F(WaitingTest, PlaceStaysGoodWhateverComesAndGoes) {
   for (std::uint32_t number = 1; number <= 4; ++number) {
      waiting.needIs(address(number), {.kind = Kind::group});
   }
   Waiting::Place const second{.need = {.kind = Kind::group}, .address = address(2)};
   waiting.needDel(address(2));
   EXPECT_THAT(all(second), ElementsAre(3, 4));
   waiting.needIs(address(3), {.kind = Kind::attempt});
   EXPECT_THAT(all(second), ElementsAre(4));
   waiting.needDel(address(1));
   waiting.needDel(address(4));
   EXPECT_THAT(all(second), IsEmpty());
}

TEST_F(WaitingTest, MetNeedIsATryForAllThatHadIt) {
   Need const run{.kind = Kind::memberRun, .length = 2, .content = 5};
   waiting.needIs(address(3), run);
   waiting.needIs(address(4), run);
   waiting.needIs(address(2), {.kind = Kind::group});
   EXPECT_FALSE(waiting.isMet({.kind = Kind::memberRun, .length = 2, .content = 6}));
   EXPECT_TRUE(waiting.isMet(run));
   EXPECT_FALSE(waiting.isMet(run));
   EXPECT_THAT(all(), ElementsAre(3, 4, 2));
   EXPECT_EQ(*waiting.need(address(3)), Need{});
   waiting.needDel(address(3));
   EXPECT_EQ(waiting.size(), 2U);
}

} // namespace
} // namespace L3TunnelAgent
