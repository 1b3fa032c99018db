#include "agent/TextTable.h"

#include <algorithm>

namespace L3TunnelAgent {

TextTable::TextTable(std::string title, std::vector<std::string> heads)
    : title_(std::move(title)), rows_{std::move(heads)} {}

void
TextTable::rowIs(std::vector<std::string> cells) {
   cells.resize(rows_.front().size());
   rows_.push_back(std::move(cells));
}

std::string
TextTable::text() const {
   std::string out = title_ + "\n";
   if (rows_.size() == 1) {
      return out + "  (none)\n";
   }
   std::vector<std::size_t> widths(rows_.front().size());
   for (auto const& row : rows_) {
      for (std::size_t column = 0; column < row.size(); ++column) {
         widths[column] = std::max(widths[column], row[column].size());
      }
   }
   for (auto const& row : rows_) {
      std::string line;
      for (std::size_t column = 0; column < row.size(); ++column) {
         line += "  " + row[column] + std::string(widths[column] - row[column].size(), ' ');
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out += line + "\n";
   }
   return out;
}

} // namespace L3TunnelAgent
