#include "agent/views/Paint.h"

#include <fmt/format.h>
#include <iterator>

namespace L3TunnelAgent {

std::string
Paint::operator()(Style style, std::string_view text) const {
   static constexpr std::string_view codes[] = {"", "1", "2", "32", "33", "31"};
   if (!isColoured_ || style == Style::plain || text.empty()) {
      return std::string(text);
   }
   return fmt::format("\x1b[{}m{}\x1b[0m", codes[std::size_t(style)], text);
}

std::string
printable(std::string_view text) {
   std::string shown;
   for (char const character : text) {
      if (character >= ' ' && character <= '~') {
         shown += character;
      } else {
         fmt::format_to(std::back_inserter(shown), "\\x{:02x}", static_cast<unsigned char>(character));
      }
   }
   return shown;
}

std::string
counted(std::size_t count, std::string_view one, std::string_view many) {
   return fmt::format("{} {}", count, count == 1 ? one : many);
}

} // namespace L3TunnelAgent
