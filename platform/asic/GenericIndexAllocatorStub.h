#pragma once

#include "platform/asic/GenericIndexAllocator.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// How a table comes by an allocator that it shares with other tables of its chip.
struct ZANDOR_EXPORT GenericIndexAllocatorStub {
   /// The chip's allocator of type `allocatorType`, made on first request, which `table`, of type
   /// `tableType`, shares from now on. Null when the table knows no chip yet, or no allocator of that type is
   /// registered.
   static Nuv::Ptr<GenericIndexAllocator> createSharedAllocator(Nuv::FwkType allocatorType,
                                                                Nuv::FwkType tableType, SwTable const* table);

   /// The table gives its share back, and all that it holds.
   static void freeSharedAllocator(Nuv::FwkType allocatorType, Nuv::FwkType tableType, SwTable const* table);
};

} // namespace Asic
