#include "agent/Address.h"

#include "platform/nuv/Hash.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

namespace L3TunnelAgent {

namespace {

int
hexDigit(char c) {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   if (c >= 'A' && c <= 'F') {
      return c - 'A' + 10;
   }
   return -1;
}

} // namespace

bool
MacAddress::isGroupOrZero() const {
   return (bytes[0] & 1) != 0 || *this == MacAddress{};
}

std::string
MacAddress::text() const {
   char buffer[18];
   std::snprintf(buffer, sizeof buffer, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                 bytes[3], bytes[4], bytes[5]);
   return buffer;
}

std::optional<MacAddress>
MacAddress::parse(std::string const& text) {
   MacAddress result;
   if (text.size() != 3 * result.bytes.size() - 1) {
      return std::nullopt;
   }
   for (std::size_t i = 0; i < result.bytes.size(); ++i) {
      int const high = hexDigit(text[3 * i]);
      int const low = hexDigit(text[3 * i + 1]);
      if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':')) {
         return std::nullopt;
      }
      result.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
   }
   return result;
}

std::optional<MacAddress>
MacAddress::fromBytes(std::span<std::byte const> source) {
   MacAddress result;
   if (source.size() != result.bytes.size()) {
      return std::nullopt;
   }
   std::memcpy(result.bytes.data(), source.data(), source.size());
   return result;
}

std::string
IpAddress::text() const {
   char buffer[INET6_ADDRSTRLEN];
   inet_ntop(family == Family::v4 ? AF_INET : AF_INET6, bytes.data(), buffer, sizeof buffer);
   return buffer;
}

bool
IpAddress::isMulticast() const {
   return family == Family::v4 ? bytes[0] >> 4 == 0xe : bytes[0] == 0xff;
}

std::uint32_t
IpAddress::v4() const {
   std::uint32_t value;
   std::memcpy(&value, bytes.data(), sizeof value);
   return ntohl(value);
}

IpAddress
IpAddress::fromV4(std::uint32_t value) {
   IpAddress result;
   value = htonl(value);
   std::memcpy(result.bytes.data(), &value, sizeof value);
   return result;
}

std::optional<IpAddress>
IpAddress::parse(std::string const& text) {
   IpAddress result;
   if (inet_pton(AF_INET, text.c_str(), result.bytes.data()) == 1) {
      return result;
   }
   result = {.family = Family::v6, .bytes = {}};
   if (inet_pton(AF_INET6, text.c_str(), result.bytes.data()) == 1) {
      return result;
   }
   return std::nullopt;
}

std::optional<IpAddress>
IpAddress::fromBytes(std::span<std::byte const> source) {
   IpAddress result;
   if (source.size() != 4 && source.size() != 16) {
      return std::nullopt;
   }
   result.family = source.size() == 4 ? Family::v4 : Family::v6;
   std::memcpy(result.bytes.data(), source.data(), source.size());
   return result;
}

} // namespace L3TunnelAgent

std::size_t
std::hash<L3TunnelAgent::IpAddress>::operator()(L3TunnelAgent::IpAddress const& address) const noexcept {
   // The bytes beyond an IPv4 address are zero, so the family adds nothing that its length does not say.
   std::uint64_t high;
   std::uint64_t low;
   std::memcpy(&high, address.bytes.data(), sizeof high);
   std::memcpy(&low, address.bytes.data() + sizeof high, sizeof low);
   Nuv::HashAccumulator accumulator(Nuv::hashSeed());
   accumulator.mix64(high);
   accumulator.mix64(low);
   return static_cast<std::size_t>(accumulator.result64());
}
