#include "agent/PortVlans.h"

#include <algorithm>
#include <set>

namespace L3TunnelAgent {

namespace {

std::vector<VlanRange>
rangesOf(std::initializer_list<std::pair<std::uint16_t, std::uint16_t>> vlans) {
   std::vector<VlanRange> ranges;
   for (auto const& [vlan, flags] : vlans) {
      ranges.push_back({.first = vlan, .last = vlan, .flags = flags});
   }
   return ranges;
}

} // namespace

PortVlans::PortVlans(std::initializer_list<std::pair<std::uint16_t, std::uint16_t>> vlans)
    : PortVlans(rangesOf(vlans)) {}

// Settings change only where a range begins or has ended. Which ranges are there is kept from one such place
// to the next: the last one told counts.
PortVlans::PortVlans(std::vector<VlanRange> const& told) {
   struct Edge {
      unsigned vlan;
      std::size_t range;
      bool begins;
   };
   std::vector<Edge> edges;
   for (std::size_t at = 0; at < told.size(); ++at) {
      if (told[at].first <= told[at].last) {
         edges.push_back({told[at].first, at, true});
         edges.push_back({told[at].last + 1U, at, false});
      }
   }
   std::sort(edges.begin(), edges.end(), [](Edge const& a, Edge const& b) { return a.vlan < b.vlan; });
   std::set<std::size_t> open;
   unsigned from = 0;
   for (auto const& edge : edges) {
      if (!open.empty() && from < edge.vlan) {
         auto const flags = told[*open.rbegin()].flags;
         bool const goesOn =
               !ranges_.empty() && ranges_.back().last + 1U == from && ranges_.back().flags == flags;
         if (!goesOn) {
            ranges_.push_back({.first = std::uint16_t(from), .flags = flags});
         }
         ranges_.back().last = std::uint16_t(edge.vlan - 1);
      }
      from = edge.vlan;
      if (edge.begins) {
         open.insert(edge.range);
      } else {
         open.erase(edge.range);
      }
   }
}

std::optional<std::uint16_t>
PortVlans::flags(std::uint16_t vlan) const {
   auto const found = std::lower_bound(ranges_.begin(), ranges_.end(), vlan,
                                       [](VlanRange const& range, auto of) { return range.last < of; });
   return found != ranges_.end() && found->first <= vlan ? std::optional(found->flags) : std::nullopt;
}

} // namespace L3TunnelAgent
