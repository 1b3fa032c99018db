#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <compare>
#include <cstdint>

namespace ZandorCentral {

/// Number of a port, real or virtual, 16 bits; all ones is no port.
struct ZANDOR_EXPORT VirtualPort {
   static constexpr std::uint16_t invalidValue = 0xffff;

   std::uint16_t value{invalidValue};

   bool isValid() const { return value != invalidValue; }
   std::uint32_t hash(unsigned seed) const {
      Nuv::HashAccumulator accumulator(seed);
      accumulator.mixTwoBytes(value);
      return accumulator.result();
   }
   friend auto operator<=>(VirtualPort const&, VirtualPort const&) = default;
   friend void appendText(Pelm::String& out, VirtualPort port) { Nuv::appendText(out, unsigned(port.value)); }
   friend void parseText(Nuv::TextRange& range, VirtualPort& number) { parseText(range, number.value); }
};

} // namespace ZandorCentral
