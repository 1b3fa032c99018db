#include "platform/asic/FirstFreeIndexAllocator.h"

namespace Asic {

Index
FirstFreeIndexAllocator::newIndexForKey(Nuv::NuvType const& type, void const* key) {
   if (Index held = indexForKey(type, key); held != invalidIndex) {
      return held;
   }
   auto index = taken_.lowestFree();
   if (!index) {
      return invalidIndex;
   }
   taken_.take(*index);
   holderIs(type, key, *index, 1);
   return *index;
}

void
FirstFreeIndexAllocator::reserveIndices(Index first, Index second) {
   for (Index index = first; index < second && index < numEntries(); ++index) {
      taken_.take(index);
   }
}

} // namespace Asic
