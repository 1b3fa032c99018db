#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

namespace L3TunnelAgent {

/// VLANs in a row with the same settings, BRIDGE_VLAN_INFO_*.
struct VlanRange {
   std::uint16_t first{};
   std::uint16_t last{};
   std::uint16_t flags{};

   bool operator==(VlanRange const&) const = default;
};

/// The VLANs of a bridge's port, or of the bridge itself. Which ranges they were told in makes no difference.
class PortVlans {
 public:
   PortVlans() = default;

   /// VLANs one by one, each with its settings.
   PortVlans(std::initializer_list<std::pair<std::uint16_t, std::uint16_t>> vlans);

   /// @param told in any order; of ranges that overlap the last one counts.
   explicit PortVlans(std::vector<VlanRange> const& told);

   /// Ascending; none overlaps another, or goes on where one of the same settings ends.
   std::vector<VlanRange> const& ranges() const { return ranges_; }
   bool empty() const { return ranges_.empty(); }

   /// @return the settings of a VLAN, if it is one of these.
   std::optional<std::uint16_t> flags(std::uint16_t vlan) const;

   bool operator==(PortVlans const&) const = default;

 private:
   std::vector<VlanRange> ranges_;
};

} // namespace L3TunnelAgent
