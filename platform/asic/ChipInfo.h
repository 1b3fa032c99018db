#pragma once

#include "platform/asic/SharedAllocators.h"
#include "platform/nuv/Export.h"

namespace Asic {

/// What a table must know of the chip that it is for.
struct ZANDOR_EXPORT ChipInfo {
   Nuv::Ptr<SharedAllocators> sharedAllocators;
};

} // namespace Asic
