#pragma once

#include "chip/model/Chip.h"
#include "chip/model/Flow.h"
#include "platform/chipstate/FendoTypes.h"

#include <optional>

namespace ModelChip {

/// What an egress interface row says.
struct InterfaceRow {
   Asic::Index index{};
   bool tagged{};
   std::uint16_t vlanTag{};
   Fendo::EthAddr srcMac;
};

/// What a member row leads to: a next hop's two rows at one index, and the interface that the egress one
/// names. Without an interface the next hop goes to the CPU or nowhere.
struct HopRows {
   Asic::Index member{};
   Asic::Index nextHop{};
   std::uint8_t destinationType{};
   std::uint16_t destinationId{};
   Fendo::EthAddr dstMac;
   std::optional<InterfaceRow> interface;
};

/// What a group row leads to. `problem` names the first row that should have been there and was not.
struct GroupRows {
   Asic::Index group{};
   Asic::Index base{};
   std::uint16_t numPaths{};
   std::uint32_t lbMode{};
   std::vector<HopRows> hops;
   Pelm::String problem;
};

/// Follows the chip's own rows from the group row at `group` to every interface row: what forwarding would
/// use, and nothing else.
GroupRows followGroup(Chip const& chip, Asic::Index group);

/// The one way that a flow takes from a group row. `problem` names the first row on it that should have been
/// there and was not, or says that the group has no path; `hop` is good up to there.
struct FlowRows {
   Asic::Index group{};
   Asic::Index base{};
   std::uint16_t numPaths{};
   std::uint32_t lbMode{};
   std::uint32_t hash{};
   std::uint32_t path{}; ///< of the group's, from 0
   HopRows hop;
   Pelm::String problem;
};

/// Forwards a packet of that flow from the group row at `group`, as the chip does: with load-balancing mode 0
/// by the first path, with any other by the one that the flow's hash chooses.
FlowRows followFlow(Chip const& chip, Asic::Index group, Flow const& flow);

/// Every row of the chip that points at one that is not there, as a line of text each; empty when there is
/// none.
std::vector<Pelm::String> danglingRows(Chip const& chip);

} // namespace ModelChip
