#pragma once

#include "chip/model/Chip.h"

namespace ModelChip {

/// The fields of a row by name, as in `valid=1 vlanTag=100 srcMac=0x020000000001`. Fields of more than 32
/// bits are in hex, all others in decimal.
Pelm::String fieldsText(RowLayout const& layout, std::span<std::uint32_t const> words);

/// The row that the chip has at `index` of `table`: its words in hex, then its fields. Says so when there is
/// none, outside the table too.
Pelm::String rowText(Table const& table, Asic::Index index);

/// All rows that the chip has in `table`, a line each, in the order of their indices.
std::vector<Pelm::String> rowTexts(Table const& table);

} // namespace ModelChip
