#include "platform/asic/GenericIndexAllocator.h"

#include "platform/nuv/Assert.h"

#include <algorithm>

namespace Asic {

/// A key and what it holds. Nearly every key has one user.
struct GenericIndexAllocator::Holder : Nuv::Pooled {
   Key key;
   Index base;
   Index length;
   SwTable const* user;
   std::unique_ptr<std::vector<SwTable const*>> others; // mostly nobody
   std::uint32_t hash;

   Holder(Nuv::NuvType const& type, void const* value, std::uint32_t keyHash, Index theBase, Index theLength,
          SwTable const* table)
       : key{&type, type.copy(value)}, base(theBase), length(theLength), user(table), hash(keyHash) {}
   ~Holder() { key.type->destroy(const_cast<void*>(key.value)); }
   Holder(Holder const&) = delete;
   Holder& operator=(Holder const&) = delete;

   bool hasUser(SwTable const* table) const {
      return user == table || (others && std::ranges::find(*others, table) != others->end());
   }

   void userIs(SwTable const* table) {
      if (hasUser(table)) {
         return;
      }
      if (!others) {
         others = std::make_unique<std::vector<SwTable const*>>();
      }
      others->push_back(table);
   }

   /// Takes a user away: whether it was one.
   bool userDel(SwTable const* table) {
      if (user != table) {
         return others && std::erase(*others, table) != 0;
      }
      user = others->back();
      others->pop_back();
      return true;
   }

   bool isSoleUser(SwTable const* table) const { return user == table && (!others || others->empty()); }
};

GenericIndexAllocator::GenericIndexAllocator(Pelm::String name) : name_(std::move(name)) {}

GenericIndexAllocator::~GenericIndexAllocator() = default;

std::uint32_t
GenericIndexAllocator::HolderTraits::hash(Key const& key) {
   static constexpr auto salt = Nuv::collectionSalt("Asic::GenericIndexAllocator");
   return key.type->hash(key.value, Nuv::collectionHashSeed(salt));
}

GenericIndexAllocator::Key const&
GenericIndexAllocator::HolderTraits::key(Slot const& slot) {
   return slot->key;
}

bool
GenericIndexAllocator::HolderTraits::less(Key const& a, Key const& b) {
   return *a.type == *b.type ? a.type->less(a.value, b.value) : a.type->name < b.type->name;
}

bool
GenericIndexAllocator::HolderTraits::equal(Key const& a, Key const& b) {
   return *a.type == *b.type && a.type->equal(a.value, b.value);
}

void
GenericIndexAllocator::numEntriesIs(Index number) {
   NUV_ASSERT(number >= heldEnd(), name_);
   doNumEntriesIs(number);
   numEntries_ = number;
   if (holderAt_.size() > number) {
      holderAt_.resize(number);
   }
   usedIsHigher();
}

/// The index after the last one that is held.
Index
GenericIndexAllocator::heldEnd() const {
   auto last = std::find_if(holderAt_.rbegin(), holderAt_.rend(), [](auto const* holder) { return holder; });
   return last == holderAt_.rend() ? 0 : (*last)->base + (*last)->length;
}

GenericIndexAllocator::Holder*
GenericIndexAllocator::find(Nuv::NuvType const& type, void const* key, std::uint32_t hash) const {
   auto const* slot = holders_.findHashed(hash, {&type, key});
   return slot ? slot->get() : nullptr;
}

Index
GenericIndexAllocator::indexForKey(Nuv::NuvType const& type, void const* key) const {
   auto const* holder = find(type, key, HolderTraits::hash({&type, key}));
   return holder ? holder->base : invalidIndex;
}

bool
GenericIndexAllocator::holdsAt(Index index, Nuv::NuvType const& type, void const* key,
                               SwTable const* table) const {
   auto const* holder = index < holderAt_.size() ? holderAt_[index] : nullptr;
   return holder && HolderTraits::equal(holder->key, {&type, key}) && (!table || holder->hasUser(table));
}

GenericIndexAllocator::Key
GenericIndexAllocator::getKey(Nuv::NuvType const& type, void const* key) const {
   auto const* holder = find(type, key, HolderTraits::hash({&type, key}));
   return holder ? holder->key : Key{};
}

GenericIndexAllocator::Holding
GenericIndexAllocator::holdingAt(Index index) const {
   if (index >= numEntries_ || doIsFree(index)) {
      return {};
   }
   Index lowest = index - std::min(index, longestHeld_);
   for (Index base = index;; --base) {
      if (auto const* holder = base < holderAt_.size() ? holderAt_[base] : nullptr) {
         bool isInside = index - base < holder->length;
         return isInside ? Holding{holder->key, holder->base, holder->length} : Holding{};
      }
      if (base == lowest) {
         return {};
      }
   }
}

std::vector<GenericIndexAllocator::Holding>
GenericIndexAllocator::holdings() const {
   std::vector<Holding> all;
   all.reserve(holders_.size());
   for (auto const* holder : holderAt_) {
      if (holder) {
         all.push_back({holder->key, holder->base, holder->length});
      }
   }
   return all;
}

Index
GenericIndexAllocator::acquire(Nuv::NuvType const& type, void const* key, Index length,
                               SwTable const* table) {
   auto hash = HolderTraits::hash({&type, key});
   if (auto* holder = find(type, key, hash)) {
      holder->userIs(table);
      return holder->base;
   }
   Index base = doFind(length);
   if (base != invalidIndex) {
      holderIs(type, key, hash, base, length, table);
   }
   return base;
}

bool
GenericIndexAllocator::acquireAt(Index index, Nuv::NuvType const& type, void const* key,
                                 SwTable const* table) {
   auto hash = HolderTraits::hash({&type, key});
   if (auto* holder = find(type, key, hash)) {
      if (holder->base != index) {
         return false;
      }
      holder->userIs(table);
      return true;
   }
   if (index >= numEntries_ || !doIsFree(index)) {
      return false;
   }
   holderIs(type, key, hash, index, 1, table);
   return true;
}

void
GenericIndexAllocator::holderIs(Nuv::NuvType const& type, void const* key, std::uint32_t hash, Index base,
                                Index length, SwTable const* table) {
   if (holderAt_.size() <= base) {
      holderAt_.resize(
            std::max<std::size_t>(base + 1, std::min<std::size_t>(numEntries_, std::size_t(base) * 2)));
   }
   auto [slot, isNew] =
         holders_.insertHashed(hash, std::make_unique<Holder>(type, key, hash, base, length, table));
   holderAt_[base] = slot->get();
   longestHeld_ = std::max(longestHeld_, length);
   doTake(base, length);
   usedIsHigher();
}

bool
GenericIndexAllocator::canReleaseIndex(Key const& key, SwTable const* table) const {
   auto const* holder = key ? find(*key.type, key.value, HolderTraits::hash(key)) : nullptr;
   return holder && holder->isSoleUser(table);
}

bool
GenericIndexAllocator::releaseIndexForKey(Nuv::NuvType const& type, void const* key, SwTable const* table) {
   auto* holder = find(type, key, HolderTraits::hash({&type, key}));
   return holder && release(*holder, table);
}

bool
GenericIndexAllocator::releaseIndexAt(Index index, SwTable const* table) {
   return isHeldAt(index) && release(*holderAt_[index], table);
}

bool
GenericIndexAllocator::releaseIndexFromTable(Nuv::NuvType const& type, void const* key,
                                             SwTable const* table) {
   NUV_ASSERT_AS("SwTableAccessor", table, "table", name_);
   auto* holder = find(type, key, HolderTraits::hash({&type, key}));
   if (!holder) {
      return false;
   }
   if (sharers_.empty()) {
      holderDel(*holder);
      return true;
   }
   return release(*holder, table);
}

/// Takes a user away, and with the last one the holder.
bool
GenericIndexAllocator::release(Holder& holder, SwTable const* table) {
   if (holder.isSoleUser(table)) {
      holderDel(holder);
      return true;
   }
   return holder.userDel(table);
}

void
GenericIndexAllocator::holderDel(Holder& holder) {
   holderAt_[holder.base] = nullptr;
   doRelease(holder.base, holder.length);
   holders_.eraseHashed(holder.hash, holder.key);
}

void
GenericIndexAllocator::setTableAttr(SwTable const* table, Pelm::StringView attr) {
   auto found = std::find_if(tableAttrs_.begin(), tableAttrs_.end(),
                             [table](TableAttr const& known) { return known.table == table; });
   if (found == tableAttrs_.end()) {
      tableAttrs_.push_back({table, Pelm::String(attr)});
   } else {
      found->attr = attr;
   }
}

Pelm::StringView
GenericIndexAllocator::tableAttr(SwTable const* table) const {
   auto found = std::find_if(tableAttrs_.begin(), tableAttrs_.end(),
                             [table](TableAttr const& known) { return known.table == table; });
   return found == tableAttrs_.end() ? Pelm::StringView() : Pelm::StringView(found->attr);
}

void
GenericIndexAllocator::sharerIs(Nuv::FwkType tableType, SwTable const* table) {
   auto isTable = [table](Sharer const& sharer) { return sharer.table == table; };
   if (std::none_of(sharers_.begin(), sharers_.end(), isTable)) {
      sharers_.push_back({tableType, table});
   }
}

bool
GenericIndexAllocator::hasSharerOf(Nuv::FwkType tableType) const {
   return std::any_of(sharers_.begin(), sharers_.end(),
                      [tableType](Sharer const& sharer) { return sharer.type == tableType; });
}

bool
GenericIndexAllocator::tableDel(SwTable const* table) {
   for (std::size_t base = 0; base < holderAt_.size() && !holders_.empty(); ++base) {
      if (auto* holder = holderAt_[base]) {
         release(*holder, table);
      }
   }
   std::erase_if(tableAttrs_, [table](TableAttr const& known) { return known.table == table; });
   std::erase_if(sharers_, [table](Sharer const& sharer) { return sharer.table == table; });
   return !sharers_.empty();
}

} // namespace Asic
