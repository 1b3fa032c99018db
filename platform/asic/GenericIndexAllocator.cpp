#include "platform/asic/GenericIndexAllocator.h"

#include "platform/nuv/Assert.h"

#include <algorithm>

namespace Asic {

GenericIndexAllocator::GenericIndexAllocator(Pelm::String name) : name_(std::move(name)) {}

GenericIndexAllocator::~GenericIndexAllocator() = default;

GenericIndexAllocator::Holder::Holder(Nuv::NuvType const& type, void const* value, Index theBase,
                                      Index theLength, void const* user)
    : key{&type, type.copy(value)}, base(theBase), length(theLength), users{user} {}

GenericIndexAllocator::Holder::~Holder() {
   key.type->destroy(const_cast<void*>(key.value));
}

std::uint32_t
GenericIndexAllocator::HolderTraits::hash(Key const& key) {
   static constexpr auto salt = Nuv::collectionSalt("Asic::GenericIndexAllocator");
   return key.type->hash(key.value, Nuv::collectionHashSeed(salt));
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
   NUV_ASSERT(number >= numEntries_, name_);
   doGrow(number);
   numEntries_ = number;
}

Index
GenericIndexAllocator::indexForKey(Nuv::NuvType const& type, void const* key) const {
   auto const* slot = holders_.find({&type, key});
   return slot ? (*slot)->base : invalidIndex;
}

GenericIndexAllocator::Key
GenericIndexAllocator::keyForIndex(Index index) const {
   auto const* holder = index < holderAt_.size() ? holderAt_[index] : nullptr;
   return holder ? holder->key : Key{};
}

Index
GenericIndexAllocator::heldFor(Nuv::NuvType const& type, void const* key, void const* user) {
   auto* slot = holders_.find({&type, key});
   if (!slot) {
      return invalidIndex;
   }
   auto& users = (*slot)->users;
   if (std::find(users.begin(), users.end(), user) == users.end()) {
      users.push_back(user);
   }
   return (*slot)->base;
}

bool
GenericIndexAllocator::canReleaseIndex(Nuv::NuvType const& type, void const* key, void const* user) const {
   auto const* slot = holders_.find({&type, key});
   return slot && (*slot)->users.size() == 1 && (*slot)->users.front() == user;
}

bool
GenericIndexAllocator::releaseIndexForKey(Nuv::NuvType const& type, void const* key, void const* user) {
   auto* slot = holders_.find({&type, key});
   if (!slot || std::erase((*slot)->users, user) == 0) {
      return false;
   }
   if (!(*slot)->users.empty()) {
      return true;
   }
   holderAt_[(*slot)->base] = nullptr;
   doRelease((*slot)->base, (*slot)->length);
   // The caller's key may be the allocator's own copy, which ends here.
   holders_.erase({&type, key});
   return true;
}

void
GenericIndexAllocator::holderIs(Nuv::NuvType const& type, void const* key, Index base, Index length,
                                void const* user) {
   if (holderAt_.size() <= base) {
      holderAt_.resize(base + 1);
   }
   auto inserted = holders_.insert(std::make_unique<Holder>(type, key, base, length, user));
   holderAt_[base] = inserted.first->get();
}

} // namespace Asic
