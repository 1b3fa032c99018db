#include "agent/commands/HelpFormatter.h"

#include <sstream>

namespace L3TunnelAgent {

namespace {

constexpr std::size_t descriptionColumn = 32;
constexpr std::size_t pageWidth = 96;

/// `left`, and beside it `right`, broken between words.
std::string
inTwoColumns(std::string const& left, std::string const& right) {
   auto out = "  " + left;
   std::size_t column = out.size();
   if (column >= descriptionColumn) {
      out += "\n";
      column = 0;
   }
   std::istringstream words(right);
   bool isFirst = true;
   for (std::string word; words >> word; isFirst = false) {
      if (!isFirst && column + 1 + word.size() > pageWidth) {
         out += "\n";
         column = 0;
      }
      auto const blanks = column < descriptionColumn ? descriptionColumn - column : 1;
      out += std::string(blanks, ' ') + word;
      column += blanks + word.size();
   }
   return out + "\n";
}

} // namespace

std::string
HelpFormatter::make_option(CLI::Option const* option, bool isPositional) const {
   auto left = option->get_name(isPositional, true);
   // Positionals are named after what they are.
   if (!isPositional && option->get_items_expected() != 0) {
      left += " " + option->get_type_name();
   }
   return inTwoColumns(left, option->get_description());
}

std::string
HelpFormatter::make_option_usage(CLI::Option const* option) const {
   return option->get_name(true);
}

} // namespace L3TunnelAgent
