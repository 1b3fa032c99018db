#include "platform/asic/AnySizedBlockAllocator.h"

namespace Asic {

Index
AnySizedBlockAllocator::newIndexForBlock(Nuv::NuvType const& type, void const* block, Index length) {
   if (Index held = indexForKey(type, block); held != invalidIndex) {
      return held;
   }
   if (length == 0) {
      return 0;
   }
   auto base = runs_.firstFit(length);
   if (!base) {
      return invalidIndex;
   }
   runs_.take(*base, length);
   holderIs(type, block, *base, length);
   return *base;
}

} // namespace Asic
