#include "agent/views/Json.h"

#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

std::string
text(Json const& document) {
   return document.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string
lineText(Json const& document) {
   return document.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace L3TunnelAgent
