#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/AllSteps.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"
#include "platform/nuv/HashTable.h"
#include "platform/nuv/Ptr.h"

#include <vector>

namespace ZandorL3Tunnel {

/// A table's handles by key, in canonical order. It finds handles and owns none: what a table holds of a
/// handle is a reference of its own, and the key lives in the handle.
///
/// `HandleType` should have `key()` and a static `typeName()`; `KeyType` should be a value that hashes
/// itself.
template <class HandleType, class KeyType>
class ZANDOR_EXPORT HandleCollection {
 public:
   Nuv::Ptr<HandleType> find(KeyType const& key) const {
      auto const* slot = handles_.find(key);
      return slot ? Nuv::Ptr<HandleType>(*slot) : Nuv::Ptr<HandleType>();
   }

   /// The handle at `key`, or null, without holding it: for those who only look.
   HandleType const* peek(KeyType const& key) const {
      auto const* slot = handles_.find(key);
      return slot ? *slot : nullptr;
   }

   /// Asks the memory for what a look-up of `key` will read, and does not wait for it.
   void prefetch(KeyType const& key) const { handles_.prefetchHashed(Traits::hash(key)); }

   /// The handle at `key`, or a new one from `make()`, which the collection finds from now on. A new handle
   /// comes with the reference that its table holds.
   template <class Make>
   Nuv::Ptr<HandleType> findOrMake(KeyType const& key, Make&& make) {
      Nuv::Ptr<HandleType> made;
      auto [slot, isNew] = handles_.findOrInsertHashed(Traits::hash(key), key, [&] {
         made = make();
         return made.get();
      });
      if (!isNew) {
         return *slot;
      }
      made->referenceAdd();
      return made;
   }

   /// Finds the handle no longer; false when another one, or none, stands at its key.
   bool del(HandleType const& handle) {
      return handles_.eraseHashedIf(Traits::hash(handle.key()), handle.key(),
                                    [&](HandleType const* found) { return found == &handle; });
   }

   /// The handle at that address, or null. Walks the collection.
   Nuv::Ptr<Asic::SwTableBase::EntryHandle const> at(std::uintptr_t address) const {
      for (auto* handle : handles_) {
         Asic::SwTableBase::EntryHandle const* base = handle;
         if (reinterpret_cast<std::uintptr_t>(base) == address) {
            return base;
         }
      }
      return nullptr;
   }

   std::size_t size() const { return handles_.size(); }

   /// A cursor over the handles that stays good whatever happens to the collection: at the first one, or at
   /// that of `key` (at the end when there is none).
   auto iterator() const { return handles_.iterator(); }
   auto iterator(KeyType const& key) const { return handles_.iterator(key); }

   bool has(KeyType const& key) const { return handles_.has(key); }

   /// Whether that very object stands at its key.
   bool hasHandle(HandleType const& handle) const {
      auto const* slot = handles_.find(handle.key());
      return slot && *slot == &handle;
   }

   /// Empties the collection: every handle it had, held.
   std::vector<Nuv::Ptr<HandleType>> takeAll() {
      std::vector<Nuv::Ptr<HandleType>> taken(handles_.begin(), handles_.end());
      handles_.clear();
      return taken;
   }

   /// Calls `visit(handle)` for each handle in turn; it may change the collection in any way. Each handle is
   /// held while it is visited. An exception stops nothing; the first one leaves at the end.
   template <class Visit>
   void forEach(Visit&& visit) const {
      Nuv::AllSteps steps;
      for (auto at = handles_.iterator(); at; ++at) {
         Nuv::Ptr<HandleType> handle(*at);
         steps([&] { visit(*handle); });
         steps([&] { handle.detach()->referenceDel(); });
      }
      steps.finish();
   }

 private:
   struct Traits {
      using Slot = HandleType*;
      using Key = KeyType;
      static std::uint32_t hash(Key const& key) {
         static constexpr auto salt = Nuv::collectionSalt(HandleType::typeName());
         return Nuv::hashOf(key, Nuv::collectionHashSeed(salt));
      }
      static Key const& key(Slot const& slot) { return slot->key(); }
      static bool less(Key const& a, Key const& b) { return a < b; }
      static bool equal(Key const& a, Key const& b) { return a == b; }
   };

   Nuv::HashTable<Traits> handles_;
};

} // namespace ZandorL3Tunnel
