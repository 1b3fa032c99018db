#include "platform/asic/AnySizedBlockAllocator.h"

namespace Asic {

Index
AnySizedBlockAllocator::newIndexForBlock(Nuv::NuvType const& type, void const* block, Index length,
                                         void const* user) {
   if (Index held = heldFor(type, block, user); held != invalidIndex) {
      return held;
   }
   if (length == 0) {
      return 0;
   }
   auto base = runs_.firstFit(length);
   if (!base) {
      return invalidIndex;
   }
   holderIs(type, block, *base, length, user);
   runs_.take(*base, length);
   return *base;
}

} // namespace Asic
