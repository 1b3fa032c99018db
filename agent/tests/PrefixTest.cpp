#include "agent/Prefix.h"

#include <gtest/gtest.h>

namespace L3TunnelAgent {

namespace {

Prefix
prefix(std::string const& address, int length) {
   return Prefix::of(IpAddress::parse(address).value(), static_cast<std::uint8_t>(length));
}

} // namespace

TEST(PrefixTest, BitsBeyondTheLengthAreZero) {
   EXPECT_EQ(prefix("10.255.129.7", 0).text(), "0.0.0.0/0");
   EXPECT_EQ(prefix("10.255.129.7", 8).text(), "10.0.0.0/8");
   EXPECT_EQ(prefix("10.255.129.7", 17).text(), "10.255.128.0/17");
   EXPECT_EQ(prefix("10.255.129.7", 32).text(), "10.255.129.7/32");
   EXPECT_EQ(prefix("2001:db8:ffff::1", 33).text(), "2001:db8:8000::/33");
   EXPECT_EQ(prefix("2001:db8:ffff::1", 128).text(), "2001:db8:ffff::1/128");
}

TEST(PrefixTest, LengthEndsWithTheFamilysBits) {
   EXPECT_EQ(prefix("10.0.0.1", 200), prefix("10.0.0.1", 32));
   EXPECT_EQ(prefix("::1", 200), prefix("::1", 128));
}

TEST(PrefixTest, LastAddressHasAllBitsBeyondTheLength) {
   EXPECT_EQ(prefix("10.255.129.7", 17).last().text(), "10.255.255.255");
   EXPECT_EQ(prefix("0.0.0.0", 0).last().text(), "255.255.255.255");
   EXPECT_EQ(prefix("10.0.0.1", 32).last().text(), "10.0.0.1");
   EXPECT_EQ(prefix("2001:db8::", 126).last().text(), "2001:db8::3");
}

TEST(PrefixTest, ContainsTheAddressesFromItsFirstToItsLast) {
   Prefix const some = prefix("10.0.0.4", 30);
   for (std::uint32_t value = 0x0a000000; value < 0x0a000010; ++value) {
      auto const address = IpAddress::fromV4(value);
      EXPECT_EQ(some.contains(address), some.address <= address && address <= some.last()) << address.text();
   }
   EXPECT_FALSE(prefix("0.0.0.0", 0).contains(IpAddress::parse("::1").value())) << "another family";
}

} // namespace L3TunnelAgent
