#include "agent/views/Summary.h"

#include "agent/RouteLookup.h"
#include "agent/views/Names.h"
#include "agent/views/TextTable.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

constexpr std::size_t failuresNamed = 5;

/// States in the order in which a person wants to hear of them.
constexpr DestinationState statesShown[] = {DestinationState::success,    DestinationState::inProgress,
                                            DestinationState::unresolved, DestinationState::failedNeededEntry,
                                            DestinationState::failed,     DestinationState::noRoute};
constexpr auto lastFailureShown = DestinationState::failed;

/// Whether the kernel spreads packets unevenly over the members, all of which are equal in the chip.
bool
losesWeights(ViaSet const& set) {
   std::optional<unsigned> first;
   return std::any_of(set.vias().begin(), set.vias().end(), [&](ProgrammedVia const& via) {
      if (!via.isProgrammed) {
         return false;
      }
      first = first.value_or(via.via.weight);
      return via.via.weight != *first;
   });
}

void
viasAre(Summary& summary, ViaSet const& set) {
   for (auto const& via : set.vias()) {
      ++summary.vias;
      summary.viasLeftOut += via.isProgrammed ? 0 : 1;
      summary.viasShort += via.shortOf.empty() ? 0 : 1;
   }
   summary.weightsNotProgrammed += losesWeights(set) ? 1 : 0;
}

std::string
statesText(Summary const& summary, Paint const& paint) {
   std::string out = fmt::format("{} over {}\n",
                                 counted(summary.destinations, "tunnel destination", "tunnel destinations"),
                                 counted(summary.vias, "via", "vias"));
   for (auto const state : statesShown) {
      if (summary.count(state) || state == DestinationState::success) {
         out += fmt::format("  {}{:>8}\n", paint(styleOf(state), fmt::format("{:<18}", text(state))),
                            summary.count(state));
      }
      if (state == lastFailureShown && summary.keptOld) {
         out += fmt::format("    {} of these {} the set that {} had\n", summary.keptOld,
                            summary.keptOld == 1 ? "keeps" : "keep", summary.keptOld == 1 ? "it" : "they");
      }
   }
   return out;
}

std::string
remarksText(Summary const& summary) {
   std::string out;
   auto const remark = [&](std::size_t count, char const* one, char const* many, char const* what) {
      if (count) {
         out += fmt::format("{} {}.\n", counted(count, one, many), what);
      }
   };
   out += fmt::format("{} of members for them, {} of these shared by several destinations.\n",
                      counted(summary.blocks, "block", "blocks"), summary.sharedBlocks);
   remark(summary.viasLeftOut, "via", "vias", "to the CPU left out beside vias that forward");
   remark(summary.viasShort, "via", "vias", "to the CPU for want of an interface index or a port number");
   remark(summary.weightsNotProgrammed, "destination", "destinations",
          "with unequal weights in the kernel, which are not programmed: members of a group are equal");
   remark(summary.rulesPassedOver, "policy rule", "policy rules",
          "passed over, asking for what is not known of tunnel packets");
   remark(summary.bound, "destination", "destinations",
          "of tunnels that are bound to a device, which is not looked at: the route's next hops count");
   out += fmt::format("{} of messages, {} written.\n", counted(summary.rounds, "round", "rounds"),
                      counted(summary.rowsWritten, "row", "rows"));
   return out;
}

std::string
failuresText(Summary const& summary, Paint const& paint) {
   if (summary.failures.empty()) {
      return "";
   }
   TextTable table("FAILED DESTINATIONS", {"destination", "state", "reason"});
   for (std::size_t at = 0; at < summary.failures.size() && at < failuresNamed; ++at) {
      auto const& failure = summary.failures[at];
      table.rowIs({failure.destination.text(),
                   {std::string(text(failure.state)), Style::bad},
                   printable(failure.reason)});
   }
   auto out = "\n" + table.text(paint);
   if (summary.failures.size() > failuresNamed) {
      out += fmt::format("  and {} more\n", summary.failures.size() - failuresNamed);
   }
   return out;
}

} // namespace

Summary
summaryOf(Agent const& agent) {
   Summary summary;
   std::map<void const*, std::size_t> groupsAt;
   for (auto const& [address, destination] : agent.fabric().destinations()) {
      auto const state = destination.state();
      ++summary.destinations;
      ++summary.byState[std::size_t(state)];
      if (hasFailed(state)) {
         summary.failures.push_back({address, state, reasonText(destination)});
         summary.keptOld += keepsOldSet(destination) ? 1 : 0;
      }
      if (auto const* set = destination.set()) {
         viasAre(summary, *set);
      }
      if (destination.current && destination.current->block) {
         ++groupsAt[destination.current->block.get()];
      }
   }
   summary.bound = boundDestinations(agent.kernel()).size();
   summary.blocks = groupsAt.size();
   for (auto const& [block, groups] : groupsAt) {
      summary.sharedBlocks += groups > 1 ? 1 : 0;
   }
   summary.rulesPassedOver = unknownRules(agent.kernel());
   summary.rounds = agent.work().rounds;
   summary.rowsWritten = agent.rows().count();
   for (auto const& table : agent.fabric().chip().tables()) {
      summary.rows.push_back({table->shape().name, table->rowsPresent(), table->numEntries()});
   }
   return summary;
}

std::string
text(Summary const& summary, Paint const& paint) {
   auto out = statesText(summary, paint) + remarksText(summary) + "Rows in the chip:\n";
   for (auto const& rows : summary.rows) {
      out += fmt::format("  {:<26} {:>7} of {:>7}\n", rows.table, rows.used, rows.size);
   }
   return out + failuresText(summary, paint);
}

Json
json(Summary const& summary) {
   Json states = Json::object();
   for (auto const state : statesShown) {
      states[std::string(text(state))] = summary.count(state);
   }
   Json rows = Json::object();
   for (auto const& each : summary.rows) {
      rows[each.table] = {{"used", each.used}, {"size", each.size}};
   }
   return {{"destinations", summary.destinations},
           {"states", std::move(states)},
           {"vias", summary.vias},
           {"viasLeftOut", summary.viasLeftOut},
           {"viasShort", summary.viasShort},
           {"weightsNotProgrammed", summary.weightsNotProgrammed},
           {"blocks", summary.blocks},
           {"sharedBlocks", summary.sharedBlocks},
           {"rulesPassedOver", summary.rulesPassedOver},
           {"rounds", summary.rounds},
           {"rowsWritten", summary.rowsWritten},
           {"rows", std::move(rows)},
           {"keptOld", summary.keptOld},
           {"bound", summary.bound}};
}

} // namespace L3TunnelAgent
