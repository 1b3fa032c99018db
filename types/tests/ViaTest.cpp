#include "platform/nuv/testing/Soak.h"
#include "types/L3UnderlayNextHopKey.h"
#include "types/L3Via.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <vector>

namespace ZandorL3Tunnel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Vias and next-hop keys say the same; both are tested alike.
template <class R>
R
recordOf(Brix::NextHopEntryType type, std::uint8_t mac, std::uint16_t interface, std::uint16_t port) {
   R record;
   record.nhEntryType = type;
   record.macAddr = {{2, 0, 0, 0, 0, mac}};
   record.l3Id = {interface};
   record.l2If = {port};
   return record;
}

constexpr auto via = recordOf<L3ViaEntry>;
constexpr auto unicast = Brix::NextHopEntryType::unicast;
constexpr auto drop = Brix::NextHopEntryType::drop;

template <class R>
class ViaRecord : public testing::Test {};

using Records = testing::Types<L3ViaEntry, L3UnderlayNextHopKey>;
TYPED_TEST_SUITE(ViaRecord, Records);

TYPED_TEST(ViaRecord, HasNoPortAndIsForTheCpuAtFirst) {
   TypeParam record;
   EXPECT_EQ(record.nhEntryType, Brix::NextHopEntryType::receive);
   EXPECT_FALSE(record.l2If.isValid());
   EXPECT_EQ(
         Nuv::text(record),
         Nuv::text(
               "Value('", TypeParam::typeName(),
               "', ** {'nhEntryType': receive, 'macAddr': 00:00:00:00:00:00, 'l3Id': 0, 'l2If': 65535})"));
}

TYPED_TEST(ViaRecord, IsLessThanOneOfAHigherType) {
   TypeParam plain;
   TypeParam higher;
   higher.nhEntryType = unicast;
   higher.l2If = {0};
   EXPECT_LT(plain, higher);
   EXPECT_FALSE(higher < plain);
}

TYPED_TEST(ViaRecord, IsOrderedByTypeAddressInterfaceAndPortInTurn) {
   std::vector<TypeParam> ascending{
         recordOf<TypeParam>(unicast, 1, 1, 1), recordOf<TypeParam>(unicast, 1, 1, 256),
         recordOf<TypeParam>(unicast, 1, 2, 0), recordOf<TypeParam>(unicast, 2, 0, 0),
         recordOf<TypeParam>(drop, 0, 0, 0)};
   for (std::size_t low = 0; low < ascending.size(); ++low) {
      for (std::size_t high = 0; high < ascending.size(); ++high) {
         EXPECT_EQ(ascending[low] < ascending[high], low < high) << low << ", " << high;
         EXPECT_EQ(ascending[low] == ascending[high], low == high) << low << ", " << high;
      }
   }
}

TYPED_TEST(ViaRecord, HashDependsOnEachFieldAndOnTheSeed) {
   auto record = recordOf<TypeParam>(unicast, 1, 1, 1);
   EXPECT_EQ(record.hash(5), recordOf<TypeParam>(unicast, 1, 1, 1).hash(5));
   EXPECT_EQ(record.hash(5), recordOf<L3ViaEntry>(unicast, 1, 1, 1).hash(5))
         << "a via and its key hash alike";
   EXPECT_NE(record.hash(5), record.hash(6));
   EXPECT_NE(record.hash(5), recordOf<TypeParam>(drop, 1, 1, 1).hash(5));
   EXPECT_NE(record.hash(5), recordOf<TypeParam>(unicast, 2, 1, 1).hash(5));
   EXPECT_NE(record.hash(5), recordOf<TypeParam>(unicast, 1, 2, 1).hash(5));
   EXPECT_NE(record.hash(5), recordOf<TypeParam>(unicast, 1, 1, 2).hash(5));
}

TEST(ViaText, IsTheValueOfItsType) {
   auto entry = via(unicast, 0xAB, 1, 65535);
   Pelm::String const expected = "Value('ZandorL3Tunnel::L3ViaEntry', ** {'nhEntryType': unicast, "
                                 "'macAddr': 02:00:00:00:00:ab, 'l3Id': 1, 'l2If': 65535})";
   EXPECT_EQ(Nuv::text(entry), expected);
   EXPECT_EQ(valueToStrep(entry), expected);
   std::ostringstream stream;
   stream << entry;
   EXPECT_EQ(stream.str(), expected);
}

TEST(ViaText, OfAKeyIsTheValueOfItsType) {
   EXPECT_EQ(Nuv::text(recordOf<L3UnderlayNextHopKey>(Brix::NextHopEntryType(7), 1, 4094, 12)),
             "Value('ZandorL3Tunnel::L3UnderlayNextHopKey', ** {'nhEntryType': 7, "
             "'macAddr': 02:00:00:00:00:01, 'l3Id': 4094, 'l2If': 12})");
}

class ViaTest : public testing::Test {
 protected:
   std::vector<std::pair<L3ViaEntry, std::uint32_t>> content(L3Via const& set) const {
      std::vector<std::pair<L3ViaEntry, std::uint32_t>> all;
      for (auto const& [entry, value] : set.via()) {
         all.emplace_back(entry, value);
      }
      return all;
   }

   Nuv::Ptr<L3Via> vias = l3ViaFactory();
};

TEST_F(ViaTest, IsEmptyAndAnnouncesAtFirst) {
   EXPECT_TRUE(vias->via().empty());
   EXPECT_TRUE(vias->hasNotificationActive());
   EXPECT_TRUE(L3Via::L3ViaIs()->hasNotificationActive());
   EXPECT_NE(L3Via::L3ViaIs(), vias);
}

TEST_F(ViaTest, SayingAViaTwiceKeepsOneWithTheSecondValue) {
   vias->viaIs(via(unicast, 1, 1, 1), 10);
   vias->viaIs(via(unicast, 1, 1, 1), 20);
   EXPECT_THAT(content(*vias), ElementsAre(std::pair(via(unicast, 1, 1, 1), 20u)));
}

TEST_F(ViaTest, RemovingOneLeavesTheOthers) {
   vias->viaIs(via(unicast, 1, 1, 1), 10);
   vias->viaIs(via(unicast, 2, 1, 1), 20);
   vias->viaDel(via(unicast, 1, 1, 1));
   EXPECT_THAT(content(*vias), ElementsAre(std::pair(via(unicast, 2, 1, 1), 20u)));
}

TEST_F(ViaTest, RemovingAnAbsentOneChangesNothing) {
   vias->viaDel(via(unicast, 1, 1, 1));
   vias->viaIs(via(unicast, 1, 1, 1), 10);
   vias->viaDel(via(unicast, 1, 1, 2));
   EXPECT_EQ(vias->via().size(), 1u);
}

TEST_F(ViaTest, RemovingAllLeavesNone) {
   vias->viaDelAll();
   vias->viaIs(via(unicast, 1, 1, 1), 10);
   vias->viaIs(via(drop, 1, 1, 1), 10);
   vias->viaDelAll();
   EXPECT_THAT(content(*vias), IsEmpty());
   vias->viaIs(via(drop, 1, 1, 1), 11);
   EXPECT_EQ(vias->via().size(), 1u);
}

TEST_F(ViaTest, EqualRandomSetsIterateAlikeHoweverTheyWereFilled) {
   Nuv::soak(10, [this](std::uint32_t seed, int steps) {
      std::mt19937 random(seed);
      std::vector<L3ViaEntry> entries;
      for (std::uint16_t number = 0; number < 64; ++number) {
         entries.push_back(via(number % 5 ? unicast : drop, std::uint8_t(number), number / 8, number));
      }
      auto first = l3ViaFactory();
      for (auto const& entry : entries) {
         first->viaIs(entry, entry.l2If.value);
      }
      for (int round = 0; round < steps; ++round) {
         std::shuffle(entries.begin(), entries.end(), random);
         auto second = l3ViaFactory();
         for (std::uint16_t passing = 0; passing < 100 && random() % 100 != 0; ++passing) {
            second->viaIs(via(unicast, 0, passing, 1000), 0);
         }
         for (auto const& entry : entries) {
            second->viaIs(entry, entry.l2If.value);
         }
         for (std::uint16_t passing = 0; passing < 100; ++passing) {
            second->viaDel(via(unicast, 0, passing, 1000));
         }
         ASSERT_EQ(content(*second), content(*first));
         ASSERT_TRUE(second->via() == first->via());
      }
   });
}

} // namespace
} // namespace ZandorL3Tunnel
