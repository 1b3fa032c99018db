#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Asic {

/// Copies `count` words, at most eight, to a place that does not overlap. Rows have so few words that a call
/// would cost more than the copy.
inline void
copyRowWords(std::uint32_t const* from, std::size_t count, std::uint32_t* to) {
   if (count >= 4) {
      // The second half may overlap the first.
      std::memcpy(to, from, 4 * sizeof *to);
      std::memcpy(to + count - 4, from + count - 4, 4 * sizeof *to);
   } else if (count >= 2) {
      std::memcpy(to, from, 2 * sizeof *to);
      to[count - 1] = from[count - 1];
   } else if (count == 1) {
      *to = *from;
   }
}

} // namespace Asic
