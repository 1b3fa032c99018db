#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/HashTable.h"
#include "platform/nuv/Text.h"

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Nuv {

/// One element of a HashMap: a key that stays and a value that may be written. Also usable as
/// `auto& [key, value]`.
template <class K, class V>
class ZANDOR_EXPORT HashMapEntry {
 public:
   HashMapEntry(K key, V value) : key_(std::move(key)), value_(std::move(value)) {}

   HashMapEntry(HashMapEntry const&) = default;
   HashMapEntry(HashMapEntry&&) noexcept = default;
   HashMapEntry& operator=(HashMapEntry const&) = delete;
   HashMapEntry& operator=(HashMapEntry&&) = delete;

   K const& key() const { return key_; }
   V& value() { return value_; }
   V const& value() const { return value_; }

   template <std::size_t index>
   auto& get() {
      if constexpr (index == 0) {
         return key();
      } else {
         return value();
      }
   }
   template <std::size_t index>
   auto const& get() const {
      if constexpr (index == 0) {
         return key();
      } else {
         return value();
      }
   }

   friend bool operator==(HashMapEntry const& left, HashMapEntry const& right) {
      return left.key_ == right.key_ && left.value_ == right.value_;
   }

 private:
   K key_;
   V value_;
};

template <class K, class V>
struct ZANDOR_EXPORT HashMapTraits {
   using Slot = HashMapEntry<K, V>;
   using Key = K;
   static std::uint32_t hash(K const& key) { return hashOf(key, collectionHashSeed()); }
   static K const& key(Slot const& slot) { return slot.key(); }
   static bool less(K const& left, K const& right) { return left < right; }
   static bool equal(K const& left, K const& right) { return left == right; }
};

/// A map whose order depends only on its keys and the process's hash seed: by hash, then by `<` of the keys.
/// K has hashOf(key, seed), == and <. V may be move-only; moving K and V must not throw.
template <class K, class V>
class ZANDOR_EXPORT HashMap {
   using Table = HashTable<HashMapTraits<K, V>>;

 public:
   using Entry = HashMapEntry<K, V>;
   using Cursor = typename Table::template Cursor<false>;
   using ConstCursor = typename Table::template Cursor<true>;

   std::size_t size() const { return table_.size(); }
   bool empty() const { return table_.empty(); }
   bool has(K const& key) const { return table_.has(key); }

   /// The heap memory held by the map itself, without what keys and values hold.
   std::size_t bytes() const { return table_.bytes(); }

   /// The value of the key, or nullptr. The pointer is good until the map changes.
   V* find(K const& key) {
      Entry* entry = table_.find(key);
      return entry ? &entry->value() : nullptr;
   }
   V const* find(K const& key) const {
      Entry const* entry = table_.find(key);
      return entry ? &entry->value() : nullptr;
   }

   /// Adds the key with that value and returns the value's place and true; an existing key keeps its value,
   /// whose place is returned with false.
   std::pair<V*, bool> insert(K key, V value) {
      auto [entry, isNew] = table_.insert(Entry(std::move(key), std::move(value)));
      return {&entry->value(), isNew};
   }

   /// Sets the value of the key, adding the key if need be; returns whether it was added. A replaced value is
   /// destroyed last and may change the map as it goes.
   bool valueIs(K key, V value) {
      Entry fresh(std::move(key), std::move(value));
      auto [entry, isNew] = table_.insert(std::move(fresh));
      if (!isNew) {
         using std::swap;
         // The table leaves alone what it does not take. NOLINTNEXTLINE(bugprone-use-after-move)
         swap(entry->value(), fresh.value());
      }
      return isNew;
   }

   /// Removes the key; returns whether it was there. Its value is destroyed last and may change the map as it
   /// goes.
   bool erase(K const& key) { return table_.erase(key); }

   /// Removes everything and gives the memory back. Values may change the map as they go.
   void clear() { table_.clear(); }

   /// Makes room for `count` keys in all.
   void reserve(std::size_t count) { table_.reserve(count); }

   void swap(HashMap& other) noexcept { table_.swap(other.table_); }

   /// A cursor at the first element, which outlives any change of the map's contents.
   Cursor iterator() { return table_.iterator(); }
   ConstCursor iterator() const { return table_.iterator(); }

   /// Plain iteration, for loops that do not add or remove keys.
   auto begin() { return table_.begin(); }
   auto end() { return table_.end(); }
   auto begin() const { return table_.begin(); }
   auto end() const { return table_.end(); }

   friend bool operator==(HashMap const& left, HashMap const& right) { return left.table_ == right.table_; }

 private:
   Table table_;
};

/// A collection has no text of its own.
template <class K, class V>
void
appendText(Pelm::String& out, HashMap<K, V> const&) {
   out.append("None");
}

} // namespace Nuv

template <class K, class V>
struct std::tuple_size<Nuv::HashMapEntry<K, V>> : std::integral_constant<std::size_t, 2> {};

template <class K, class V>
struct std::tuple_element<0, Nuv::HashMapEntry<K, V>> {
   using type = K const;
};

template <class K, class V>
struct std::tuple_element<1, Nuv::HashMapEntry<K, V>> {
   using type = V;
};
