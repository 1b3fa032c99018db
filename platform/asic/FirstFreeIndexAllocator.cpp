#include "platform/asic/FirstFreeIndexAllocator.h"

#include <algorithm>

namespace Asic {

void
FirstFreeIndexAllocator::reserveIndices(Index first, Index second) {
   if (first >= second) {
      return;
   }
   Range joined{first, second};
   std::vector<Range> apart;
   for (auto range : reserved_) {
      if (range.second < joined.first || joined.second < range.first) {
         apart.push_back(range);
      } else {
         joined = {std::min(joined.first, range.first), std::max(joined.second, range.second)};
      }
   }
   auto place = std::find_if(apart.begin(), apart.end(),
                             [joined](Range range) { return joined.second < range.first; });
   apart.insert(place, joined);
   reserved_ = std::move(apart);
   takeReserved();
   usedIsHigher();
}

Index
FirstFreeIndexAllocator::reserved() const {
   Index number = 0;
   for (auto range : reserved_) {
      number += std::min(range.second, numEntries()) - std::min(range.first, numEntries());
   }
   return number;
}

bool
FirstFreeIndexAllocator::isReserved(Index index) const {
   return std::any_of(reserved_.begin(), reserved_.end(),
                      [index](Range range) { return range.first <= index && index < range.second; });
}

void
FirstFreeIndexAllocator::takeReserved() {
   for (auto range : reserved_) {
      for (Index index = range.first; index < std::min(range.second, taken_.size()); ++index) {
         taken_.take(index);
      }
   }
}

void
FirstFreeIndexAllocator::doNumEntriesIs(Index number) {
   if (number >= taken_.size()) {
      taken_.grow(number);
      takeReserved();
      return;
   }
   // Nothing is held there, so what is taken is reserved.
   for (Index index = number; index < taken_.size(); ++index) {
      taken_.give(index);
   }
   taken_.shrink(number);
}

void
FirstFreeIndexAllocator::doRelease(Index base, Index) {
   if (!isReserved(base)) {
      taken_.give(base);
   }
}

} // namespace Asic
