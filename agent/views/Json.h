#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace L3TunnelAgent {

/// JSON whose objects keep the order in which they were filled.
using Json = nlohmann::ordered_json;

/// An object for so many members, which stay where they are as others are added.
Json objectOf(std::size_t members);

/// The document as text, with its end of line. Text that is not UTF-8 is shown with replacement characters.
std::string text(Json const& document);

/// The same as one line.
std::string lineText(Json const& document);

} // namespace L3TunnelAgent
