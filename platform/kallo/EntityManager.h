#pragma once

#include "platform/nuv/EntityDirectory.h"
#include "platform/nuv/Export.h"

namespace Kallo {

/// The state database's entities, by path: what chips and agents tell each other.
class ZANDOR_EXPORT EntityManager : public Nuv::EntityDirectory {};

} // namespace Kallo
