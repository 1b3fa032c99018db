#pragma once

#include "agent/views/Paint.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// Rows of text in aligned columns, under a title and a line of column heads.
class TextTable {
 public:
   struct Cell {
      // Implicit, so that rows are written as lists of texts.
      Cell(std::string content = {}, Style styledAs = Style::plain)
          : text(std::move(content)), style(styledAs) {}
      Cell(char const* content) : text(content) {}

      std::string text; ///< printable ASCII
      Style style{Style::plain};
   };

   TextTable(std::string title, std::vector<std::string> heads);

   /// Adds a row. Cells beyond the heads are dropped, missing ones are empty.
   void rowIs(std::vector<Cell> cells);

   /// The whole table, each line with its end, no blanks at the end of one. Without rows it says "(none)".
   std::string text(Paint const& paint = Paint()) const;

 private:
   std::string title_;
   std::vector<std::vector<Cell>> rows_;
};

} // namespace L3TunnelAgent
