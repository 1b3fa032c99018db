#pragma once

#include "agent/views/Json.h"
#include "agent/views/Paint.h"
#include "chip/model/Chip.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// The rows that the chip has in one table, decoded: a column for each field.
std::string rowsText(ModelChip::Table const& table, Paint const& paint);

/// The rows that the chip has in these tables, in their order.
Json rowsJson(std::vector<ModelChip::Table const*> const& tables);

/// The value of a field as people read it: addresses as such, all else in decimal.
std::string fieldText(ModelChip::BitField const& field, std::uint64_t value);

} // namespace L3TunnelAgent
