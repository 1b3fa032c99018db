#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/HashTable.h"
#include "platform/nuv/HashTableScan.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>

// The two ways through a HashTable, which includes this.
namespace Nuv {

/// A forward iterator; any change of the table invalidates it.
template <class Traits>
template <bool isConst>
class ZANDOR_EXPORT HashTable<Traits>::Position {
 public:
   using iterator_category = std::forward_iterator_tag;
   using value_type = Slot;
   using difference_type = std::ptrdiff_t;
   using pointer = std::conditional_t<isConst, Slot const*, Slot*>;
   using reference = std::conditional_t<isConst, Slot const&, Slot&>;

   Position() = default;

   reference operator*() const { return slots_[at_]; }
   pointer operator->() const { return slots_ + at_; }

   Position& operator++() {
      // Whether a place is taken cannot be foretold, so the places are looked at many together.
      while (taken_ == 0) {
         if (capacity_ - next_ <= scanned) {
            at_ = capacity_;
            return *this;
         }
         next_ += scanned;
         taken_ = detail::takenOf(hashes_ + next_, capacity_ - next_);
      }
      at_ = next_ + std::uint32_t(std::countr_zero(taken_));
      taken_ &= taken_ - 1;
      return *this;
   }
   Position operator++(int) {
      Position before = *this;
      ++*this;
      return before;
   }

   bool operator==(Position const& other) const { return at_ == other.at_; }

 private:
   friend class HashTable;

   static constexpr std::uint32_t scanned = 64;

   /// The end.
   explicit Position(Storage const& store)
       : slots_(store.slots)
       , hashes_(store.hashes)
       , at_(store.capacity)
       , capacity_(store.capacity)
       , next_(store.capacity) {}

   static Position first(Storage const& store) {
      Position position(store);
      position.next_ = 0;
      position.taken_ = detail::takenOf(store.hashes, store.capacity);
      return ++position;
   }

   pointer slots_ = nullptr;
   std::uint32_t const* hashes_ = nullptr;
   std::uint32_t at_ = 0;
   std::uint32_t capacity_ = 0;
   // The places from next_ on, as far as scanned, that are taken and not yet visited.
   std::uint32_t next_ = 0;
   std::uint64_t taken_ = 0;
};

/// A cursor: its place is a hash and a copy of a key, so it goes on from there whatever was inserted, erased
/// or cleared meanwhile. It meets every element that is there from its first step to its last exactly once,
/// and never goes back.
///
/// When the element at its place has been erased, the cursor is true as long as a greater one is there;
/// reading it then moves its place to that element, and ++ without reading goes to that element too. Once ++
/// has gone past the last element, the cursor stays at the end for good.
template <class Traits>
template <bool isConst>
class ZANDOR_EXPORT HashTable<Traits>::Cursor {
 public:
   using Table = std::conditional_t<isConst, HashTable const, HashTable>;
   using Element = std::conditional_t<isConst, Slot const, Slot>;

   explicit Cursor(Table& table) : table_(&table), changes_(table.changes_) { arriveAt(table.nextTaken(0)); }

   Cursor(Table& table, Key const& key) : table_(&table), changes_(table.changes_) {
      auto [at, found] = table.seek(stored(Traits::hash(key)), key);
      arriveAt(found ? at : table.store_.capacity);
   }

   /// Whether there is an element to read.
   explicit operator bool() const {
      if (!key_) {
         return false;
      }
      catchUp();
      return at_ < table_->store_.capacity;
   }

   /// The element; only while the cursor is true.
   Element& operator*() const {
      catchUp();
      if (!exact_) {
         arriveAt(at_);
      }
      return table_->store_.slots[at_];
   }
   Element* operator->() const { return &**this; }

   /// Goes to the next greater element, or to the end. At the end, stays there.
   Cursor& operator++() {
      if (key_) {
         catchUp();
         arriveAt(exact_ ? table_->nextTaken(at_ + 1) : at_);
      }
      return *this;
   }

 private:
   void catchUp() const {
      if (changes_ == table_->changes_) {
         return;
      }
      auto [at, found] = table_->seek(hash_, *key_);
      at_ = found ? at : table_->nextTaken(at);
      exact_ = found;
      changes_ = table_->changes_;
   }

   void arriveAt(std::uint32_t at) const {
      if (at >= table_->store_.capacity) {
         key_.reset();
         return;
      }
      Key const& key = Traits::key(table_->store_.slots[at]);
      if constexpr (std::is_copy_assignable_v<Key>) {
         key_ = key;
      } else {
         key_.emplace(key);
      }
      hash_ = table_->store_.hashes[at];
      at_ = at;
      exact_ = true;
   }

   Table* table_;
   mutable std::uint64_t changes_;
   mutable std::uint32_t at_ = 0;
   mutable std::uint32_t hash_ = 0;
   // Whether the element at at_ is that of the place, rather than the next greater one.
   mutable bool exact_ = false;
   mutable std::optional<Key> key_;
};

} // namespace Nuv
