#pragma once

#include "platform/nuv/Hash.h"
#include "platform/nuv/HashTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace HashTableItems {

struct Item {
   std::uint32_t key;
   std::uint32_t value;
   bool operator==(Item const&) const = default;
};

/// Items under a hash function that the test chooses.
template <std::uint32_t (*hashFunction)(std::uint32_t)>
struct ItemTraits {
   using Slot = Item;
   using Key = std::uint32_t;
   static std::uint32_t hash(Key const& key) { return hashFunction(key); }
   static Key const& key(Slot const& slot) { return slot.key; }
   static bool less(Key const& left, Key const& right) { return left < right; }
   static bool equal(Key const& left, Key const& right) { return left == right; }
};

inline std::uint32_t
spread(std::uint32_t key) {
   return Nuv::hashOf(key, 42);
}
inline std::uint32_t
constant(std::uint32_t) {
   return 0xfffffff0;
}
inline std::uint32_t
zero(std::uint32_t) {
   return 0;
}
/// Few distinct hashes, crowded at both ends of the table.
inline std::uint32_t
crowded(std::uint32_t key) {
   return key % 3 == 0 ? key % 7 : key % 3 == 1 ? 0xffffffff - key % 5 : spread(key % 50);
}

template <class Traits>
std::vector<std::uint32_t>
keys(Nuv::HashTable<Traits> const& table) {
   std::vector<std::uint32_t> result;
   for (auto const& slot : table) {
      result.push_back(Traits::key(slot));
   }
   return result;
}

template <class Traits>
using Place = std::pair<std::uint32_t, typename Traits::Key>;

/// Where an element belongs in the order of the table.
template <class Traits>
Place<Traits>
place(typename Traits::Key const& key) {
   return {std::max(Traits::hash(key), 1u), key};
}

/// Hash functions from a good one to those that put everything at one place.
using AllHashes =
      testing::Types<ItemTraits<spread>, ItemTraits<constant>, ItemTraits<zero>, ItemTraits<crowded>>;

} // namespace HashTableItems
