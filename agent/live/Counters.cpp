#include "agent/live/Counters.h"

#include <algorithm>

namespace L3TunnelAgent {

void
ReactionTimes::add(Time time) {
   double const seconds = std::chrono::duration<double>(time).count();
   auto const bucket = std::lower_bound(bounds.begin(), bounds.end(), seconds) - bounds.begin();
   if (static_cast<std::size_t>(bucket) < bounds.size()) {
      ++buckets_[static_cast<std::size_t>(bucket)];
   }
   ++count_;
   sum_ += time;
   longest_ = std::max(longest_, time);
   last_ = time;
}

} // namespace L3TunnelAgent
