#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Text.h"
#include "platform/nuv/TextRange.h"

#include <cstdint>

namespace Brix {

/// What a next hop does with a packet. Any 8-bit value can be held; the named ones are those in use.
enum class ZANDOR_EXPORT NextHopEntryType : std::uint8_t {
   receive = 0,       ///< to the CPU
   unicast = 2,       ///< out of a port
   drop = 3,          ///< nowhere
   glean = 4,         ///< to the CPU, which has the neighbour to resolve
   tunnelUnicast = 11 ///< out of a port, beneath another tunnel
};

/// Prints as its name, or as a decimal number where it has none.
ZANDOR_EXPORT void appendText(Pelm::String& out, NextHopEntryType);
ZANDOR_EXPORT void parseText(Nuv::TextRange& range, NextHopEntryType& type);

} // namespace Brix
