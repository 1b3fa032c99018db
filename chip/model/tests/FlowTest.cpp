#include "chip/model/Flow.h"

#include <gmock/gmock.h>

#include <set>
#include <string_view>
#include <vector>

namespace ModelChip {
namespace {

std::uint32_t
crcOf(std::vector<std::uint8_t> const& bytes) {
   return crc32c(bytes);
}

TEST(FlowTest, CrcHasTheValuesThatArePublished) {
   std::vector<std::uint8_t> ascending(32);
   std::vector<std::uint8_t> descending(32);
   for (std::uint8_t at = 0; at < 32; ++at) {
      ascending[at] = at;
      descending[at] = std::uint8_t(31 - at);
   }
   EXPECT_EQ(crcOf(std::vector<std::uint8_t>(32, 0x00)), 0x8a9136aaU);
   EXPECT_EQ(crcOf(std::vector<std::uint8_t>(32, 0xff)), 0x62a8ab43U);
   EXPECT_EQ(crcOf(ascending), 0x46dd794eU);
   EXPECT_EQ(crcOf(descending), 0x113fdb5cU);
   std::string_view const digits = "123456789";
   EXPECT_EQ(crcOf({digits.begin(), digits.end()}), 0xe3069283U);
   EXPECT_EQ(crcOf({}), 0U);
}

TEST(FlowTest, HashCoversEveryFieldInTheOrderOfTheWire) {
   Flow const flow{.source = {{10, 0, 0, 1}, false},
                   .destination = {{10, 0, 0, 2}, false},
                   .protocol = 17,
                   .sourcePort = 0x1234,
                   .destinationPort = 0x5678};
   EXPECT_EQ(flowHash(flow), crcOf({10, 0, 0, 1, 10, 0, 0, 2, 17, 0x12, 0x34, 0x56, 0x78}));

   std::set<std::uint32_t> hashes{flowHash(flow)};
   auto const differs = [&](auto const& change) {
      auto other = flow;
      change(other);
      EXPECT_TRUE(hashes.insert(flowHash(other)).second);
   };
   differs([](Flow& other) { other.source.bytes[0] = 11; });
   differs([](Flow& other) { other.destination.bytes[3] = 3; });
   differs([](Flow& other) { other.protocol = 6; });
   differs([](Flow& other) { other.sourcePort = 1; });
   differs([](Flow& other) { other.destinationPort = 1; });
   differs([](Flow& other) { other.source.isV6 = other.destination.isV6 = true; });
}

TEST(FlowTest, PathsShareTheHashesEquallyAndInOrder) {
   for (std::uint32_t const paths : {1U, 2U, 7U, 64U, 65535U}) {
      EXPECT_EQ(pathOf(0, paths), 0U);
      EXPECT_EQ(pathOf(0xffffffff, paths), paths - 1);
   }
   EXPECT_EQ(pathOf(0x7fffffff, 2), 0U);
   EXPECT_EQ(pathOf(0x80000000, 2), 1U);
   EXPECT_EQ(pathOf(0x55555555, 3), 0U);
   EXPECT_EQ(pathOf(0x55555556, 3), 1U);
}

} // namespace
} // namespace ModelChip
