#include "chip/model/RowText.h"

#include <fmt/format.h>

#include <iterator>

namespace ModelChip {

Pelm::String
fieldsText(RowLayout const& layout, std::span<std::uint32_t const> words) {
   Pelm::String text;
   for (auto const& field : layout.fields) {
      auto value = field.unpack(words);
      auto const* separator = text.empty() ? "" : " ";
      if (field.width > 32) {
         fmt::format_to(std::back_inserter(text), "{}{}=0x{:0{}x}", separator, field.name, value,
                        (field.width + 3) / 4);
      } else {
         fmt::format_to(std::back_inserter(text), "{}{}={}", separator, field.name, value);
      }
   }
   return text;
}

Pelm::String
rowText(Table const& table, Asic::Index index) {
   auto text = fmt::format("{} row {}", table.shape().name, index);
   if (!table.hasRow(index)) {
      return text + ": none";
   }
   auto row = table.row(index);
   fmt::format_to(std::back_inserter(text), ": {:08x} {}", fmt::join(row, " "),
                  fieldsText(table.layout(), row));
   return text;
}

std::vector<Pelm::String>
rowTexts(Table const& table) {
   std::vector<Pelm::String> texts;
   texts.reserve(table.rowsPresent());
   for (Asic::Index index = 0; index < table.numEntries(); ++index) {
      if (table.hasRow(index)) {
         texts.push_back(rowText(table, index));
      }
   }
   return texts;
}

} // namespace ModelChip
