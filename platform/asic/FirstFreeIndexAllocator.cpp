#include "platform/asic/FirstFreeIndexAllocator.h"

#include <algorithm>

namespace Asic {

Index
FirstFreeIndexAllocator::newIndexForKey(Nuv::NuvType const& type, void const* key, void const* user) {
   if (Index held = heldFor(type, key, user); held != invalidIndex) {
      return held;
   }
   auto index = taken_.lowestFree();
   if (!index) {
      return invalidIndex;
   }
   holderIs(type, key, *index, 1, user);
   taken_.take(*index);
   return *index;
}

void
FirstFreeIndexAllocator::reserveIndices(Index first, Index second) {
   Range range{first, second};
   if (first < second && std::find(reserved_.begin(), reserved_.end(), range) == reserved_.end()) {
      reserved_.push_back(range);
      takeReserved(range);
   }
}

void
FirstFreeIndexAllocator::takeReserved(Range range) {
   for (Index index = range.first; index < range.second && index < taken_.size(); ++index) {
      taken_.take(index);
   }
}

void
FirstFreeIndexAllocator::doGrow(Index number) {
   taken_.grow(number);
   for (auto range : reserved_) {
      takeReserved(range);
   }
}

void
FirstFreeIndexAllocator::doRelease(Index base, Index) {
   bool isReserved = std::any_of(reserved_.begin(), reserved_.end(),
                                 [base](Range range) { return range.first <= base && base < range.second; });
   if (!isReserved) {
      taken_.give(base);
   }
}

} // namespace Asic
