#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

using ZandorL3Tunnel::L3EcmpGroup0Table;

namespace {

using Groups = std::vector<Nuv::Ptr<L3EcmpGroup0Table::EntryHandle>>;

Groups
groupsByIndex(Fabric const& fabric) {
   Groups all;
   fabric.groups().handles().forEach([&](auto& handle) { all.emplace_back(&handle); });
   std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) {
      return std::pair(a->hwEntryIndex(), a->key().id) < std::pair(b->hwEntryIndex(), b->key().id);
   });
   return all;
}

Asic::Index
blockOf(L3EcmpGroup0Table::Entry const& entry) {
   return entry.ecmpBlockPtrHandle ? entry.ecmpBlockPtrHandle->hwEntryIndex() : Asic::invalidIndex;
}

std::string
modeText(std::uint32_t mode) {
   return mode == 0 ? "single path" : mode == 1 ? "flow hash" : std::to_string(mode);
}

std::string
groupsText(View const& view, Paint const& paint) {
   TextTable table("GROUPS: one for each destination",
                   {"group", "state", "adjacency", "block", "paths", "mode", "destination"});
   for (auto const& handle : groupsByIndex(view.agent.fabric())) {
      auto const entry = view.agent.fabric().groups().entry(handle->key());
      table.rowIs({indexText(handle->hwEntryIndex()),
                   {Nuv::text(handle->entryState()), styleOf(handle->entryState())},
                   std::to_string(handle->key().id),
                   entry ? indexText(blockOf(*entry)) : "-",
                   entry ? std::to_string(entry->numPaths) : "-",
                   entry ? modeText(entry->lbMode) : "-",
                   addressesText(view.users.ofGroup(*handle))});
   }
   return table.text(paint);
}

Json
groupsJson(View const& view) {
   Json all = Json::array();
   for (auto const& handle : groupsByIndex(view.agent.fabric())) {
      auto const entry = view.agent.fabric().groups().entry(handle->key());
      auto const index = handle->hwEntryIndex();
      auto const block = entry ? blockOf(*entry) : Asic::invalidIndex;
      auto const& users = view.users.ofGroup(*handle);
      all.push_back({{"index", index == Asic::invalidIndex ? Json() : Json(index)},
                     {"state", Nuv::text(handle->entryState())},
                     {"adjacency", handle->key().id},
                     {"block", block == Asic::invalidIndex ? Json() : Json(block)},
                     {"paths", entry ? Json(entry->numPaths) : Json()},
                     {"mode", entry ? Json(entry->lbMode) : Json()},
                     {"vtep", users.empty() ? Json() : Json(users.front().text())}});
   }
   return all;
}

} // namespace

Section
groupsSection() {
   return {"groups", "groups", groupsText, groupsJson, {&ModelChip::L3EcmpGroup0Table::layout}};
}

} // namespace L3TunnelAgent
