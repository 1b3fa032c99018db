#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"
#include "platform/trace/Raw.h"

#include <array>
#include <compare>
#include <cstdint>

namespace Fendo {

/// Ethernet address, in transmission order; ordered as its bytes are. Prints as lower-case, colon-separated
/// hex.
struct ZANDOR_EXPORT EthAddr {
   std::array<std::uint8_t, 6> bytes{};

   /// The address as a number of 48 bits, its first byte the most significant.
   std::uint64_t value() const {
      // Written out, since no loop over the bytes becomes the two loads and swaps that it is.
      return std::uint64_t(bytes[0]) << 40 | std::uint64_t(bytes[1]) << 32 | std::uint64_t(bytes[2]) << 24 |
             std::uint64_t(bytes[3]) << 16 | std::uint64_t(bytes[4]) << 8 | bytes[5];
   }
   static EthAddr fromValue(std::uint64_t);

   std::uint32_t hash(unsigned seed) const { return Nuv::hashOf(value(), seed); }
   friend bool operator==(EthAddr const& a, EthAddr const& b) { return a.bytes == b.bytes; }
   friend auto operator<=>(EthAddr const& a, EthAddr const& b) { return a.value() <=> b.value(); }
   friend ZANDOR_EXPORT void appendText(Pelm::String& out, EthAddr const&);
   friend Trace::Raw<Trace::Kind::ethernetAddress> rawForTrace(EthAddr const& address) {
      return {address.value()};
   }
   /// Reads six pairs of hexadecimal digits, in either case, between colons.
   friend ZANDOR_EXPORT void parseText(Nuv::TextRange& range, EthAddr& address);
};

} // namespace Fendo
