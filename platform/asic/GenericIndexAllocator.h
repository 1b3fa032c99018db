#pragma once

#include "platform/asic/Index.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/HashTable.h"
#include "platform/nuv/TypeInfo.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace Asic {

class SwTable;

/// Gives out hardware indices by key. Keys are values of any type that has a descriptor: the allocator keeps
/// its own copy. Tables that share an allocator may use one key together: it holds what it was given until
/// the last of them has released it. Tables only tell users apart: an allocator never calls them. Who needs
/// indices without being a table gives none.
class ZANDOR_EXPORT GenericIndexAllocator : public Nuv::Object {
 public:
   /// A key as it is passed in and handed back: its type and its place.
   struct Key {
      Nuv::NuvType const* type{};
      void const* value{};

      explicit operator bool() const { return type != nullptr; }
   };

   /// What a key holds: `length` indices from `base` on.
   struct Holding {
      Key key;
      Index base{invalidIndex};
      Index length{};
   };

   ~GenericIndexAllocator() override;

   static constexpr auto attributeList() {
      return std::tuple(Nuv::attribute("name", &GenericIndexAllocator::name),
                        Nuv::attribute("numEntries", &GenericIndexAllocator::numEntries),
                        Nuv::attribute("initialized", &GenericIndexAllocator::initialized));
   }

   Pelm::String const& name() const { return name_; }

   Index numEntries() const { return numEntries_; }

   /// Sets the number of indices, from 0. It may change at any time, but not leave out an index that is held.
   void numEntriesIs(Index number);

   bool initialized() const { return initialized_; }
   void initializedIs(bool initialized) { initialized_ = initialized; }

   /// The index, or the first one of the run, that the key holds; the invalid index when it holds none.
   Index indexForKey(Nuv::NuvType const& type, void const* key) const;

   /// Whether the key holds what begins at `index`, used by `table` if one is given. Quick: it asks who is
   /// there.
   bool holdsAt(Index index, Nuv::NuvType const& type, void const* key, SwTable const* table = nullptr) const;

   /// Whether what some key holds begins at `index`.
   bool isHeldAt(Index index) const { return index < holderAt_.size() && holderAt_[index]; }

   /// The allocator's own copy of a key, good as long as it holds something; no key when it holds nothing.
   Key getKey(Nuv::NuvType const& type, void const* key) const;

   /// The holder of an index, by itself or in a run; without one, no key. Finding who holds an index inside
   /// of a run takes a step for each index before it in the run.
   Holding holdingAt(Index index) const;
   Key keyForIndex(Index index) const { return holdingAt(index).key; }

   /// All that is held, in the order of indices. Goes through all indices.
   std::vector<Holding> holdings() const;

   /// Whether nobody but `table` uses the key, so that its release would free what it holds.
   bool canReleaseIndex(Key const& key, SwTable const* table) const;

   /// `table` uses the key no longer; the last one's release frees what it holds. False when it did not use
   /// it.
   bool releaseIndexForKey(Nuv::NuvType const& type, void const* key, SwTable const* table = nullptr);

   /// The same for the key whose indices begin at `index`, without a look-up; false when there is none.
   bool releaseIndexAt(Index index, SwTable const* table);

   /// The same for a table, which must not be null. An allocator that is not shared frees at once what the
   /// key holds, whoever uses it.
   bool releaseIndexFromTable(Nuv::NuvType const& type, void const* key, SwTable const* table);

   /// The table's attribute of that name holds the allocator.
   void setTableAttr(SwTable const* table, Pelm::StringView attr);
   /// The attribute; empty for a table that did not name one.
   Pelm::StringView tableAttr(SwTable const* table) const;

   /// `table`, of type `tableType`, shares the allocator from now on. The chip's registry says so.
   void sharerIs(Nuv::FwkType tableType, SwTable const* table);
   /// How many tables share the allocator. One that is not shared has none.
   std::size_t sharers() const { return sharers_.size(); }
   /// Whether a table of that type shares it.
   bool hasSharerOf(Nuv::FwkType tableType) const;

   /// The table goes away: it shares the allocator no longer and gives back whatever it uses. Says whether
   /// anybody still shares it.
   bool tableDel(SwTable const* table);

   /// Indices that are held or reserved, and those that can be given out.
   virtual Index used() const = 0;
   Index free() const { return numEntries_ - used(); }

   /// Indices that are kept back from everybody; an index that is held while it is reserved counts here too.
   virtual Index reserved() const { return 0; }

   /// How many runs the free indices form, and the length of the longest.
   virtual Index freeRuns() const = 0;
   virtual Index largestFreeRun() const = 0;

   /// The most indices that were ever used at once.
   Index highWaterMark() const { return highWaterMark_; }

   /// How many keys hold something.
   std::size_t holders() const { return holders_.size(); }

 protected:
   explicit GenericIndexAllocator(Pelm::String name);

   /// What the key holds already, which `table` uses from now on too, or else the lowest `length` indices
   /// that are free; the invalid index when there are none.
   Index acquire(Nuv::NuvType const& type, void const* key, Index length, SwTable const* table);

   /// The same for one index alone. False, with nothing changed, when the key cannot have it.
   bool acquireAt(Index index, Nuv::NuvType const& type, void const* key, SwTable const* table);

   /// To be called when indices were taken otherwise.
   void usedIsHigher() { highWaterMark_ = std::max(highWaterMark_, used()); }

 private:
   struct Holder;

   struct HolderTraits {
      using Slot = std::unique_ptr<Holder>;
      using Key = GenericIndexAllocator::Key;
      static std::uint32_t hash(Key const& key);
      static Key const& key(Slot const& slot);
      static bool less(Key const& a, Key const& b);
      static bool equal(Key const& a, Key const& b);
   };

   struct Sharer {
      Nuv::FwkType type;
      SwTable const* table;
   };

   struct TableAttr {
      SwTable const* table;
      Pelm::String attr;
   };

   /// Where `length` free indices are, the lowest; the invalid index when there are none.
   virtual Index doFind(Index length) const = 0;
   virtual bool doIsFree(Index index) const = 0;
   virtual void doTake(Index base, Index length) = 0;
   virtual void doRelease(Index base, Index length) = 0;
   virtual void doNumEntriesIs(Index number) = 0;

   Holder* find(Nuv::NuvType const& type, void const* key, std::uint32_t hash) const;
   void holderIs(Nuv::NuvType const& type, void const* key, std::uint32_t hash, Index base, Index length,
                 SwTable const* table);
   bool release(Holder& holder, SwTable const* table);
   void holderDel(Holder& holder);
   Index heldEnd() const;

   Pelm::String name_;
   Index numEntries_{};
   Index highWaterMark_{};
   Index longestHeld_{}; // of all times
   bool initialized_{};
   Nuv::HashTable<HolderTraits> holders_;
   std::vector<Holder*> holderAt_;
   std::vector<Sharer> sharers_;
   std::vector<TableAttr> tableAttrs_;
};

} // namespace Asic
