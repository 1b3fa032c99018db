#pragma once

#include "platform/asic/SharedAllocators.h"

namespace Asic {

/// What a table must know of the chip that it is for.
struct ChipInfo {
   Nuv::Ptr<SharedAllocators> sharedAllocators;
};

} // namespace Asic
