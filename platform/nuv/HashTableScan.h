#pragma once

#include <cstdint>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Nuv::detail {

/// One bit for each of 16 hashes, the first one's lowest: whether it is other than 0.
inline std::uint64_t
takenOf16(std::uint32_t const* hashes) {
#ifdef __SSE2__
   auto const* words = reinterpret_cast<__m128i const*>(hashes);
   auto isZero = [words](int at) {
      return _mm_cmpeq_epi32(_mm_loadu_si128(words + at), _mm_setzero_si128());
   };
   __m128i const low = _mm_packs_epi32(isZero(0), isZero(1));
   __m128i const high = _mm_packs_epi32(isZero(2), isZero(3));
   return std::uint64_t(_mm_movemask_epi8(_mm_packs_epi16(low, high))) ^ 0xffff;
#else
   std::uint64_t taken = 0;
   for (unsigned at = 0; at < 16; ++at) {
      taken |= std::uint64_t(hashes[at] != 0) << at;
   }
   return taken;
#endif
}

/// The same of as many hashes as there are, up to 64.
inline std::uint64_t
takenOf(std::uint32_t const* hashes, std::uint32_t count) {
   if (count >= 64) [[likely]] {
      return takenOf16(hashes) | takenOf16(hashes + 16) << 16 | takenOf16(hashes + 32) << 32 |
             takenOf16(hashes + 48) << 48;
   }
   std::uint64_t taken = 0;
   for (std::uint32_t at = 0; at < count; ++at) {
      taken |= std::uint64_t(hashes[at] != 0) << at;
   }
   return taken;
}

} // namespace Nuv::detail
