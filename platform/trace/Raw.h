#pragma once

#include "platform/nuv/Export.h"

#include <cstdint>

namespace Trace {

/// How a message's argument is stored and printed. The numbers are those of the ring file.
enum class ZANDOR_EXPORT Kind : std::uint8_t {
   boolean = 1,
   signedInteger = 2,
   unsignedInteger = 3,
   /// Printed as 0x and digits.
   hexadecimal = 4,
   /// A pointer, printed as an address.
   address = 5,
   /// Bytes, copied into the record as far as they fit.
   text = 6,
   /// The low 48 bits, first byte highest, printed as colon hex.
   ethernetAddress = 7,
   /// The low 32 bits, first byte highest, printed with dots.
   ipv4Address = 8,
};

/// What a type's own `rawForTrace(T const&)`, found beside the type, returns to make the type an argument of
/// `MIRELOG`: up to 64 bits, and how to print them. Returning a plain `std::uint64_t` prints as a number.
template <Kind k>
requires(k != Kind::text) struct ZANDOR_EXPORT Raw {
   static constexpr Kind kind = k;
   std::uint64_t value;
};

} // namespace Trace
