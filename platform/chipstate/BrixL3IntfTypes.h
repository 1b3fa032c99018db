#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <compare>
#include <cstdint>

namespace BrixL3Intf {

/// Number of an L3 interface, 16 bits.
struct ZANDOR_EXPORT L3Id {
   std::uint16_t value{};

   std::uint32_t hash(unsigned seed) const { return Nuv::hashOf(value, seed); }
   friend auto operator<=>(L3Id const&, L3Id const&) = default;
   friend void appendText(Pelm::String& out, L3Id id) { Nuv::appendText(out, unsigned(id.value)); }
   friend void parseText(Nuv::TextRange& range, L3Id& number) { parseText(range, number.value); }
};

} // namespace BrixL3Intf
