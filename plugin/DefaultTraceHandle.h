#pragma once

#include "platform/nuv/Export.h"
#include "platform/trace/Duolog.h"

namespace ZandorL3Tunnel {

/// The library's one trace handle, "L3UnderlayTunnel", made on first use.
ZANDOR_EXPORT Trace::TraceHandle& _defaultTraceHandle();

/// Levels of the library's text trace.
namespace TraceLevel {

inline constexpr unsigned programmer = 4; ///< what the programmer is asked and decides
inline constexpr unsigned write = 5;      ///< entries written and removed
inline constexpr unsigned resolve = 6;    ///< entries that wait and resolve, indices, clean-up
inline constexpr unsigned state = 7;      ///< entry states
inline constexpr unsigned hardware = 8;   ///< rows

} // namespace TraceLevel

} // namespace ZandorL3Tunnel
