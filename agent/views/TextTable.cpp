#include "agent/views/TextTable.h"

#include <algorithm>

namespace L3TunnelAgent {

TextTable::TextTable(std::string title, std::vector<std::string> heads) : title_(std::move(title)), rows_(1) {
   for (auto& head : heads) {
      rows_.front().emplace_back(std::move(head), Style::faint);
   }
}

void
TextTable::rowIs(std::vector<Cell> cells) {
   cells.resize(rows_.front().size());
   rows_.push_back(std::move(cells));
}

std::string
TextTable::text(Paint const& paint) const {
   std::string out = paint(Style::title, title_) + "\n";
   if (rows_.size() == 1) {
      return out + "  (none)\n";
   }
   std::vector<std::size_t> widths(rows_.front().size());
   for (auto const& row : rows_) {
      for (std::size_t column = 0; column < row.size(); ++column) {
         widths[column] = std::max(widths[column], row[column].text.size());
      }
   }
   for (auto const& row : rows_) {
      std::size_t blanks = 0;
      for (std::size_t column = 0; column < row.size(); ++column) {
         auto const& cell = row[column];
         blanks += 2;
         if (!cell.text.empty()) {
            out += std::string(blanks, ' ') + paint(cell.style, cell.text);
            blanks = 0;
         }
         blanks += widths[column] - cell.text.size();
      }
      out += "\n";
   }
   return out;
}

} // namespace L3TunnelAgent
