#pragma once

#include "platform/nuv/Exception.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Text.h"

#include <compare>
#include <cstdint>
#include <limits>

namespace ZandorL3Tunnel {

/// What an ingress next hop's destination is: the chip's codes.
enum class DestinationType : std::uint8_t {
   invalidDestination = 0,
   l2Multicast = 1,
   l3Multicast = 2,
   unicast = 4,
   system = 8
};

/// Number of 13 bits, 0 to 0x1fff. A larger one is a range error.
class U13 {
 public:
   static constexpr unsigned max = 0x1fff;

   constexpr U13() = default;
   explicit U13(std::uint32_t value);

   constexpr std::uint16_t value() const { return value_; }

   std::uint32_t hash(unsigned seed) const { return Nuv::hashOf(value_, seed); }
   friend auto operator<=>(U13 const&, U13 const&) = default;
   friend void appendText(Pelm::String& out, U13 number) { Nuv::appendText(out, unsigned(number.value_)); }

 private:
   std::uint16_t value_{};
};

} // namespace ZandorL3Tunnel

/// The bounds of the field type, for whoever asks before building one.
template <>
struct std::numeric_limits<ZandorL3Tunnel::U13> {
   static constexpr bool is_specialized = true;
   static constexpr unsigned max() { return ZandorL3Tunnel::U13::max; }
};
