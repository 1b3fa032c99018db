#include "agent/views/Lookup.h"

#include "agent/views/Names.h"
#include "agent/views/RowsView.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"
#include "types/SwFieldTypes.h"

#include <fmt/format.h>
#include <map>

namespace L3TunnelAgent {

using ZandorL3Tunnel::DestinationType;

namespace {

bool
isToPort(ModelChip::HopRows const& hop) {
   return hop.destinationType == unsigned(DestinationType::unicast);
}

/// The fourteen bytes, or eighteen with a tag, in front of the outer IP header.
std::vector<std::uint8_t>
headerOf(ModelChip::HopRows const& hop, bool isV6) {
   if (!isToPort(hop) || !hop.interface) {
      return {};
   }
   std::vector<std::uint8_t> bytes(hop.dstMac.bytes.begin(), hop.dstMac.bytes.end());
   auto const& source = hop.interface->srcMac.bytes;
   bytes.insert(bytes.end(), source.begin(), source.end());
   auto const word = [&](unsigned value) {
      bytes.push_back(std::uint8_t(value >> 8));
      bytes.push_back(std::uint8_t(value));
   };
   if (hop.interface->tagged) {
      word(0x8100);
      word(hop.interface->vlanTag);
   }
   word(isV6 ? 0x86dd : 0x0800);
   return bytes;
}

/// A row on the way: where it is, what it says, what follows from that.
void
step(TextTable& table, Agent const& agent, ModelChip::RowLayout const& layout, Asic::Index index,
     std::string const& meaning) {
   auto const& rows = *agent.fabric().chip().table(layout.table);
   std::string fields;
   if (rows.hasRow(index)) {
      for (auto const& field : layout.fields) {
         fields += fmt::format("{}{}={}", fields.empty() ? "" : " ", field.name,
                               fieldText(field, field.unpack(rows.row(index))));
      }
   }
   table.rowIs({layout.table, std::to_string(index), fields.empty() ? "-" : fields, meaning});
}

std::string
groupMeaning(ModelChip::FlowRows const& rows) {
   if (rows.numPaths == 0) {
      return "no path";
   }
   auto const chosen =
         fmt::format("path {} of {}, member {}", rows.path, rows.numPaths, rows.base + rows.path);
   return rows.lbMode == 0 ? "always " + chosen : fmt::format("hash {:08x}: {}", rows.hash, chosen);
}

std::string
hopMeaning(Agent const& agent, ModelChip::HopRows const& hop) {
   return isToPort(hop) ? "leaves by port " + portText(agent, hop.destinationId)
                        : "goes to: " + sendsTo(hop.destinationType);
}

std::string
stepsText(Lookup const& lookup, Agent const& agent, Paint const& paint) {
   TextTable table("ROWS on the way", {"table", "row", "fields", "says"});
   auto const& rows = *lookup.rows;
   step(table, agent, ModelChip::L3EcmpGroup0Table::layout, rows.group, groupMeaning(rows));
   if (rows.numPaths) {
      auto const& hop = rows.hop;
      step(table, agent, ModelChip::L3UnderlayEcmpMember1Table::layout, hop.member,
           fmt::format("next hop {}", hop.nextHop));
      step(table, agent, ModelChip::IngL3NextHop2Table::layout, hop.nextHop, hopMeaning(agent, hop));
      step(table, agent, ModelChip::EgrL3NextHop2::layout, hop.nextHop,
           hop.interface ? fmt::format("to {} from interface {}", Nuv::text(hop.dstMac), hop.interface->index)
                         : std::string("no header is written"));
      if (hop.interface) {
         step(table, agent, ModelChip::EgrL3Oif2::layout, hop.interface->index,
              fmt::format("from {}, {}", Nuv::text(hop.interface->srcMac),
                          hop.interface->tagged ? fmt::format("VLAN {}", hop.interface->vlanTag)
                                                : std::string("untagged")));
      }
   }
   return table.text(paint);
}

std::string
headerText(Lookup const& lookup) {
   auto const& interface = *lookup.rows->hop.interface;
   return fmt::format("Ethernet header: to {} from {}{}, type {:04x}\n  {:02x}\n",
                      Nuv::text(lookup.rows->hop.dstMac), Nuv::text(interface.srcMac),
                      interface.tagged ? fmt::format(", VLAN {}", interface.vlanTag) : std::string(),
                      lookup.header[lookup.header.size() - 2] << 8 | lookup.header.back(),
                      fmt::join(lookup.header, " "));
}

std::string
outcomeText(Lookup const& lookup, Agent const& agent, Paint const& paint) {
   if (!lookup.isForwarded()) {
      return paint(Style::bad, "The packet is not forwarded: " + printable(lookup.problem)) + ".\n";
   }
   auto const& hop = lookup.rows->hop;
   if (isToPort(hop)) {
      return (lookup.header.empty() ? "" : headerText(lookup)) +
             paint(Style::good, "The packet leaves by port " + portText(agent, hop.destinationId)) + ".\n";
   }
   return paint(Style::waiting, hop.destinationType == unsigned(DestinationType::system)
                                      ? "The packet goes to the CPU"
                                      : "The packet is dropped") +
          ".\n";
}

} // namespace

Lookup
lookup(Agent const& agent, IpAddress const& destination, ModelChip::Flow const& flow) {
   Lookup result{.destination = destination, .flow = flow, .rows = {}, .problem = {}, .header = {}};
   auto const& all = agent.fabric().destinations();
   auto const found = all.find(destination);
   if (found == all.end()) {
      result.problem = "it is no tunnel destination";
   } else if (!found->second.group || found->second.group->hwEntryIndex() == Asic::invalidIndex) {
      auto const& reason = found->second.reason;
      result.problem = "it has no group" + (reason.empty() ? "" : ": " + reason);
   } else {
      auto const index = found->second.group->hwEntryIndex();
      result.rows = ModelChip::followFlow(agent.fabric().chip(), index, flow);
      result.problem = result.rows->problem;
      result.header = headerOf(result.rows->hop, flow.destination.isV6);
   }
   return result;
}

std::string
text(Lookup const& lookup, Agent const& agent, Paint const& paint) {
   auto out = fmt::format("{} as the chip forwards it\nFlow: {}\n\n", lookup.destination.text(),
                          text(lookup.flow));
   if (lookup.rows) {
      out += stepsText(lookup, agent, paint) + "\n";
   }
   return out + outcomeText(lookup, agent, paint);
}

std::string
spreadText(Agent const& agent, IpAddress const& destination, ModelChip::Flow flow, std::size_t flows,
           Paint const& paint) {
   std::map<std::uint32_t, std::pair<std::size_t, std::string>> members;
   for (std::size_t count = 0; count < flows; ++count) {
      if (count != 0 && ++flow.sourcePort == 0) {
         ++flow.source.bytes[flow.source.isV6 ? 15 : 3];
      }
      auto const found = lookup(agent, destination, flow);
      if (!found.isForwarded()) {
         return "";
      }
      auto& [hits, meaning] = members[found.rows->hop.member];
      ++hits;
      meaning = hopMeaning(agent, found.rows->hop);
   }
   TextTable table(fmt::format("SPREAD of {}", counted(flows, "flow", "flows")),
                   {"member", "flows", "share", "says"});
   for (auto const& [member, hit] : members) {
      table.rowIs({std::to_string(member), std::to_string(hit.first),
                   fmt::format("{:.1f}%", 100.0 * double(hit.first) / double(flows)), hit.second});
   }
   return table.text(paint);
}

} // namespace L3TunnelAgent
