#include "types/SwFieldTypes.h"

#include <gtest/gtest.h>

namespace ZandorL3Tunnel {
namespace {

TEST(U13, HoldsEveryNumberOf13Bits) {
   EXPECT_EQ(U13().value(), 0u);
   for (unsigned number = 0; number <= 0x1fff; ++number) {
      ASSERT_EQ(U13(number).value(), number);
   }
}

TEST(U13, RefusesALargerNumber) {
   for (std::uint32_t number : {0x2000u, 0x10000u, 0x12000u, 0xffffffffu}) {
      try {
         U13 refused(number);
         FAIL() << number << " taken as " << refused.value();
      } catch (Nuv::RangeException const& failure) {
         EXPECT_STREQ(failure.what(), "U13::value < 0 or > 0x1fff not allowed");
      }
   }
}

TEST(U13, ARefusalIsAnExceptionOfTheTypeSystem) {
   EXPECT_THROW(U13(0x2000), Nuv::Exception);
}

TEST(U13, SaysItsBoundBeforeOneIsBuilt) {
   EXPECT_EQ(std::numeric_limits<U13>::max(), 0x1fffu);
   EXPECT_EQ(U13(std::numeric_limits<U13>::max()).value(), 0x1fffu);
}

TEST(U13, HashDependsOnTheSeed) {
   EXPECT_NE(U13(7).hash(1), U13(7).hash(2));
}

TEST(DestinationType, HasTheChipsCodes) {
   EXPECT_EQ(unsigned(DestinationType::invalidDestination), 0u);
   EXPECT_EQ(unsigned(DestinationType::l2Multicast), 1u);
   EXPECT_EQ(unsigned(DestinationType::l3Multicast), 2u);
   EXPECT_EQ(unsigned(DestinationType::unicast), 4u);
   EXPECT_EQ(unsigned(DestinationType::system), 8u);
}

} // namespace
} // namespace ZandorL3Tunnel
