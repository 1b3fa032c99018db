#include "agent/views/Difference.h"

#include "agent/views/Names.h"
#include "agent/views/RowsView.h"
#include "agent/views/TextTable.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace L3TunnelAgent {

namespace {

using Texts = std::vector<std::string>;

/// Those of `from` that `without` has not, as often as they are more.
Texts
minus(Texts const& from, Texts const& without) {
   Texts left;
   std::set_difference(from.begin(), from.end(), without.begin(), without.end(), std::back_inserter(left));
   return left;
}

std::string
movedText(std::string const& what, std::string const& from, std::string const& to) {
   return from == to ? "" : fmt::format("    {} {} -> {}\n", what, from, to);
}

std::string
viaLines(Texts const& gone, Texts const& come, Paint const& paint) {
   std::string out;
   for (auto const& via : gone) {
      out += "    " + paint(Style::bad, "- " + via) + "\n";
   }
   for (auto const& via : come) {
      out += "    " + paint(Style::good, "+ " + via) + "\n";
   }
   return out;
}

/// What happened to one destination.
std::string
changeText(Picture::Destination const* before, Picture::Destination const* after, Paint const& paint) {
   static Picture::Destination const none{.state = "none", .vias = {}, .reason = {}};
   auto const& from = before ? *before : none;
   auto const& to = after ? *after : none;
   auto out = movedText("state", from.state, to.state) + movedText("block", blockText(from), blockText(to));
   if (!to.reason.empty() && from.reason != to.reason) {
      out += fmt::format("    reason: {}\n", to.reason);
   }
   auto const vias = viaChanges(from, to);
   return out + viaLines(vias.gone, vias.come, paint);
}

/// Destinations to which the same happened.
struct Change {
   std::string head;
   std::string text;
   std::vector<std::string> destinations;
};

/// The destinations one after the other, in lines of a page.
std::string
linesOf(Texts const& destinations) {
   constexpr std::size_t width = 96;
   std::string out;
   std::string line;
   for (auto const& destination : destinations) {
      if (!line.empty() && line.size() + 1 + destination.size() > width) {
         out += line + "\n";
         line.clear();
      }
      line += (line.empty() ? "  " : " ") + destination;
   }
   return out + line + "\n";
}

/// The groups stand beside the addresses, since each destination has its own.
std::string
placeText(IpAddress const& address, Picture::Destination const* before, Picture::Destination const* after) {
   auto const from = indexText(before ? before->group : after->group);
   auto const to = indexText(after ? after->group : before->group);
   return fmt::format("{}({})", address.text(), from == to ? to : from + " to " + to);
}

std::vector<Change>
changes(Picture const& before, Picture const& after, Paint const& paint) {
   std::map<IpAddress, std::pair<Picture::Destination const*, Picture::Destination const*>> all;
   for (auto const& [address, destination] : before.destinations) {
      all[address].first = &destination;
   }
   for (auto const& [address, destination] : after.destinations) {
      all[address].second = &destination;
   }
   std::vector<Change> result;
   std::map<std::pair<std::string, std::string>, std::size_t> known;
   for (auto const& [address, pair] : all) {
      auto const& [from, to] = pair;
      if (from && to && *from == *to) {
         continue;
      }
      std::string const head = !from ? "new" : !to ? "gone" : "changed";
      auto const text = changeText(from, to, paint);
      auto const [at, isNew] = known.try_emplace({head, text}, result.size());
      if (isNew) {
         result.push_back({.head = head, .text = text, .destinations = {}});
      }
      result[at->second].destinations.push_back(placeText(address, from, to));
   }
   return result;
}

std::string
destinationsText(Picture const& before, Picture const& after, Paint const& paint) {
   std::string lines;
   std::size_t count = 0;
   for (auto const& change : changes(before, after, paint)) {
      count += change.destinations.size();
      lines +=
            fmt::format("\n{} {}:\n{}{}", counted(change.destinations.size(), "destination", "destinations"),
                        change.head, linesOf(change.destinations), change.text);
   }
   return paint(Style::title, fmt::format("DESTINATIONS that differ: {}, as address(group)", count)) + "\n" +
          lines;
}

std::string
fieldsText(ModelChip::RowLayout const& layout, RowLog::Words const& words, RowLog::Words const& other) {
   if (words.empty()) {
      return "no row";
   }
   std::string text;
   for (auto const& field : layout.fields) {
      auto const value = field.unpack(words);
      if (other.empty() || field.unpack(other) != value) {
         text += fmt::format("{}{}={}", text.empty() ? "" : " ", field.name, fieldText(field, value));
      }
   }
   return text.empty() ? "the same" : text;
}

std::string
writesText(RowLog const& log, std::size_t after, std::size_t upTo, Paint const& paint) {
   auto const isKeptAfter = log.count() - log.writes().size();
   auto const first = std::min(std::max(after, isKeptAfter), upTo);
   TextTable table(
         fmt::format("ROWS written, in order: {}{}", upTo - after,
                     first > after ? fmt::format(", the first {} no longer kept", first - after) : ""),
         {"", "table", "row", "before", "after"});
   for (auto number = first; number < upTo; ++number) {
      auto const& write = log.writes()[number - isKeptAfter];
      auto const& layout = write.table->layout();
      table.rowIs({std::to_string(number - after + 1), layout.table, std::to_string(write.index),
                   fieldsText(layout, write.before, write.after),
                   fieldsText(layout, write.after, write.before)});
   }
   return table.text(paint);
}

std::string
headerText(DerivedVia const& via) {
   return (via.mac ? " to " + via.mac->text() : "") +
          (via.mac && via.sourceMac ? " from " + via.sourceMac->text() : "");
}

Picture::Destination
pictureOf(KernelState const& kernel, ProgrammedDestination const& destination) {
   Picture::Destination picture{.state = std::string(text(destination.state())),
                                .vias = {},
                                .reason = printable(reasonText(destination))};
   if (destination.group) {
      picture.group = destination.group->hwEntryIndex();
   }
   if (destination.current && destination.current->block) {
      picture.block = destination.current->block->hwEntryIndex();
      picture.paths = destination.current->members();
   }
   if (auto const* set = destination.set()) {
      for (auto const& via : set->vias()) {
         picture.vias.push_back(viaText(kernel, via) + headerText(via.via));
      }
   }
   std::sort(picture.vias.begin(), picture.vias.end());
   return picture;
}

} // namespace

Picture
pictureOf(Agent const& agent) {
   Picture picture{.destinations = {}, .rounds = agent.work().rounds, .rowsWritten = agent.rows().count()};
   for (auto const& [address, destination] : agent.fabric().destinations()) {
      picture.destinations.emplace(address, pictureOf(agent.kernel(), destination));
   }
   return picture;
}

std::optional<Picture::Destination>
pictureOf(Agent const& agent, IpAddress const& destination) {
   auto const found = agent.fabric().destinations().find(destination);
   return found == agent.fabric().destinations().end()
                ? std::nullopt
                : std::optional(pictureOf(agent.kernel(), found->second));
}

ViaChanges
viaChanges(Picture::Destination const& from, Picture::Destination const& to) {
   return {minus(from.vias, to.vias), minus(to.vias, from.vias)};
}

std::string
blockText(Picture::Destination const& destination) {
   return destination.block == Asic::invalidIndex && destination.paths == 0
                ? "-"
                : fmt::format("{} of {}", indexText(destination.block), destination.paths);
}

std::string
differenceText(Picture const& before, Picture const& after, RowLog const& log, Paint const& paint) {
   return counted(after.rounds - before.rounds, "round", "rounds") + " of messages\n\n" +
          destinationsText(before, after, paint) + "\n" +
          writesText(log, before.rowsWritten, after.rowsWritten, paint);
}

std::string
differenceText(Agent const& agent, Picture const& before, Paint const& paint) {
   return differenceText(before, pictureOf(agent), agent.rows(), paint);
}

} // namespace L3TunnelAgent
