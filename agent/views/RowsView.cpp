#include "agent/views/RowsView.h"

#include "agent/views/TextTable.h"
#include "platform/chipstate/FendoTypes.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

template <class Visit>
void
forEachRow(ModelChip::Table const& table, Visit const& visit) {
   for (Asic::Index index = 0; index < table.numEntries(); ++index) {
      if (table.hasRow(index)) {
         visit(index, table.row(index));
      }
   }
}

bool
isEthernetAddress(ModelChip::BitField const& field) {
   return field.width == 48;
}

} // namespace

std::string
fieldText(ModelChip::BitField const& field, std::uint64_t value) {
   return isEthernetAddress(field) ? Nuv::text(Fendo::EthAddr::fromValue(value)) : std::to_string(value);
}

std::string
rowsText(ModelChip::Table const& table, Paint const& paint) {
   std::vector<std::string> heads{"row", "words"};
   for (auto const& field : table.layout().fields) {
      heads.emplace_back(field.name);
   }
   TextTable out(fmt::format("ROWS of {} in the chip", table.shape().name), heads);
   forEachRow(table, [&](Asic::Index index, auto const& row) {
      std::vector<TextTable::Cell> cells{std::to_string(index), fmt::format("{:08x}", fmt::join(row, " "))};
      for (auto const& field : table.layout().fields) {
         cells.emplace_back(fieldText(field, field.unpack(row)));
      }
      out.rowIs(std::move(cells));
   });
   return out.text(paint);
}

Json
rowsJson(std::vector<ModelChip::Table const*> const& tables) {
   Json all = Json::array();
   for (auto const* table : tables) {
      forEachRow(*table, [&](Asic::Index index, auto const& row) {
         Json fields = Json::object();
         for (auto const& field : table->layout().fields) {
            auto const value = field.unpack(row);
            fields[field.name] = isEthernetAddress(field) ? Json(fieldText(field, value)) : Json(value);
         }
         all.push_back({{"table", table->shape().name},
                        {"index", index},
                        {"words", std::vector<std::uint32_t>(row.begin(), row.end())},
                        {"fields", std::move(fields)}});
      });
   }
   return all;
}

} // namespace L3TunnelAgent
