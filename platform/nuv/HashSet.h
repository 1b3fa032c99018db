#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/HashTable.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace Nuv {

template <class K>
struct ZANDOR_EXPORT HashSetTraits {
   using Slot = K;
   using Key = K;
   static std::uint32_t hash(K const& key) { return hashOf(key, collectionHashSeed()); }
   static K const& key(K const& slot) { return slot; }
   static bool less(K const& left, K const& right) { return left < right; }
   static bool equal(K const& left, K const& right) { return left == right; }
};

/// A set whose order depends only on its elements and the process's hash seed: by hash, then by `<`.
/// K has hashOf(key, seed), == and <; moving it must not throw.
template <class K>
class ZANDOR_EXPORT HashSet {
   using Table = HashTable<HashSetTraits<K>>;

 public:
   using Cursor = typename Table::template Cursor<true>;

   std::size_t size() const { return table_.size(); }
   bool empty() const { return table_.empty(); }
   bool has(K const& key) const { return table_.has(key); }

   /// The heap memory held by the set itself, without what the elements hold.
   std::size_t bytes() const { return table_.bytes(); }

   /// The element equal to `key`, or nullptr. The pointer is good until the set changes.
   K const* find(K const& key) const { return table_.find(key); }

   /// Adds the element; returns whether it is new. An equal element that is there already stays.
   bool insert(K key) { return table_.insert(std::move(key)).second; }

   /// Removes the element; returns whether it was there.
   bool erase(K const& key) { return table_.erase(key); }

   /// Removes everything and gives the memory back.
   void clear() { table_.clear(); }

   /// Makes room for `count` elements in all.
   void reserve(std::size_t count) { table_.reserve(count); }

   void swap(HashSet& other) noexcept { table_.swap(other.table_); }

   /// A cursor at the first element, which outlives any change of the set's contents.
   Cursor iterator() const { return table_.iterator(); }

   /// Plain iteration, for loops that do not change the set.
   auto begin() const { return table_.begin(); }
   auto end() const { return table_.end(); }

   friend bool operator==(HashSet const& left, HashSet const& right) { return left.table_ == right.table_; }

 private:
   Table table_;
};

} // namespace Nuv
