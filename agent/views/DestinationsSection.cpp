#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Forwarding.h"
#include "chip/model/Layouts.h"
#include "tables/L3NextHop2Table.h"

#include <map>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

using ZandorL3Tunnel::L3NextHop2Table;

namespace {

struct GroupRow {
   Asic::Index index{};
   Asic::Index base{};
   std::uint64_t paths{};
};

/// What the destination's group row says, if the chip has one.
std::optional<GroupRow>
groupRowOf(Fabric const& fabric, ProgrammedDestination const& destination) {
   namespace Row = ModelChip::L3EcmpGroup0Table;
   if (!destination.group || !destination.group->isHwIndexValid()) {
      return std::nullopt;
   }
   auto const index = destination.group->hwEntryIndex();
   auto const* table = fabric.chip().table(Row::layout.table);
   if (!table->hasRow(index)) {
      return std::nullopt;
   }
   auto const row = table->row(index);
   return GroupRow{index, Asic::Index(Row::ecmpBlock.unpack(row)), Row::numPaths.unpack(row)};
}

std::string
destinationsText(View const& view, Paint const& paint) {
   TextTable table("DESTINATIONS", {"destination", "state", "group", "block", "paths", "vias (device@port)"});
   for (auto const& [address, destination] : view.agent.fabric().destinations()) {
      auto const row = groupRowOf(view.agent.fabric(), destination);
      table.rowIs({address.text(),
                   {std::string(text(destination.state())), styleOf(destination.state())},
                   row ? std::to_string(row->index) : "-",
                   row ? std::to_string(row->base) : "-",
                   row ? std::to_string(row->paths) : "-",
                   viasText(view.agent.kernel(), destination)});
   }
   return table.text(paint);
}

template <class T>
Json
orNull(std::optional<T> const& value) {
   return value ? Json(*value) : Json();
}

Json
orNull(std::string const& text) {
   return text.empty() ? Json() : Json(text);
}

Json
indexOrNull(Asic::Index index) {
   return index == Asic::invalidIndex ? Json() : Json(index);
}

Json
deviceJson(KernelState const& kernel, std::optional<int> device) {
   return device ? Json(kernel.linkName(*device)) : Json();
}

/// Where the next hops of vias are. A block is gone through once, however many destinations share it.
class NextHopIndices {
 public:
   /// The index of the via's next hop among those of the set's block.
   Json json(ViaSet const& set, ProgrammedVia const& via) {
      if (!isInTheChip(set, via)) {
         return {};
      }
      ZandorL3Tunnel::L3UnderlayNextHopKey key;
      key.nhEntryType = via.entry.nhEntryType;
      key.macAddr = via.entry.macAddr;
      key.l3Id = via.entry.l3Id;
      key.l2If = via.entry.l2If;
      auto const& indices = ofBlock(*set.block);
      auto const found = indices.find(key);
      return found == indices.end() ? Json() : indexOrNull(found->second);
   }

 private:
   using ByKey = std::map<ZandorL3Tunnel::L3UnderlayNextHopKey, Asic::Index>;

   ByKey const& ofBlock(Users::Handle const& block) {
      auto const [found, isNew] = byBlock_.try_emplace(&block);
      if (isNew) {
         for (auto const& [position, handle] : nextHopsOf(block)) {
            if (auto const* hop = dynamic_cast<L3NextHop2Table::EntryHandle const*>(handle.get())) {
               found->second.insert_or_assign(hop->key(), hop->hwEntryIndex());
            }
         }
      }
      return found->second;
   }

   std::map<Users::Handle const*, ByKey> byBlock_;
};

Json
viaJson(KernelState const& kernel, NextHopIndices& nextHops, ViaSet const& set,
        ProgrammedVia const& programmed) {
   static constexpr char const* kinds[] = {"unicast", "cpu", "drop"};
   auto const& via = programmed.via;
   return {{"kind", kinds[std::size_t(via.kind)]},
           {"mac", via.mac ? Json(via.mac->text()) : Json()},
           {"dev", deviceJson(kernel, via.device)},
           {"port_dev", deviceJson(kernel, via.port)},
           {"vlan", orNull(via.vlan)},
           {"tagged", orNull(via.tagged)},
           {"reason", orNull(reasonWord(programmed))},
           {"programmed", isInTheChip(set, programmed)},
           {"nextHopIndex", nextHops.json(set, programmed)}};
}

Json
destinationJson(Agent const& agent, NextHopIndices& nextHops, ProgrammedDestination const& destination) {
   auto const row = groupRowOf(agent.fabric(), destination);
   Json vias = Json::array();
   if (auto const* set = destination.set()) {
      for (auto const& via : set->vias()) {
         vias.push_back(viaJson(agent.kernel(), nextHops, *set, via));
      }
   }
   return {{"vtep", destination.address.text()},
           {"state", text(destination.state())},
           {"reason", orNull(reasonText(destination))},
           {"group", {{"index", row ? Json(row->index) : Json()}}},
           {"block", {{"base", row ? Json(row->base) : Json()}, {"size", row ? Json(row->paths) : Json()}}},
           {"vias", std::move(vias)},
           {"keptOld", keepsOldSet(destination)}};
}

Json
destinationsJson(View const& view) {
   Json all = Json::array();
   NextHopIndices nextHops;
   for (auto const& [address, destination] : view.agent.fabric().destinations()) {
      all.push_back(destinationJson(view.agent, nextHops, destination));
   }
   return all;
}

} // namespace

Json
destinationJson(Agent const& agent, ProgrammedDestination const& destination) {
   NextHopIndices nextHops;
   return destinationJson(agent, nextHops, destination);
}

Section
destinationsSection() {
   return {"destinations", "destinations", destinationsText, destinationsJson, {}};
}

} // namespace L3TunnelAgent
