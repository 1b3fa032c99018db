#include "agent/KernelObjects.h"

#include <algorithm>
#include <linux/if.h>

namespace L3TunnelAgent {

bool
Link::isLoopback() const {
   return (flags & IFF_LOOPBACK) != 0;
}

bool
Link::isUp() const {
   return (flags & IFF_UP) != 0;
}

bool
Link::hasCarrier() const {
   return (flags & (IFF_RUNNING | IFF_LOWER_UP)) != 0;
}

bool
Route::isSame(Route const& other) const {
   return type == other.type && tos == other.tos && scope == other.scope && metric == other.metric &&
          nextHopId == other.nextHopId && preferredSource == other.preferredSource &&
          protocol == other.protocol &&
          std::equal(hops.begin(), hops.end(), other.hops.begin(), other.hops.end(),
                     [](NextHop const& a, NextHop const& b) { return a.isSame(b); });
}

} // namespace L3TunnelAgent
