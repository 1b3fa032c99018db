#include "agent/Address.h"

#include <gmock/gmock.h>

namespace L3TunnelAgent {

TEST(Address, MacIsReadAndPrinted) {
   EXPECT_EQ(MacAddress::parse("02:aB:00:00:ff:01")->text(), "02:ab:00:00:ff:01");
   for (std::string const text : {"", "02:ab:00:00:ff", "02:ab:00:00:ff:01:", "02-ab-00-00-ff-01",
                                  "02:ab:00:00:ff:0g", "02:ab:00:00:ff::1", "+2:ab:00:00:ff:01"}) {
      EXPECT_FALSE(MacAddress::parse(text)) << text;
   }
}

TEST(Address, GroupAndZeroMacsAreTold) {
   EXPECT_TRUE(MacAddress{}.isGroupOrZero());
   EXPECT_TRUE(MacAddress::parse("01:00:5e:00:00:01")->isGroupOrZero());
   EXPECT_FALSE(MacAddress::parse("02:00:00:00:00:00")->isGroupOrZero());
}

TEST(Address, IpIsReadAndPrinted) {
   for (std::string const text : {"0.0.0.0", "10.255.1.2", "255.255.255.255", "::", "fe80::22:2ff:fe00:2"}) {
      EXPECT_EQ(IpAddress::parse(text)->text(), text);
   }
   for (std::string const text : {"", "10.0.0", "10.0.0.256", "fe80:::1", "10.0.0.1 "}) {
      EXPECT_FALSE(IpAddress::parse(text)) << text;
   }
}

TEST(Address, MulticastGroupsAreTold) {
   for (auto const* const group : {"224.0.0.0", "239.255.255.255", "ff02::1"}) {
      EXPECT_TRUE(IpAddress::parse(group)->isMulticast()) << group;
   }
   for (auto const* const single : {"223.255.255.255", "240.0.0.0", "fe80::1", "::ffff:224.0.0.1"}) {
      EXPECT_FALSE(IpAddress::parse(single)->isMulticast()) << single;
   }
}

TEST(Address, V4IsANumber) {
   EXPECT_EQ(IpAddress::parse("10.1.2.3")->v4(), 0x0a010203U);
   EXPECT_EQ(IpAddress::fromV4(0xc0a80001).text(), "192.168.0.1");
}

TEST(Address, IpSortsByFamilyThenValue) {
   EXPECT_LT(*IpAddress::parse("9.255.255.255"), *IpAddress::parse("10.0.0.0"));
   EXPECT_LT(*IpAddress::parse("127.0.0.1"), *IpAddress::parse("128.0.0.0"));
   EXPECT_LT(*IpAddress::parse("255.0.0.0"), *IpAddress::parse("::"));
}

TEST(Address, OnlyWholeAddressesAreTakenFromBytes) {
   std::byte const bytes[17]{std::byte{1}};
   for (std::size_t size = 0; size <= 17; ++size) {
      std::span<std::byte const> const span(bytes, size);
      EXPECT_EQ(MacAddress::fromBytes(span).has_value(), size == 6);
      EXPECT_EQ(IpAddress::fromBytes(span).has_value(), size == 4 || size == 16);
   }
   EXPECT_EQ(IpAddress::fromBytes({bytes, 4})->text(), "1.0.0.0");
   EXPECT_EQ(IpAddress::fromBytes({bytes, 16})->text(), "100::");
}

} // namespace L3TunnelAgent
