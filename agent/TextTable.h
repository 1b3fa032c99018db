#pragma once

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// Rows of text in aligned columns, under a title and a line of column heads.
class TextTable {
 public:
   TextTable(std::string title, std::vector<std::string> heads);

   /// Adds a row. Cells beyond the heads are dropped, missing ones are empty.
   void rowIs(std::vector<std::string> cells);

   /// The whole table, each line with its end, no blanks at the end of one. Without rows it says "(none)".
   std::string text() const;

 private:
   std::string title_;
   std::vector<std::vector<std::string>> rows_;
};

} // namespace L3TunnelAgent
