#pragma once

#include "platform/nuv/Hash.h"

#include <concepts>
#include <cstddef>
#include <unordered_map>

namespace L3TunnelAgent {

/// Hash of numbers from outside, as kernels and recordings name things by. It starts from the process's hash
/// seed, so that none can be chosen for what they share.
struct SeededHash {
   template <std::integral T>
   std::size_t operator()(T value) const {
      Nuv::HashAccumulator accumulator(Nuv::hashSeed());
      accumulator.mix64(static_cast<std::uint64_t>(value));
      return static_cast<std::size_t>(accumulator.result64());
   }
};

/// A map by such numbers. Its order depends on the seed: it must not show.
template <std::integral Key, typename Value>
using MapByNumber = std::unordered_map<Key, Value, SeededHash>;

} // namespace L3TunnelAgent
