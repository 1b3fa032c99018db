#include "agent/Report.h"

#include "agent/TextTable.h"
#include "chip/model/Forwarding.h"
#include "chip/model/Layouts.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>

namespace L3TunnelAgent {

using ZandorL3Tunnel::DestinationType;

namespace {

std::string
text(auto const& value) {
   return Nuv::text(value);
}

/// Every group row of the chip, followed to its interfaces.
std::vector<ModelChip::GroupRows>
groupRows(Fabric const& fabric) {
   std::vector<ModelChip::GroupRows> rows;
   auto const* table = fabric.chip().table(ModelChip::L3EcmpGroup0Table::layout.table);
   for (Asic::Index index = 0; index < table->numEntries(); ++index) {
      if (table->hasRow(index)) {
         rows.push_back(ModelChip::followGroup(fabric.chip(), index));
      }
   }
   return rows;
}

} // namespace

std::string
Report::stateOf(ProgrammedDestination const& destination) const {
   if (!destination.group) {
      return destination.vias.empty() ? "no route" : "refused";
   }
   return text(destination.group->entryState());
}

std::string
Report::viaText(ProgrammedVia const& programmed) const {
   auto const& via = programmed.via;
   std::string shown = via.kind == ViaKind::drop ? "drop" : via.device ? state_.linkName(*via.device) : "cpu";
   if (via.device && (via.kind == ViaKind::cpu || !programmed.entry.l2If.isValid())) {
      shown += " to cpu";
   }
   if (via.port && via.port != via.device) {
      shown += fmt::format("@{}", state_.linkName(*via.port));
   }
   if (via.weight > 1) {
      shown += fmt::format(" weight {}", via.weight);
   }
   if (!via.reason.empty()) {
      shown += fmt::format(" ({})", via.reason);
   }
   return programmed.isProgrammed ? shown : "[" + shown + "]";
}

std::string
Report::portText(std::uint16_t number) const {
   int device = fabric_.portDevice(number);
   return device ? fmt::format("{} {}", number, state_.linkName(device)) : text(number);
}

std::string
Report::summary() const {
   std::map<std::string, unsigned> states;
   unsigned vias = 0;
   unsigned leftOut = 0;
   unsigned weighted = 0;
   std::set<void const*> blocks;
   for (auto const& destination : fabric_.destinations()) {
      ++states[stateOf(destination)];
      for (auto const& via : destination.vias) {
         ++vias;
         leftOut += via.isProgrammed ? 0 : 1;
         weighted += via.via.weight > 1 ? 1 : 0;
      }
      if (destination.block) {
         blocks.insert(destination.block.get());
      }
   }
   std::string out =
         fmt::format("{} tunnel destinations over {} vias\n", fabric_.destinations().size(), vias);
   for (auto const& [state, count] : states) {
      out += fmt::format("  {:<18} {:>6}\n", state, count);
   }
   out += "Rows in the chip\n";
   for (auto const& table : fabric_.chip().tables()) {
      out += fmt::format("  {:<28} {:>6} of {:>6}\n", table->shape().name, table->rowsPresent(),
                         table->numEntries());
   }
   out += fmt::format("The destinations share {} blocks of members.\n", blocks.size());
   if (leftOut) {
      out += fmt::format("Vias that only the CPU could serve, left out beside vias that forward and shown in "
                         "[brackets]: {}.\n",
                         leftOut);
   }
   if (weighted) {
      out += fmt::format("Vias with a weight in the kernel, where the chip's members are equal: {}.\n",
                         weighted);
   }
   return out;
}

std::string
Report::destinations() const {
   TextTable table("DESTINATIONS", {"destination", "state", "group", "block", "paths", "vias (device@port)"});
   for (auto const& destination : fabric_.destinations()) {
      std::string vias;
      for (auto const& via : destination.vias) {
         vias += (vias.empty() ? "" : ", ") + viaText(via);
      }
      bool isProgrammed = destination.group && destination.group->isHwIndexValid();
      auto rows = isProgrammed ? ModelChip::followGroup(fabric_.chip(), destination.group->hwEntryIndex())
                               : ModelChip::GroupRows();
      table.rowIs({destination.address.text(), stateOf(destination), isProgrammed ? text(rows.group) : "-",
                   isProgrammed ? text(rows.base) : "-", isProgrammed ? text(rows.numPaths) : "-",
                   destination.reason.empty() ? vias : destination.reason});
   }
   return table.text();
}

std::string
Report::groups() const {
   TextTable table("GROUPS: one for each destination", {"group", "block", "paths", "mode"});
   for (auto const& rows : groupRows(fabric_)) {
      table.rowIs({text(rows.group), text(rows.base), text(rows.numPaths),
                   rows.lbMode == 0 ? "single path" : "flow hash"});
   }
   return table.text();
}

std::string
Report::blocks() const {
   struct Block {
      std::string nextHops;
      std::size_t size{};
      unsigned groups{};
   };
   std::map<Asic::Index, Block> blocks;
   for (auto const& rows : groupRows(fabric_)) {
      auto& block = blocks[rows.base];
      if (block.groups++ == 0) {
         block.size = rows.hops.size();
         for (auto const& hop : rows.hops) {
            block.nextHops += (block.nextHops.empty() ? "" : " ") + text(hop.nextHop);
         }
      }
   }
   TextTable table("BLOCKS: runs of member rows that groups point at",
                   {"rows", "groups", "next hop of each member"});
   for (auto const& [base, block] : blocks) {
      table.rowIs({fmt::format("{}-{}", base, base + block.size - 1), text(block.groups), block.nextHops});
   }
   return table.text();
}

std::string
Report::nextHops() const {
   TextTable table("NEXT HOPS: one ingress and one egress row each, at one index",
                   {"next hop", "sends to", "port", "neighbour", "interface", "members"});
   std::map<Asic::Index, std::set<Asic::Index>> members;
   std::map<Asic::Index, ModelChip::HopRows> hops;
   for (auto const& group : groupRows(fabric_)) {
      for (auto const& hop : group.hops) {
         members[hop.nextHop].insert(hop.member);
         hops[hop.nextHop] = hop;
      }
   }
   for (auto const& [index, hop] : hops) {
      bool isUnicast = hop.destinationType == std::uint8_t(DestinationType::unicast);
      bool isCpu = hop.destinationType == std::uint8_t(DestinationType::system);
      table.rowIs({text(index),
                   isUnicast ? "port"
                   : isCpu   ? "cpu"
                             : "nowhere",
                   isUnicast ? portText(hop.destinationId) : "-", isUnicast ? text(hop.dstMac) : "-",
                   hop.interface ? text(hop.interface->index) : "-", text(members[index].size())});
   }
   return table.text();
}

std::string
Report::interfaces() const {
   namespace Row = ModelChip::EgrL3Oif2;
   TextTable table("INTERFACES: what the Ethernet header of a tunnel packet carries",
                   {"interface", "state", "source MAC", "VLAN tag"});
   auto const& rows = *fabric_.chip().table(Row::layout.table);
   std::map<Asic::Index, std::vector<std::string>> lines;
   fabric_.interfaces().handles().forEach([&](auto const& handle) {
      auto& cells = lines[handle.key()];
      cells = {text(handle.key()), text(handle.entryState()), "-", "-"};
      if (rows.hasRow(handle.key())) {
         auto row = rows.row(handle.key());
         cells[2] = text(Fendo::EthAddr::fromValue(Row::srcMac.unpack(row)));
         cells[3] = Row::tagged.unpack(row) ? text(Row::vlanTag.unpack(row)) : "untagged";
      }
   });
   for (auto& [index, cells] : lines) {
      table.rowIs(std::move(cells));
   }
   return table.text();
}

std::string
Report::tables() const {
   return destinations() + "\n" + groups() + "\n" + blocks() + "\n" + nextHops() + "\n" + interfaces();
}

} // namespace L3TunnelAgent
