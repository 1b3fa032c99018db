#pragma once

#include "platform/nuv/Export.h"

#include <cstdint>

namespace Asic {

/// A hardware index.
using Index = std::uint32_t;

/// No index.
inline constexpr Index invalidIndex = 0xFFFFFFFF;

/// Number of a chip in its switch.
using UnitId = std::uint32_t;

/// Whether an entry stays until it is removed, or goes with its last holder.
enum class ZANDOR_EXPORT AutoRemoveType : std::uint8_t { automatic = 0, needsExplicitRemove = 1 };

constexpr AutoRemoveType
needsExplicitRemove() {
   return AutoRemoveType::needsExplicitRemove;
}

} // namespace Asic
