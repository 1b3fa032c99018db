#pragma once

#include "platform/asic/ChipInfo.h"
#include "platform/nuv/Export.h"

namespace ZandorCentral {

/// What an agent knows of one chip: what tables must know, as far as they are concerned.
struct ZANDOR_EXPORT ChipInfo : Asic::ChipInfo {};

} // namespace ZandorCentral
