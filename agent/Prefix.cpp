#include "agent/Prefix.h"

#include <algorithm>

namespace L3TunnelAgent {

namespace {

/// Calls change(byte, mask) for the address's bytes; the mask has the bits that lie beyond the length.
template <typename Change>
void
eachBeyond(IpAddress& address, std::uint8_t length, Change const& change) {
   for (std::size_t i = length / 8; i < address.bits() / 8U; ++i) {
      unsigned const kept = i == length / 8U ? length % 8U : 0;
      change(address.bytes[i], static_cast<std::uint8_t>(0xffU >> kept));
   }
}

} // namespace

Prefix
Prefix::of(IpAddress address, std::uint8_t length) {
   length = std::min(length, address.bits());
   eachBeyond(address, length, [](std::uint8_t& byte, std::uint8_t mask) { byte &= ~mask & 0xff; });
   return {.address = address, .length = length};
}

IpAddress
Prefix::last() const {
   IpAddress result = address;
   eachBeyond(result, length, [](std::uint8_t& byte, std::uint8_t mask) { byte |= mask; });
   return result;
}

} // namespace L3TunnelAgent
