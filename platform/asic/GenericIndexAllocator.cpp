#include "platform/asic/GenericIndexAllocator.h"

#include "platform/nuv/Assert.h"

namespace Asic {

GenericIndexAllocator::GenericIndexAllocator(Pelm::String name) : name_(std::move(name)) {}

GenericIndexAllocator::~GenericIndexAllocator() = default;

GenericIndexAllocator::Holder::Holder(Nuv::NuvType const& type, void const* value, Index theBase,
                                      Index theLength)
    : key{&type, type.copy(value)}, base(theBase), length(theLength) {}

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
   numEntries_ = number;
   doGrow(number);
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

bool
GenericIndexAllocator::releaseIndexForKey(Nuv::NuvType const& type, void const* key) {
   auto* slot = holders_.find({&type, key});
   if (!slot) {
      return false;
   }
   Index base = (*slot)->base;
   Index length = (*slot)->length;
   if (length > 0) {
      holderAt_[base] = nullptr;
      doRelease(base, length);
   }
   // The caller's key may be the allocator's own copy, which ends here.
   holders_.erase({&type, key});
   return true;
}

void
GenericIndexAllocator::holderIs(Nuv::NuvType const& type, void const* key, Index base, Index length) {
   auto holder = std::make_unique<Holder>(type, key, base, length);
   if (length > 0) {
      if (holderAt_.size() <= base) {
         holderAt_.resize(base + 1);
      }
      holderAt_[base] = holder.get();
   }
   holders_.insert(std::move(holder));
}

} // namespace Asic
