#pragma once

#include "agent/Address.h"

#include <compare>
#include <cstdint>
#include <string>

namespace L3TunnelAgent {

/// All addresses of one family that begin with the same bits.
struct Prefix {
   IpAddress address{}; // zero beyond the length
   std::uint8_t length{};

   auto operator<=>(Prefix const&) const = default;

   /// @return the prefix of that length which contains the address. A length above the family's bits counts
   /// as that many.
   static Prefix of(IpAddress address, std::uint8_t length);

   /// @return the highest address that it contains; the lowest one is `address`.
   IpAddress last() const;

   bool contains(IpAddress const& other) const { return of(other, length) == *this; }

   /// @return the usual text form, "10.0.0.0/8".
   std::string text() const { return address.text() + "/" + std::to_string(length); }
};

} // namespace L3TunnelAgent
