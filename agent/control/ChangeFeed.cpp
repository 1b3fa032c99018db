#include "agent/control/ChangeFeed.h"

namespace L3TunnelAgent {

void
ChangeFeed::start() {
   if (!told_) {
      told_ = pictureOf(agent_);
   }
}

std::vector<Change>
ChangeFeed::changes(std::vector<IpAddress> const& addresses) {
   std::vector<Change> all;
   if (!told_) {
      return all;
   }
   for (auto const& address : addresses) {
      auto const found = told_->destinations.find(address);
      auto before = found == told_->destinations.end() ? std::nullopt : std::optional(found->second);
      auto after = pictureOf(agent_, address);
      if (before == after) {
         continue;
      }
      if (after) {
         told_->destinations.insert_or_assign(address, *after);
      } else {
         told_->destinations.erase(found);
      }
      all.push_back({.destination = address, .before = std::move(before), .after = std::move(after)});
   }
   return all;
}

} // namespace L3TunnelAgent
