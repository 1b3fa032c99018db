#include "agent/KernelState.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <set>

namespace L3TunnelAgent {
namespace {

constexpr std::size_t count = 1000;

TEST(SeededHash, AddressesThatMultipliersAreUndoneInHaveHashesOfTheirOwn) {
   std::set<std::size_t> hashes;
   for (std::uint64_t low = 1; low <= count; ++low) {
      std::uint64_t const high = 0x120 ^ low * 0x9e3779b97f4a7c15U;
      IpAddress address{.family = IpAddress::Family::v6, .bytes = {}};
      std::memcpy(address.bytes.data(), &high, sizeof high);
      std::memcpy(address.bytes.data() + sizeof high, &low, sizeof low);
      hashes.insert(std::hash<IpAddress>()(address));
   }
   EXPECT_GT(hashes.size(), count - 10);
}

TEST(SeededHash, NumbersChosenForTheirRemainderAreSpreadOverAMap) {
   KernelState::NextHops objects;
   objects.reserve(count);
   std::size_t const buckets = objects.bucket_count();
   for (std::size_t i = 1; i <= count; ++i) {
      objects[static_cast<std::uint32_t>(i * buckets)] = {};
   }
   ASSERT_EQ(objects.bucket_count(), buckets);
   std::size_t most = 0;
   for (std::size_t bucket = 0; bucket < buckets; ++bucket) {
      most = std::max(most, objects.bucket_size(bucket));
   }
   EXPECT_LT(most, 20U);
}

} // namespace
} // namespace L3TunnelAgent
