#pragma once

#include "platform/asic/Index.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/HashTable.h"
#include "platform/nuv/TypeInfo.h"

#include <memory>
#include <vector>

namespace Asic {

/// Gives out hardware indices by key. Keys are values of any type that has a descriptor: the allocator keeps
/// its own copy. Tables that share an allocator may use one key together: it holds what it was given until
/// the last of its users has released it.
class ZANDOR_EXPORT GenericIndexAllocator : public Nuv::Object {
 public:
   /// A key as it is passed in and handed back: its type and its place.
   struct Key {
      Nuv::NuvType const* type{};
      void const* value{};
   };

   ~GenericIndexAllocator() override;

   static constexpr auto attributeList() {
      return std::tuple(Nuv::attribute("name", &GenericIndexAllocator::name),
                        Nuv::attribute("numEntries", &GenericIndexAllocator::numEntries),
                        Nuv::attribute("initialized", &GenericIndexAllocator::initialized));
   }

   Pelm::String const& name() const { return name_; }

   Index numEntries() const { return numEntries_; }

   /// Sets the number of indices, from 0. It may grow at any time; it never shrinks.
   void numEntriesIs(Index number);

   bool initialized() const { return initialized_; }
   void initializedIs(bool initialized) { initialized_ = initialized; }

   /// The index, or the first one of the run, that the key holds; the invalid index when it holds none.
   Index indexForKey(Nuv::NuvType const& type, void const* key) const;

   /// The key that holds `index`, or holds the run that begins there; without one, a key of no type.
   Key keyForIndex(Index index) const;

   /// Whether nobody but `user` uses the key, so that its release would free what it holds.
   bool canReleaseIndex(Nuv::NuvType const& type, void const* key, void const* user) const;

   /// `user` uses the key no longer; the last one's release frees what it holds. False when it did not use
   /// it.
   bool releaseIndexForKey(Nuv::NuvType const& type, void const* key, void const* user = nullptr);

   /// Indices that are held or reserved, and those that are not.
   virtual Index used() const = 0;
   Index free() const { return numEntries_ - used(); }

   /// How many keys hold something.
   std::size_t holders() const { return holders_.size(); }

 protected:
   explicit GenericIndexAllocator(Pelm::String name);

   virtual void doGrow(Index number) = 0;
   virtual void doRelease(Index base, Index length) = 0;

   /// What the key holds already, which `user` uses from now on too; the invalid index when it holds nothing.
   Index heldFor(Nuv::NuvType const& type, void const* key, void const* user);

   void holderIs(Nuv::NuvType const& type, void const* key, Index base, Index length, void const* user);

 private:
   struct Holder {
      Key key;
      Index base;
      Index length;
      std::vector<void const*> users;

      Holder(Nuv::NuvType const& type, void const* value, Index base, Index length, void const* user);
      ~Holder();
      Holder(Holder const&) = delete;
      Holder& operator=(Holder const&) = delete;
   };

   struct HolderTraits {
      using Slot = std::unique_ptr<Holder>;
      using Key = GenericIndexAllocator::Key;
      static std::uint32_t hash(Key const& key);
      static Key const& key(Slot const& slot) { return slot->key; }
      static bool less(Key const& a, Key const& b);
      static bool equal(Key const& a, Key const& b);
   };

   Pelm::String name_;
   Index numEntries_{};
   bool initialized_{};
   Nuv::HashTable<HolderTraits> holders_;
   std::vector<Holder*> holderAt_;
};

} // namespace Asic
