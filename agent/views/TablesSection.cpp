#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"
#include "chip/model/Layouts.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

/// Entries of the software table over a hardware table; nothing where the agent has no such table.
std::optional<std::size_t>
entriesIn(Fabric const& fabric, std::string const& table) {
   auto const& programmer = fabric.programmer();
   if (table == ModelChip::EgrL3Oif2::layout.table) {
      return fabric.interfaces().table().handles().size();
   }
   if (table == ModelChip::IngL3NextHop2Table::layout.table) {
      return programmer.l3EcmpNextHopTable()->ingL3NextHop2Table()->handles().size();
   }
   if (table == ModelChip::EgrL3NextHop2::layout.table) {
      return programmer.l3EcmpNextHopTable()->egrL3NextHop2()->handles().size();
   }
   if (table == ModelChip::L3UnderlayEcmpMember1Table::layout.table) {
      return programmer.l3EcmpMemberTable()->handles().size();
   }
   if (table == ModelChip::L3EcmpGroup0Table::layout.table) {
      return fabric.groups().handles().size();
   }
   return std::nullopt;
}

std::string
tablesText(View const& view, Paint const& paint) {
   TextTable out("TABLES: rows of the chip, and entries of the software tables over them",
                 {"table", "entries", "rows", "of", "used", "written", "unanswered"});
   for (auto const& table : view.agent.fabric().chip().tables()) {
      auto const& name = table->shape().name;
      auto const entries = entriesIn(view.agent.fabric(), name);
      out.rowIs({name, entries ? std::to_string(*entries) : "-", std::to_string(table->rowsPresent()),
                 std::to_string(table->numEntries()),
                 table->numEntries()
                       ? fmt::format("{:.1f}%", 100.0 * table->rowsPresent() / table->numEntries())
                       : "-",
                 std::to_string(view.agent.rows().count(*table)), std::to_string(table->unanswered())});
   }
   return out.text(paint);
}

Json
tablesJson(View const& view) {
   Json all = Json::array();
   for (auto const& table : view.agent.fabric().chip().tables()) {
      auto const entries = entriesIn(view.agent.fabric(), table->shape().name);
      all.push_back({{"table", table->shape().name},
                     {"entries", entries ? Json(*entries) : Json()},
                     {"rows", table->rowsPresent()},
                     {"size", table->numEntries()},
                     {"written", view.agent.rows().count(*table)},
                     {"unanswered", table->unanswered()}});
   }
   return all;
}

} // namespace

Section
tablesSection() {
   return {"tables", "tables", tablesText, tablesJson, {&ModelChip::L3EcmpMember0Table::layout}};
}

} // namespace L3TunnelAgent
