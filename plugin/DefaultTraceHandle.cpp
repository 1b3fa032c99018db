#include "plugin/DefaultTraceHandle.h"

namespace ZandorL3Tunnel {

constinit std::atomic<Trace::TraceHandle*> detail::defaultTraceHandle{nullptr};

Trace::TraceHandle&
_defaultTraceHandle() {
   static Trace::TraceHandle& handle = Trace::handleOf("L3UnderlayTunnel");
   detail::defaultTraceHandle.store(&handle, std::memory_order_release);
   return handle;
}

} // namespace ZandorL3Tunnel
