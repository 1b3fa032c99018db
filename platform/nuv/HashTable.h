#pragma once

#include "platform/nuv/Export.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace Nuv {

/// A hash table whose order depends only on its elements and their hashes: ascending by hash, then by key.
/// The order in which elements came and went, growth and copying leave no trace in it. A hash of 0 counts
/// as 1.
///
/// Traits tells how to read a slot:
///
///    using Slot, using Key;
///    static std::uint32_t hash(Key const&);
///    static Key const& key(Slot const&);         // the key may live outside the slot
///    static bool less(Key const&, Key const&);   // a strict order of the keys
///    static bool equal(Key const&, Key const&);  // neither is less than the other
///
/// The high bits of the hash choose a slot's place, so they are the ones that have to be well spread. Keys
/// are read only to tell equal hashes apart and by a cursor that arrives at a slot. Slots need not be
/// copyable; moving one must not throw. A table that was never filled holds no memory.
///
/// The functions named `...Hashed` take the hash of the key, which must be what Traits::hash gives.
template <class Traits>
class ZANDOR_EXPORT HashTable {
 public:
   using Slot = typename Traits::Slot;
   using Key = typename Traits::Key;

   template <bool isConst>
   class Cursor;
   template <bool isConst>
   class Position;

   HashTable() = default;

   // Copying and comparing are not constrained, as a slot may hold a table of its own type, which is not
   // complete yet when a constraint would be checked.
   HashTable(HashTable const& other) : HashTable() {
      if (other.store_.size == 0) {
         return;
      }
      store_ = allocated(other.store_.shift, other.store_.capacity);
      for (std::uint32_t at = 0; at < store_.capacity; ++at) {
         if (std::uint32_t hash = other.store_.hashes[at]) {
            ::new (static_cast<void*>(store_.slots + at)) Slot(std::as_const(other.store_.slots[at]));
            store_.hashes[at] = hash;
            ++store_.size;
         }
      }
   }

   HashTable(HashTable&& other) noexcept { swap(other); }

   HashTable& operator=(HashTable const& other) {
      HashTable copy(other);
      swap(copy);
      return *this;
   }

   HashTable& operator=(HashTable&& other) noexcept {
      HashTable taken(std::move(other));
      swap(taken);
      return *this;
   }

   ~HashTable() {
      // What a slot's destructor inserts meanwhile has to go as well.
      while (store_.slots) {
         clear();
      }
   }

   std::size_t size() const { return store_.size; }
   bool empty() const { return store_.size == 0; }

   /// The heap memory held by the table itself.
   std::size_t bytes() const { return store_.slots ? allocationSize(store_.capacity) : 0; }

   /// The slot with that key, or nullptr. The pointer is good until the table changes.
   Slot* find(Key const& key) { return findHashed(Traits::hash(key), key); }
   Slot const* find(Key const& key) const { return findHashed(Traits::hash(key), key); }

   Slot* findHashed(std::uint32_t hash, Key const& key) {
      auto [at, found] = seek(stored(hash), key);
      return found ? store_.slots + at : nullptr;
   }
   Slot const* findHashed(std::uint32_t hash, Key const& key) const {
      auto [at, found] = seek(stored(hash), key);
      return found ? store_.slots + at : nullptr;
   }

   bool has(Key const& key) const { return find(key) != nullptr; }

   /// Asks the memory for what a look-up by that hash will read, and does not wait for it.
   void prefetchHashed(std::uint32_t hash) const {
      if (store_.slots) {
         std::uint32_t at = stored(hash) >> store_.shift;
         __builtin_prefetch(store_.hashes + at);
         __builtin_prefetch(store_.slots + at);
      }
   }

   /// Moves the slot in and returns its place and true; or, when its key is there already, leaves both the
   /// table and the argument alone and returns the existing slot and false. Throws std::bad_alloc or
   /// std::length_error, changing nothing, when the table cannot grow.
   std::pair<Slot*, bool> insert(Slot&& slot) {
      return insertHashed(Traits::hash(Traits::key(slot)), std::move(slot));
   }

   std::pair<Slot*, bool> insertHashed(std::uint32_t hash, Slot&& slot) {
      hash = stored(hash);
      auto [at, found] = seek(hash, Traits::key(slot));
      return found ? std::pair(store_.slots + at, false)
                   : std::pair(insertAt(at, hash, std::move(slot)), true);
   }

   /// The slot with that key and false, or else a new one from `make()`, with that key, and true. `make` must
   /// leave the table alone.
   template <class Make>
   std::pair<Slot*, bool> findOrInsertHashed(std::uint32_t hash, Key const& key, Make&& make) {
      hash = stored(hash);
      auto [at, found] = seek(hash, key);
      return found ? std::pair(store_.slots + at, false) : std::pair(insertAt(at, hash, make()), true);
   }

   /// Removes the slot with that key; returns whether there was one. The slot is destroyed last, so its
   /// destructor finds the table without it and may change the table.
   bool erase(Key const& key) { return eraseHashed(Traits::hash(key), key); }

   bool eraseHashed(std::uint32_t hash, Key const& key) {
      return eraseHashedIf(hash, key, [](Slot const&) { return true; });
   }

   /// The same for a slot of which `is(slot)` holds.
   template <class Is>
   bool eraseHashedIf(std::uint32_t hash, Key const& key, Is&& is) {
      auto [at, found] = seek(stored(hash), key);
      if (!found || !is(std::as_const(store_.slots[at]))) {
         return false;
      }
      [[maybe_unused]] Slot gone(std::move(store_.slots[at]));
      store_.slots[at].~Slot();
      closeGap(at);
      --store_.size;
      ++changes_;
      return true;
   }

   /// Removes all slots and gives the memory back. The table is empty before the first slot is destroyed;
   /// what the slots' destructors insert stays.
   void clear() {
      Storage gone = std::exchange(store_, Storage());
      ++changes_;
      release(gone);
   }

   /// Makes room for `count` slots in all. Equal leading bits of many hashes can still make the table grow.
   /// Throws as insert() does.
   void reserve(std::size_t count) {
      if (count <= limit(store_)) {
         return;
      }
      std::uint32_t shift = 32 - minHomeBits;
      while (shift > 0 && count > limit(shift)) {
         --shift;
      }
      relocate(shift, 0);
   }

   void swap(HashTable& other) noexcept {
      std::swap(store_, other.store_);
      ++changes_;
      ++other.changes_;
   }

   /// A cursor at the first slot. It stays good whatever happens to the contents, as long as the table lives.
   Cursor<false> iterator() { return Cursor<false>(*this); }
   Cursor<true> iterator() const { return Cursor<true>(*this); }

   /// The same at the slot with that key; at the end when there is none.
   Cursor<false> iterator(Key const& key) { return Cursor<false>(*this, key); }
   Cursor<true> iterator(Key const& key) const { return Cursor<true>(*this, key); }

   /// Plain iteration in the table's order, for loops that do not change the table.
   Position<false> begin() { return Position<false>::first(store_); }
   Position<false> end() { return Position<false>(store_); }
   Position<true> begin() const { return Position<true>::first(store_); }
   Position<true> end() const { return Position<true>(store_); }

   /// Whether both hold equal slots.
   friend bool operator==(HashTable const& left, HashTable const& right) {
      return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin());
   }

 private:
   // The slots lie in ascending order, each at its home or, when that is taken, as near behind it as the
   // order allows. Homes number a power of two and are chosen by the high bits of the hash; the tail behind
   // them takes what the last homes cannot. `hashes` is 0 where there is no slot, and has one more 0 at its
   // end.
   struct Storage {
      Slot* slots = nullptr;
      std::uint32_t* hashes = nullptr;
      std::uint32_t size = 0;
      std::uint32_t capacity = 0;
      std::uint32_t shift = 0;
   };

   struct Found {
      std::uint32_t at;
      bool found;
   };

   static constexpr std::uint32_t minHomeBits = 2;

   static std::uint32_t stored(std::uint32_t hash) { return hash ? hash : 1; }

   static std::uint64_t homes(std::uint32_t shift) { return std::uint64_t(1) << (32 - shift); }
   static std::uint64_t limit(std::uint32_t shift) { return homes(shift) - homes(shift) / 4; }
   static std::uint64_t limit(Storage const& store) { return store.slots ? limit(store.shift) : 0; }

   static std::size_t hashesOffset(std::size_t capacity) {
      std::size_t mask = alignof(std::uint32_t) - 1;
      return (capacity * sizeof(Slot) + mask) & ~mask;
   }

   static std::size_t allocationSize(std::size_t capacity) {
      return hashesOffset(capacity) + (capacity + 1) * sizeof(std::uint32_t);
   }

   static Storage allocated(std::uint32_t shift, std::uint64_t capacity) {
      constexpr std::uint64_t mostBytes = std::numeric_limits<std::ptrdiff_t>::max();
      constexpr std::uint64_t most = mostBytes / (sizeof(Slot) + sizeof(std::uint32_t)) - 2;
      if (capacity >= std::min<std::uint64_t>(0xffffffff, most)) {
         throw std::length_error("hash table too large");
      }
      std::size_t size = allocationSize(std::size_t(capacity));
      void* memory;
      if constexpr (alignof(Slot) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
         memory = ::operator new(size, std::align_val_t(alignof(Slot)));
      } else {
         memory = ::operator new(size);
      }
      Storage store;
      store.slots = static_cast<Slot*>(memory);
      store.hashes = reinterpret_cast<std::uint32_t*>(static_cast<char*>(memory) +
                                                      hashesOffset(std::size_t(capacity)));
      store.capacity = std::uint32_t(capacity);
      store.shift = shift;
      std::memset(store.hashes, 0, (std::size_t(capacity) + 1) * sizeof(std::uint32_t));
      return store;
   }

   static void release(Storage const& store) noexcept {
      if constexpr (!std::is_trivially_destructible_v<Slot>) {
         for (std::uint32_t at = 0, left = store.size; left != 0; ++at) {
            if (store.hashes[at]) {
               --left;
               store.slots[at].~Slot();
            }
         }
      }
      if constexpr (alignof(Slot) > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
         ::operator delete(static_cast<void*>(store.slots), std::align_val_t(alignof(Slot)));
      } else {
         ::operator delete(static_cast<void*>(store.slots));
      }
   }

   /// The slot of that key, or the place where it belongs: a gap or the first greater slot.
   Found seek(std::uint32_t hash, Key const& key) const {
      if (store_.size == 0) {
         return {store_.slots ? hash >> store_.shift : 0, false};
      }
      for (std::uint32_t at = hash >> store_.shift;; ++at) {
         std::uint32_t present = store_.hashes[at];
         if (present < hash) {
            if (present == 0) {
               return {at, false};
            }
         } else if (present > hash) {
            return {at, false};
         } else {
            Key const& other = Traits::key(store_.slots[at]);
            if (Traits::equal(other, key)) {
               return {at, true};
            }
            if (Traits::less(key, other)) {
               return {at, false};
            }
         }
      }
   }

   /// Moves a slot whose key is not there to `at`, where it belongs.
   Slot* insertAt(std::uint32_t at, std::uint32_t hash, Slot&& slot) {
      if (store_.size >= limit(store_)) {
         relocate(store_.slots ? store_.shift - 1 : 32 - minHomeBits, 0);
         at = seek(hash, Traits::key(slot)).at;
      }
      std::uint32_t end = at;
      while (store_.hashes[end]) {
         ++end;
      }
      if (end == store_.capacity) {
         std::uint64_t tail = store_.capacity - homes(store_.shift);
         relocate(store_.shift, store_.capacity + tail);
      }
      if (end != at) {
         openGap(at, end);
      }
      construct(at, std::move(slot));
      store_.hashes[at] = hash;
      ++store_.size;
      ++changes_;
      return store_.slots + at;
   }

   /// The first slot at `at` or behind it; the capacity when there is none.
   std::uint32_t nextTaken(std::uint32_t at) const {
      while (at < store_.capacity && store_.hashes[at] == 0) {
         ++at;
      }
      return at;
   }

   void construct(std::uint32_t at, Slot&& slot) noexcept {
      ::new (static_cast<void*>(store_.slots + at)) Slot(std::move(slot));
   }

   static void moveSlot(Slot* to, Slot* from) noexcept {
      ::new (static_cast<void*>(to)) Slot(std::move(*from));
      from->~Slot();
   }

   /// Moves the slots from `at` up to the gap at `end` by one.
   void openGap(std::uint32_t at, std::uint32_t end) noexcept {
      if constexpr (std::is_trivially_copyable_v<Slot>) {
         std::memmove(static_cast<void*>(store_.slots + at + 1), static_cast<void const*>(store_.slots + at),
                      std::size_t(end - at) * sizeof(Slot));
      } else {
         for (std::uint32_t to = end; to > at; --to) {
            moveSlot(store_.slots + to, store_.slots + to - 1);
         }
      }
      std::memmove(store_.hashes + at + 1, store_.hashes + at, std::size_t(end - at) * sizeof(std::uint32_t));
   }

   /// Moves the slots behind the gap at `at` back by one, up to the first that is at home or another gap.
   void closeGap(std::uint32_t at) noexcept {
      std::uint32_t end = at + 1;
      while (store_.hashes[end] && (store_.hashes[end] >> store_.shift) < end) {
         ++end;
      }
      if constexpr (std::is_trivially_copyable_v<Slot>) {
         std::memmove(static_cast<void*>(store_.slots + at), static_cast<void const*>(store_.slots + at + 1),
                      std::size_t(end - at - 1) * sizeof(Slot));
      } else {
         for (std::uint32_t to = at; to + 1 < end; ++to) {
            moveSlot(store_.slots + to, store_.slots + to + 1);
         }
      }
      std::memmove(store_.hashes + at, store_.hashes + at + 1,
                   std::size_t(end - at - 1) * sizeof(std::uint32_t));
      store_.hashes[end - 1] = 0;
   }

   /// Moves everything to new memory with those homes and at least that capacity.
   void relocate(std::uint32_t shift, std::uint64_t capacity) {
      if (shift == 0) {
         throw std::length_error("hash table too large");
      }
      std::uint64_t spare = std::min<std::uint64_t>(limit(shift) - 1, 16);
      std::uint64_t needed = homes(shift);
      std::uint64_t end = 0;
      for (std::uint32_t from = 0, left = store_.size; left != 0; ++from) {
         if (std::uint32_t hash = store_.hashes[from]) {
            --left;
            end = std::max<std::uint64_t>(end, hash >> shift) + 1;
         }
      }
      if (end > needed) {
         spare = std::max(spare, (end - needed) / 2);
         needed = end;
      }
      Storage next = allocated(shift, std::max(capacity, needed + spare));
      std::uint32_t to = 0;
      for (std::uint32_t from = 0, left = store_.size; left != 0; ++from) {
         if (std::uint32_t hash = store_.hashes[from]) {
            --left;
            to = std::max(to, hash >> shift);
            moveSlot(next.slots + to, store_.slots + from);
            next.hashes[to++] = hash;
         }
      }
      next.size = std::exchange(store_.size, 0);
      std::swap(store_, next);
      ++changes_;
      release(next);
   }

   Storage store_;
   std::uint64_t changes_ = 0;
};

} // namespace Nuv

#include "platform/nuv/HashTableIterators.h"
