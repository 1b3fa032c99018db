#pragma once

#include "platform/nuv/Export.h"
#include "platform/trace/Duolog.h"

#include <atomic>

namespace ZandorL3Tunnel {

/// The library's one trace handle, "L3UnderlayTunnel", made on first use.
ZANDOR_EXPORT Trace::TraceHandle& _defaultTraceHandle();

namespace detail {

/// The same once it is made.
ZANDOR_EXPORT extern constinit std::atomic<Trace::TraceHandle*> defaultTraceHandle;

} // namespace detail

/// The same without a call.
inline Trace::TraceHandle&
defaultTraceHandle() {
   auto* made = detail::defaultTraceHandle.load(std::memory_order_acquire);
   return made ? *made : _defaultTraceHandle();
}

/// Levels of the library's text trace.
namespace TraceLevel {

inline constexpr unsigned programmer = 4; ///< what the programmer is asked and decides
inline constexpr unsigned write = 5;      ///< entries written and removed
inline constexpr unsigned resolve = 6;    ///< entries that wait and resolve, indices, clean-up
inline constexpr unsigned state = 7;      ///< entry states
inline constexpr unsigned hardware = 8;   ///< rows

} // namespace TraceLevel

} // namespace ZandorL3Tunnel
