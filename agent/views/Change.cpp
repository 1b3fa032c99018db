#include "agent/views/Change.h"

#include "agent/views/Names.h"
#include "agent/views/Sections.h"

#include <ctime>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

char const*
kindOf(Change const& change) {
   return !change.before ? "new" : !change.after ? "gone" : "changed";
}

std::string
stateText(std::optional<Picture::Destination> const& destination) {
   return destination ? destination->state : "none";
}

std::string
moved(std::string const& from, std::string const& to) {
   return from == to ? to : fmt::format("{} -> {}", from, to);
}

Json
indexJson(Asic::Index index) {
   return index == Asic::invalidIndex ? Json() : Json(index);
}

Json
beforeJson(std::optional<Picture::Destination> const& before) {
   if (!before) {
      return {};
   }
   return {{"state", before->state},
           {"reason", before->reason.empty() ? Json() : Json(before->reason)},
           {"group", {{"index", indexJson(before->group)}}},
           {"block",
            {{"base", indexJson(before->block)}, {"size", before->paths ? Json(before->paths) : Json()}}}};
}

Json
afterJson(Agent const& agent, IpAddress const& address) {
   auto const found = agent.fabric().destinations().find(address);
   return found == agent.fabric().destinations().end() ? Json() : destinationJson(agent, found->second);
}

} // namespace

std::string
timeText(WallTime time) {
   auto const milliseconds =
         std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
   std::time_t const seconds = milliseconds / 1000;
   std::tm parts{};
   gmtime_r(&seconds, &parts);
   return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                      parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds % 1000);
}

std::string
text(Change const& change, WallTime time, Paint const& paint) {
   static Picture::Destination const none{};
   auto const& from = change.before ? *change.before : none;
   auto const& to = change.after ? *change.after : none;
   auto line = fmt::format(
         "{} {} {}: state {}, group {}, block {}", timeText(time), change.destination.text(), kindOf(change),
         moved(stateText(change.before), stateText(change.after)),
         moved(indexText(from.group), indexText(to.group)), moved(blockText(from), blockText(to)));
   if (!to.reason.empty() && from.reason != to.reason) {
      line += ", reason: " + to.reason;
   }
   auto const vias = viaChanges(from, to);
   for (auto const& via : vias.gone) {
      line += ", " + paint(Style::bad, "- " + via);
   }
   for (auto const& via : vias.come) {
      line += ", " + paint(Style::good, "+ " + via);
   }
   return line;
}

Json
json(Change const& change, WallTime time, Agent const& agent) {
   return {{"time", timeText(time)},
           {"change", kindOf(change)},
           {"vtep", change.destination.text()},
           {"before", beforeJson(change.before)},
           {"after", afterJson(agent, change.destination)}};
}

} // namespace L3TunnelAgent
