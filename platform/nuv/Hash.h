#pragma once

#include "platform/nuv/Export.h"

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace Nuv {

/// The process's hash seed: random, unless it was set before its first use. One seed gives one order of every
/// hash collection, so a run can be repeated.
ZANDOR_EXPORT std::uint32_t hashSeed();

/// Sets the process's hash seed. Returns false, and changes nothing, once the seed has been used: collections
/// that exist would otherwise lose their order.
ZANDOR_EXPORT bool hashSeedIs(std::uint32_t seed);

/// The seed that hash collections start from. Collections that are filled by walking over each other must not
/// share a salt: elements that come in the order of their hashes would all crowd at one end.
inline std::uint32_t
collectionHashSeed(std::uint32_t salt = 0x1e7eda4a) {
   return hashSeed() ^ salt;
}

/// A salt for the collections of one type, by its name: its FNV-1a hash (draft-eastlake-fnv).
constexpr std::uint32_t
collectionSalt(std::string_view typeName) {
   std::uint32_t hash = 0x811c9dc5;
   for (char character : typeName) {
      hash = (hash ^ std::uint8_t(character)) * 0x01000193;
   }
   return hash;
}

/// Mixes values into one 32-bit hash: a seed, any number of `mix...`, one `result`.
///
/// The state is folded with the 64-bit finaliser of SplitMix64 (Steele, Lea, Flood: "Fast splittable
/// pseudorandom number generators", OOPSLA 2014), a bijection of the state for every value mixed in.
class ZANDOR_EXPORT HashAccumulator {
 public:
   explicit constexpr HashAccumulator(std::uint32_t seed) : state_(seed + 0x9e3779b97f4a7c15ull) {}

   constexpr void mix32(std::uint32_t value) { mix64(value); }

   constexpr void mix64(std::uint64_t value) {
      std::uint64_t z = (state_ ^ value) + 0x9e3779b97f4a7c15ull;
      z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
      z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
      state_ = z ^ (z >> 31);
   }

   void mixBytes(void const* data, std::size_t size) {
      auto const* at = static_cast<unsigned char const*>(data);
      for (; size >= 8; at += 8, size -= 8) {
         mix64(word(at, 8));
      }
      mix64(word(at, size) | std::uint64_t(size) << 56);
   }

   /// The same as `mixBytes` of the value's two bytes, the lower one first.
   constexpr void mixTwoBytes(std::uint16_t value) { mix64(value | std::uint64_t(2) << 56); }

   constexpr std::uint32_t result() const { return std::uint32_t(state_ >> 32); }
   constexpr std::uint64_t result64() const { return state_; }

 private:
   static std::uint64_t word(unsigned char const* at, std::size_t size) {
      std::uint64_t value = 0;
      for (std::size_t i = 0; i < size; ++i) {
         value |= std::uint64_t(at[i]) << (8 * i);
      }
      return value;
   }

   std::uint64_t state_;
};

/// A value that hashes itself from a seed.
template <class T>
concept SelfHashing = requires(T const& value, unsigned seed) {
   { value.hash(seed) } -> std::convertible_to<std::uint32_t>;
};

template <class T>
requires std::integral<T> || std::is_enum_v<T>
constexpr std::uint32_t
hashOf(T value, std::uint32_t seed) {
   HashAccumulator accumulator(seed);
   accumulator.mix64(static_cast<std::uint64_t>(value));
   return accumulator.result();
}

template <SelfHashing T>
std::uint32_t
hashOf(T const& value, std::uint32_t seed) {
   return value.hash(seed);
}

inline std::uint32_t
hashOf(std::string_view value, std::uint32_t seed) {
   HashAccumulator accumulator(seed);
   accumulator.mixBytes(value.data(), value.size());
   return accumulator.result();
}

} // namespace Nuv
