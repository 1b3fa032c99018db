#pragma once

#include "platform/nuv/EntityDirectory.h"
#include "platform/nuv/Export.h"

namespace Local {

/// Entities that parts of one agent share, by path.
class ZANDOR_EXPORT EntityManager : public Nuv::EntityDirectory {};

} // namespace Local
