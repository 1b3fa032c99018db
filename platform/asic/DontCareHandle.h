#pragma once

#include "platform/asic/SwTableBase.h"

namespace SwTableWorkaround {

/// A handle that names no entry: complete, at `index`, of no table. One object per index for the life of the
/// process, so entries that do not care are equal.
Nuv::Ptr<Asic::SwTableBase::EntryHandle const> dontCareHandle(Asic::Index index);

} // namespace SwTableWorkaround
