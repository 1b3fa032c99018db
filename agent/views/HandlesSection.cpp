#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

struct HandleLine {
   std::string table;
   Nuv::Ptr<Asic::SwTable::EntryHandle> handle;
   std::string key;
};

/// The lines of one table, in the order of their indices.
template <class Handles, class KeyText>
void
linesOf(std::string const& table, Handles const& handles, KeyText const& keyText,
        std::vector<HandleLine>& all) {
   auto const first = all.size();
   handles.forEach([&](auto& handle) { all.push_back({table, &handle, keyText(handle.key())}); });
   std::sort(all.begin() + std::ptrdiff_t(first), all.end(), [](auto const& a, auto const& b) {
      return std::pair(a.handle->hwEntryIndex(), a.handle->creationNumber()) <
             std::pair(b.handle->hwEntryIndex(), b.handle->creationNumber());
   });
}

std::vector<HandleLine>
lines(Fabric const& fabric) {
   auto const keyAsIs = [](auto const& key) { return Nuv::text(key); };
   auto const size = [](auto const& block) { return fmt::format("{} members", block.size()); };
   auto const& nextHops = *fabric.programmer().l3EcmpNextHopTable();
   auto const& members = *fabric.programmer().l3EcmpMemberTable();
   std::vector<HandleLine> all;
   linesOf("EgrL3Oif2", fabric.interfaces().table().handles(), keyAsIs, all);
   linesOf("IngL3NextHop2Table", nextHops.ingL3NextHop2Table()->handles(), keyAsIs, all);
   linesOf("EgrL3NextHop2", nextHops.egrL3NextHop2()->handles(), keyAsIs, all);
   linesOf("L3NextHop2Table", nextHops.handles(), keyAsIs, all);
   linesOf("L3UnderlayEcmpMember1Table", members.handles(), size, all);
   linesOf("L3EcmpGroup0Table", fabric.groups().handles(), keyAsIs, all);
   return all;
}

// The one that this line holds is not counted.
auto
references(HandleLine const& line) {
   return line.handle->references() - 1;
}

std::string
handlesText(View const& view, Paint const& paint) {
   TextTable table("HANDLES: entries of the software tables and who holds them",
                   {"table", "index", "in the chip", "state", "held as", "references", "key"});
   for (auto const& line : lines(view.agent.fabric())) {
      table.rowIs({line.table,
                   indexText(line.handle->hwEntryIndex()),
                   line.handle->isHwIndexValid() ? "yes" : "no",
                   {Nuv::text(line.handle->entryState()), styleOf(line.handle->entryState())},
                   Nuv::text(line.handle->entryType()),
                   std::to_string(references(line)),
                   line.key});
   }
   return table.text(paint);
}

Json
handlesJson(View const& view) {
   Json all = Json::array();
   for (auto const& line : lines(view.agent.fabric())) {
      auto const index = line.handle->hwEntryIndex();
      all.push_back({{"table", line.table},
                     {"index", index == Asic::invalidIndex ? Json() : Json(index)},
                     {"valid", line.handle->isHwIndexValid()},
                     {"state", Nuv::text(line.handle->entryState())},
                     {"type", Nuv::text(line.handle->entryType())},
                     {"references", references(line)},
                     {"key", line.key}});
   }
   return all;
}

} // namespace

Section
handlesSection() {
   return {"handles", "handles", handlesText, handlesJson, {}, false};
}

} // namespace L3TunnelAgent
