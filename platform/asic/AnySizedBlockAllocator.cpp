#include "platform/asic/AnySizedBlockAllocator.h"

#include "platform/nuv/Assert.h"

namespace Asic {

Index
AnySizedBlockAllocator::newIndexForBlock(Nuv::NuvType const& type, void const* block, SwTable const* table) {
   NUV_ASSERT(type.size, Pelm::String(type.name));
   Index length = type.size(block);
   return length == 0 ? 0 : acquire(type, block, length, table);
}

void
AnySizedBlockAllocator::doNumEntriesIs(Index number) {
   if (number >= runs_.size()) {
      runs_.grow(number);
   } else {
      runs_.shrink(number);
   }
}

} // namespace Asic
