#include "platform/nuv/Text.h"

#include <fmt/format.h>
#include <iterator>
#include <ostream>

namespace Nuv {

void
appendText(Pelm::String& out, bool value) {
   out.append(value ? "True" : "False");
}

void
appendText(Pelm::String& out, unsigned long long value) {
   fmt::format_to(std::back_inserter(out), "{}", value);
}

void
appendText(Pelm::String& out, long long value) {
   fmt::format_to(std::back_inserter(out), "{}", value);
}

void
appendText(Pelm::String& out, void const* value) {
   fmt::format_to(std::back_inserter(out), "{}", fmt::ptr(value));
}

std::ostream&
writeText(std::ostream& stream, Pelm::String const& text) {
   return stream << text;
}

} // namespace Nuv
