#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Record.h"

namespace ZandorL3Common {

/// Key of an ECMP group: the number of the adjacency that the group serves.
struct ZANDOR_EXPORT L3AdjIdKey : Nuv::Record<L3AdjIdKey> {
   std::uint32_t id{};

   static constexpr auto fieldList() {
      return Nuv::fieldList("ZandorL3Common::L3AdjIdKey", Nuv::field("id", &L3AdjIdKey::id));
   }
};

} // namespace ZandorL3Common
