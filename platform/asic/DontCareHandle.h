#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/Export.h"

namespace SwTableWorkaround {

/// A handle that names no entry: complete, at `index`, of no table. One object per index for the life of the
/// process, so entries that do not care are equal.
ZANDOR_EXPORT Nuv::Ptr<Asic::SwTableBase::EntryHandle const> dontCareHandle(Asic::Index index);

/// The don't-care handle at that address, or null.
ZANDOR_EXPORT Nuv::Ptr<Asic::SwTableBase::EntryHandle const> dontCareHandleAt(std::uintptr_t address);

} // namespace SwTableWorkaround
