#include "agent/tests/live/FewestRows.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace L3TunnelAgent::Live {

namespace {

struct InUse {
   std::set<TrueVias> sets{};
   std::set<TrueVia> nextHops{};
   std::set<std::string> interfaces{};

   explicit InUse(Destinations const& destinations) {
      for (auto const& [unused, vias] : destinations) {
         if (!vias.empty()) {
            sets.insert(vias);
            nextHops.insert(vias.begin(), vias.end());
         }
      }
      for (auto const& via : nextHops) {
         interfaces.insert(via.source + (via.tagged.value_or(false) ? std::to_string(*via.vlan) : ""));
      }
   }
};

/// What is in one of the two alone.
template <typename Value>
std::set<Value>
changed(std::set<Value> const& before, std::set<Value> const& after) {
   std::set<Value> result;
   std::set_symmetric_difference(before.begin(), before.end(), after.begin(), after.end(),
                                 std::inserter(result, result.end()));
   return result;
}

TrueVias
viasOf(Destinations const& destinations, std::string const& address) {
   auto const found = destinations.find(address);
   return found == destinations.end() ? TrueVias() : found->second;
}

} // namespace

std::size_t
fewestRows(Destinations const& before, Destinations const& after) {
   InUse const was(before);
   InUse const is(after);
   std::size_t rows = 0;
   for (auto const& set : changed(was.sets, is.sets)) {
      rows += set.size();
   }
   std::set<std::string> addresses;
   for (auto const* each : {&before, &after}) {
      for (auto const& [address, unused] : *each) {
         addresses.insert(address);
      }
   }
   for (auto const& address : addresses) {
      rows += viasOf(before, address) != viasOf(after, address);
   }
   return rows + 2 * changed(was.nextHops, is.nextHops).size() +
          changed(was.interfaces, is.interfaces).size();
}

} // namespace L3TunnelAgent::Live
