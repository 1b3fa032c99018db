#include "chip/model/Forwarding.h"

#include "chip/model/Layouts.h"

namespace ModelChip {

namespace {

/// The row that forwarding asks for; says so in `problem` when the chip has none.
std::span<std::uint32_t const>
rowAt(Chip const& chip, RowLayout const& layout, Asic::Index index, Pelm::String& problem) {
   auto const* table = chip.table(layout.table);
   if (table->hasRow(index) && layout.fields.front().unpack(table->row(index)) == 1) {
      return table->row(index);
   }
   if (problem.empty()) {
      problem = Nuv::text("no row ", index, " in ", layout.table);
   }
   return {};
}

// Index 0 stands for no interface in particular.
std::optional<InterfaceRow>
interfaceAt(Chip const& chip, Asic::Index index, Pelm::String& problem) {
   auto row = index == 0 ? std::span<std::uint32_t const>() : rowAt(chip, EgrL3Oif2::layout, index, problem);
   if (row.empty()) {
      return std::nullopt;
   }
   return InterfaceRow{index, EgrL3Oif2::tagged.unpack(row) != 0,
                       std::uint16_t(EgrL3Oif2::vlanTag.unpack(row)),
                       Fendo::EthAddr::fromValue(EgrL3Oif2::srcMac.unpack(row))};
}

HopRows
followMember(Chip const& chip, Asic::Index member, Pelm::String& problem) {
   HopRows hop;
   hop.member = member;
   auto row = rowAt(chip, L3UnderlayEcmpMember1Table::layout, member, problem);
   if (row.empty()) {
      return hop;
   }
   hop.nextHop = Asic::Index(L3UnderlayEcmpMember1Table::nextHop.unpack(row));
   auto ing = rowAt(chip, IngL3NextHop2Table::layout, hop.nextHop, problem);
   auto egr = rowAt(chip, EgrL3NextHop2::layout, hop.nextHop, problem);
   if (ing.empty() || egr.empty()) {
      return hop;
   }
   hop.destinationType = std::uint8_t(IngL3NextHop2Table::destinationType.unpack(ing));
   hop.destinationId = std::uint16_t(IngL3NextHop2Table::destinationId.unpack(ing));
   hop.dstMac = Fendo::EthAddr::fromValue(EgrL3NextHop2::dstMac.unpack(egr));
   hop.interface = interfaceAt(chip, Asic::Index(EgrL3NextHop2::l3Oif.unpack(egr)), problem);
   return hop;
}

template <class Visit>
void
forEachRow(Chip const& chip, RowLayout const& layout, Visit&& visit) {
   auto const* table = chip.table(layout.table);
   for (Asic::Index index = 0; index < table->numEntries(); ++index) {
      if (table->hasRow(index) && layout.fields.front().unpack(table->row(index)) == 1) {
         visit(index, table->row(index));
      }
   }
}

} // namespace

GroupRows
followGroup(Chip const& chip, Asic::Index group) {
   GroupRows found;
   found.group = group;
   auto row = rowAt(chip, L3EcmpGroup0Table::layout, group, found.problem);
   if (row.empty()) {
      return found;
   }
   found.base = Asic::Index(L3EcmpGroup0Table::ecmpBlock.unpack(row));
   found.numPaths = std::uint16_t(L3EcmpGroup0Table::numPaths.unpack(row));
   found.lbMode = std::uint32_t(L3EcmpGroup0Table::lbMode.unpack(row));
   for (Asic::Index path = 0; path < found.numPaths; ++path) {
      found.hops.push_back(followMember(chip, found.base + path, found.problem));
   }
   return found;
}

FlowRows
followFlow(Chip const& chip, Asic::Index group, Flow const& flow) {
   namespace Row = L3EcmpGroup0Table;
   FlowRows found;
   found.group = group;
   found.hash = flowHash(flow);
   auto row = rowAt(chip, Row::layout, group, found.problem);
   if (row.empty()) {
      return found;
   }
   found.base = Asic::Index(Row::ecmpBlock.unpack(row));
   found.numPaths = std::uint16_t(Row::numPaths.unpack(row));
   found.lbMode = std::uint32_t(Row::lbMode.unpack(row));
   if (found.numPaths == 0) {
      found.problem = Nuv::text("group ", group, " has no path");
      return found;
   }
   found.path = found.lbMode == 0 ? 0 : pathOf(found.hash, found.numPaths);
   found.hop = followMember(chip, found.base + found.path, found.problem);
   return found;
}

std::vector<Pelm::String>
danglingRows(Chip const& chip) {
   std::vector<Pelm::String> lines;
   auto note = [&](RowLayout const& layout, Asic::Index index, Pelm::String const& problem) {
      if (!problem.empty()) {
         lines.push_back(Nuv::text(layout.table, " row ", index, ": ", problem));
      }
   };
   forEachRow(chip, L3EcmpGroup0Table::layout, [&](Asic::Index index, auto) {
      note(L3EcmpGroup0Table::layout, index, followGroup(chip, index).problem);
   });
   forEachRow(chip, L3UnderlayEcmpMember1Table::layout, [&](Asic::Index index, auto) {
      Pelm::String problem;
      followMember(chip, index, problem);
      note(L3UnderlayEcmpMember1Table::layout, index, problem);
   });
   forEachRow(chip, EgrL3NextHop2::layout, [&](Asic::Index index, auto row) {
      Pelm::String problem;
      interfaceAt(chip, Asic::Index(EgrL3NextHop2::l3Oif.unpack(row)), problem);
      note(EgrL3NextHop2::layout, index, problem);
   });
   return lines;
}

} // namespace ModelChip
