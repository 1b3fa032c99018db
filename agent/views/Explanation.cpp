#include "agent/views/Explanation.h"

#include "agent/Explain.h"
#include "agent/views/EntryTree.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"

#include <algorithm>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

// A block's size has 16 bits in the tables.
constexpr std::size_t largestBlock = 0xffff;

/// What it takes for a destination that failed to come right.
std::string
remedy(Fabric const& fabric, ProgrammedDestination const& destination) {
   if (!destination.wanted) {
      return "It had been programmed. It is asked for again when its vias change.";
   }
   auto const members = destination.wanted->members();
   auto const most = std::min<std::size_t>(
         largestBlock,
         fabric.chip().table(ModelChip::L3UnderlayEcmpMember1Table::layout.table)->numEntries());
   if (members > most) {
      return fmt::format("A block has {} at the most, and this one would have {}: other vias are needed.",
                         counted(most, "member", "members"), members);
   }
   return "It is asked for again when something is released.";
}

std::string
failureText(Fabric const& fabric, ProgrammedDestination const& destination) {
   auto const reason = printable(reasonText(destination));
   char const* kept = keepsOldSet(destination) ? "It keeps the set that it had. "
                      : destination.wanted     ? "The chip has nothing for it. "
                                               : "";
   return fmt::format("It failed: {}.\n{}{}", reason.empty() ? "nothing says why" : reason, kept,
                      remedy(fabric, destination));
}

std::string
verdict(Fabric const& fabric, ProgrammedDestination const& destination) {
   auto const state = destination.state();
   auto const reason = printable(destination.reason);
   switch (state) {
   case DestinationState::success:
      return "Its group points at the block of its vias, and the chip has all rows.";
   case DestinationState::noRoute:
      return fmt::format("It is not programmed: {}.", reason.empty() ? "there is no route" : reason);
   case DestinationState::failed:
   case DestinationState::failedNeededEntry:
      return failureText(fabric, destination);
   case DestinationState::unresolved:
   case DestinationState::inProgress:
      break;
   }
   return fmt::format("It waits for {}.{}", waitsFor(destination),
                      destination.current ? " Until then its group points at the set that it had." : "");
}

/// What became of a via, in words.
std::string
fate(Agent const& agent, ViaSet const& set, ProgrammedVia const& via) {
   if (!via.isProgrammed) {
      return "left out, since others forward";
   }
   if (!isInTheChip(set, via)) {
      return "not programmed, since the set failed";
   }
   if (via.via.kind == ViaKind::drop) {
      return "drops";
   }
   if (via.isToCpu()) {
      return agent.fabric().settings().dropToCpu ? "drops, as all that would go to the CPU" : "to the CPU";
   }
   return fmt::format("forwards by port {}", portText(agent, via.entry.l2If.value));
}

std::string
neighbourText(DerivedVia const& via) {
   auto const mac = via.mac ? via.mac->text() : std::string();
   auto const gateway = via.gateway ? via.gateway->text() : std::string();
   return gateway.empty() || mac.empty() ? gateway + mac : fmt::format("{} at {}", gateway, mac);
}

std::string
viasText(Agent const& agent, ViaSet const& set, std::string const& title, Paint const& paint) {
   TextTable table(title, {"via (device@port)", "neighbour", "what becomes of it"});
   for (auto const& via : set.vias()) {
      auto const style = !isInTheChip(set, via) ? Style::bad : via.isToCpu() ? Style::waiting : Style::good;
      table.rowIs({viaText(agent.kernel(), via), neighbourText(via.via), {fate(agent, set, via), style}});
   }
   return table.text(paint);
}

std::string
viasText(Agent const& agent, ProgrammedDestination const& destination, Paint const& paint) {
   std::string out;
   if (destination.wanted) {
      out += viasText(agent, *destination.wanted, "VIAS that it is to have", paint);
   }
   if (destination.current) {
      out += (out.empty() ? "" : "\n") +
             viasText(agent, *destination.current, destination.wanted ? "VIAS that it has" : "VIAS", paint);
   }
   return out;
}

} // namespace

std::optional<std::string>
explanation(View const& view, IpAddress const& address, Paint const& paint) {
   auto const& all = view.agent.fabric().destinations();
   auto const found = all.find(address);
   if (found == all.end()) {
      return std::nullopt;
   }
   auto const& destination = found->second;
   auto const state = destination.state();
   auto out = fmt::format("{} is {}\n{}\n\n{}\n", paint(Style::title, address.text()),
                          paint(styleOf(state), text(state)), verdict(view.agent.fabric(), destination),
                          paint(Style::title, "The kernel says"));
   for (auto const& line : explainRoute(view.agent.kernel(), address)) {
      out += "  " + printable(line) + "\n";
   }
   if (auto const vias = viasText(view.agent, destination, paint); !vias.empty()) {
      out += "\n" + vias;
   }
   return out + "\n" + paint(Style::title, "In the tables") + "\n" + entryTree(view, destination, paint);
}

} // namespace L3TunnelAgent
