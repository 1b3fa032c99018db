#include "agent/Waiting.h"

#include "agent/Index.h"

namespace L3TunnelAgent {

Waiting::Place
Waiting::Place::after(Need const& need) {
   Need next = need;
   ++next.content;
   return {.need = next, .address = {}};
}

Waiting::Place
Waiting::Place::after(Need::Kind kind) {
   return {.need = {.kind = Need::Kind(std::uint8_t(kind) + 1)}, .address = {}};
}

void
Waiting::needIs(IpAddress const& address, Need const& need) {
   needDel(address);
   byNeed_[need].insert(address);
   needs_.emplace(address, need);
}

void
Waiting::needDel(IpAddress const& address) {
   auto const found = needs_.find(address);
   if (found != needs_.end()) {
      indexDel(byNeed_, found->second, address);
      needs_.erase(found);
   }
}

Need const*
Waiting::need(IpAddress const& address) const {
   auto const found = needs_.find(address);
   return found == needs_.end() ? nullptr : &found->second;
}

std::optional<Waiting::Place>
Waiting::next(Place const& place) const {
   auto at = byNeed_.lower_bound(place.need);
   if (at != byNeed_.end() && at->first == place.need && place.address) {
      auto const next = at->second.upper_bound(*place.address);
      if (next != at->second.end()) {
         return Place{.need = at->first, .address = *next};
      }
      ++at;
   }
   return at == byNeed_.end() ? std::nullopt
                              : std::optional(Place{.need = at->first, .address = *at->second.begin()});
}

bool
Waiting::isMet(Need const& need) {
   auto const found = byNeed_.find(need);
   if (found == byNeed_.end()) {
      return false;
   }
   auto const addresses = std::move(found->second);
   byNeed_.erase(found);
   for (auto const& address : addresses) {
      needs_[address] = {};
   }
   byNeed_[{}].insert(addresses.begin(), addresses.end());
   return true;
}

} // namespace L3TunnelAgent
