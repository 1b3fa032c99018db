#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"
#include "tables/L3NextHop2Table.h"
#include "types/SwFieldTypes.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

using ZandorL3Tunnel::DestinationType;
using ZandorL3Tunnel::L3NextHop2Table;

namespace {

/// A next hop as its two halves have it.
struct NextHopLine {
   Nuv::Ptr<L3NextHop2Table::EntryHandle> handle;
   std::optional<unsigned> type;
   std::optional<std::uint16_t> port;
   std::optional<Fendo::EthAddr> mac;
   std::optional<Asic::Index> interface;
};

NextHopLine
lineOf(L3NextHop2Table const& table, L3NextHop2Table::EntryHandle& handle) {
   NextHopLine line{.handle = &handle, .type = {}, .port = {}, .mac = {}, .interface = {}};
   if (auto const ing = table.ingL3NextHop2TableEntry(handle.key())) {
      line.type = ing->destinationType;
      if (line.type == unsigned(DestinationType::unicast)) {
         line.port = ing->destinationId;
      }
   }
   // Interface 0 stands for none in particular; its next hops rewrite nothing.
   auto const egr = table.egrL3NextHop2Entry(handle.key());
   if (egr && egr->l3Oif2Handle && egr->l3Oif2Handle->hwEntryIndex() != 0) {
      line.mac = egr->dstMacAddress;
      line.interface = egr->l3Oif2Handle->hwEntryIndex();
   }
   return line;
}

std::vector<NextHopLine>
lines(Fabric const& fabric) {
   std::vector<NextHopLine> all;
   auto const& table = *fabric.programmer().l3EcmpNextHopTable();
   table.handles().forEach([&](auto& handle) { all.push_back(lineOf(table, handle)); });
   std::sort(all.begin(), all.end(), [](auto const& a, auto const& b) {
      return std::pair(a.handle->hwEntryIndex(), a.handle->creationNumber()) <
             std::pair(b.handle->hwEntryIndex(), b.handle->creationNumber());
   });
   return all;
}

std::string
nextHopsText(View const& view, Paint const& paint) {
   TextTable table("NEXT HOPS: one ingress and one egress row each, at one index",
                   {"next hop", "state", "sends to", "port", "neighbour", "interface", "members"});
   for (auto const& line : lines(view.agent.fabric())) {
      table.rowIs({indexText(line.handle->hwEntryIndex()),
                   {Nuv::text(line.handle->entryState()), styleOf(line.handle->entryState())},
                   line.type ? sendsTo(*line.type) : "-",
                   line.port ? portText(view.agent, *line.port) : "-",
                   line.mac ? Nuv::text(*line.mac) : "-",
                   line.interface ? indexText(*line.interface) : "-",
                   std::to_string(view.users.membersOf(*line.handle))});
   }
   return table.text(paint);
}

Json
nextHopsJson(View const& view) {
   Json all = Json::array();
   for (auto const& line : lines(view.agent.fabric())) {
      auto const index = line.handle->hwEntryIndex();
      int const device = line.port ? view.agent.fabric().ports().device(*line.port) : 0;
      all.push_back({{"index", index == Asic::invalidIndex ? Json() : Json(index)},
                     {"state", Nuv::text(line.handle->entryState())},
                     {"sendsTo", line.type ? Json(sendsTo(*line.type)) : Json()},
                     {"port", line.port ? Json(*line.port) : Json()},
                     {"port_dev", device ? Json(view.agent.kernel().linkName(device)) : Json()},
                     {"mac", line.mac ? Json(Nuv::text(*line.mac)) : Json()},
                     {"interface", line.interface ? Json(*line.interface) : Json()},
                     {"members", view.users.membersOf(*line.handle)}});
   }
   return all;
}

} // namespace

Section
nextHopsSection() {
   return {"next-hops",
           "nextHops",
           nextHopsText,
           nextHopsJson,
           {&ModelChip::IngL3NextHop2Table::layout, &ModelChip::EgrL3NextHop2::layout}};
}

} // namespace L3TunnelAgent
