#include "chip/model/Memory.h"

#include "platform/asic/RowWords.h"
#include "platform/nuv/Exception.h"
#include "platform/nuv/Text.h"

#include <algorithm>

namespace ModelChip {

Rows::Rows(Asic::Index size, unsigned wordsPerRow)
    : wordsPerRow_(wordsPerRow), words_(std::size_t(size) * wordsPerRow), isPresent_(size) {}

std::span<std::uint32_t const>
Rows::row(Asic::Index index) const {
   return std::span(words_).subspan(std::size_t(index) * wordsPerRow_, wordsPerRow_);
}

void
Rows::rowIs(Asic::Index index, std::span<std::uint32_t const> words) {
   Asic::copyRowWords(words.data(), wordsPerRow_, words_.data() + std::size_t(index) * wordsPerRow_);
   present_ += isPresent_[index] ? 0 : 1;
   isPresent_[index] = true;
}

void
Rows::rowDel(Asic::Index index) {
   std::fill_n(words_.begin() + std::ptrdiff_t(std::size_t(index) * wordsPerRow_), wordsPerRow_, 0u);
   present_ -= isPresent_[index] ? 1 : 0;
   isPresent_[index] = false;
}

Rows&
Memory::rows(RowLayout const& layout, Asic::Index size) {
   auto& rows = tables_.try_emplace(layout.table, size, layout.wordsPerRow).first->second;
   if (rows.size() != size) {
      throw Nuv::RangeException(
            Nuv::text("table '", layout.table, "' has ", rows.size(), " rows in memory, not ", size));
   }
   return rows;
}

} // namespace ModelChip
