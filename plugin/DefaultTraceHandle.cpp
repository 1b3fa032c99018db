#include "plugin/DefaultTraceHandle.h"

namespace ZandorL3Tunnel {

Trace::TraceHandle&
_defaultTraceHandle() {
   static Trace::TraceHandle& handle = Trace::handleOf("L3UnderlayTunnel");
   return handle;
}

} // namespace ZandorL3Tunnel
