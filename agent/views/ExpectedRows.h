#pragma once

#include "agent/views/Users.h"
#include "chip/model/RowLayout.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What a software table's entry says of a row.
struct ExpectedRow {
   struct Field {
      ModelChip::BitField const* field;
      std::uint64_t value;
   };

   Asic::Index index{};
   bool isComplete{}; ///< the entry's state is success: the row has to be there as it is said
   std::string owner; ///< key of the entry
   Users::Addresses const* destinations{}; ///< that stand on it; null: none
   std::vector<Field> fields;              ///< all others are 0
};

/// What the software tables say of all rows of the hardware table of that layout. An entry that has no index
/// says nothing of any row.
std::vector<ExpectedRow> expectedRows(Fabric const& fabric, Users const& users,
                                      ModelChip::RowLayout const& layout);

} // namespace L3TunnelAgent
