#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace L3TunnelAgent {

enum class Style : std::uint8_t { plain, title, faint, good, waiting, bad };

/// Colours text for a terminal, or leaves it as it is.
class Paint {
 public:
   explicit Paint(bool isColoured = false) : isColoured_(isColoured) {}

   bool isColoured() const { return isColoured_; }
   std::string operator()(Style style, std::string_view text) const;

 private:
   bool isColoured_;
};

/// The text with everything but printable ASCII as "\xNN", so that a name from a recording cannot command a
/// terminal or break a line.
std::string printable(std::string_view text);

/// "1 route", "2 routes".
std::string counted(std::size_t count, std::string_view one, std::string_view many);

} // namespace L3TunnelAgent
