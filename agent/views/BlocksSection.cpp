#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

using ZandorL3Tunnel::L3UnderlayEcmpMember1Table;

namespace {

using Blocks = std::vector<Nuv::Ptr<L3UnderlayEcmpMember1Table::EntryHandle>>;

Blocks
blocksByIndex(Fabric const& fabric) {
   Blocks all;
   fabric.programmer().l3EcmpMemberTable()->handles().forEach(
         [&](auto& handle) { all.emplace_back(&handle); });
   std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) {
      return std::pair(a->hwEntryIndex(), a->creationNumber()) <
             std::pair(b->hwEntryIndex(), b->creationNumber());
   });
   return all;
}

std::string
rowsText(L3UnderlayEcmpMember1Table::EntryHandle const& block) {
   auto const base = block.hwEntryIndex();
   auto const size = block.key().size();
   return base == Asic::invalidIndex || size == 0 ? "-" : fmt::format("{}-{}", base, base + size - 1);
}

std::string
blocksText(View const& view, Paint const& paint) {
   TextTable table("BLOCKS: runs of member rows that groups point at",
                   {"rows", "state", "destinations", "next hop of each member"});
   for (auto const& block : blocksByIndex(view.agent.fabric())) {
      std::string hops;
      for (auto const& [position, hop] : nextHopsOf(*block)) {
         hops += (hops.empty() ? "" : " ") + indexText(hop->hwEntryIndex());
      }
      table.rowIs({rowsText(*block),
                   {Nuv::text(block->entryState()), styleOf(block->entryState())},
                   std::to_string(view.users.ofBlock(*block).size()),
                   hops});
   }
   return table.text(paint);
}

Json
blocksJson(View const& view) {
   Json all = Json::array();
   for (auto const& block : blocksByIndex(view.agent.fabric())) {
      Json hops = Json::array();
      for (auto const& [position, hop] : nextHopsOf(*block)) {
         auto const index = hop->hwEntryIndex();
         hops.push_back(index == Asic::invalidIndex ? Json() : Json(index));
      }
      auto const base = block->hwEntryIndex();
      all.push_back({{"base", base == Asic::invalidIndex ? Json() : Json(base)},
                     {"size", block->key().size()},
                     {"state", Nuv::text(block->entryState())},
                     {"nextHops", std::move(hops)},
                     {"destinations", view.users.ofBlock(*block).size()}});
   }
   return all;
}

} // namespace

Section
blocksSection() {
   return {"blocks", "blocks", blocksText, blocksJson, {&ModelChip::L3UnderlayEcmpMember1Table::layout}};
}

} // namespace L3TunnelAgent
