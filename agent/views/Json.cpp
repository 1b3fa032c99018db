#include "agent/views/Json.h"

#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

Json
objectOf(std::size_t members) {
   auto object = Json::object();
   object.get_ref<Json::object_t&>().reserve(members);
   return object;
}

std::string
text(Json const& document) {
   return document.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string
lineText(Json const& document) {
   return document.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace L3TunnelAgent
