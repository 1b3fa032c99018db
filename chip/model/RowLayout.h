#pragma once

#include <cstdint>
#include <span>

namespace ModelChip {

/// Some bits of a row: `width` of them, 1 to 64, from bit `offset` on. Bit 0 is the lowest of the first word.
struct BitField {
   char const* name;
   unsigned offset;
   unsigned width;

   constexpr void pack(std::span<std::uint32_t> row, std::uint64_t value) const {
      for (unsigned bit = 0; bit < width;) {
         unsigned at = offset + bit;
         unsigned count = chunk(bit);
         std::uint32_t mask = lowBits(count);
         auto& word = row[at / 32];
         word = (word & ~(mask << at % 32)) | (std::uint32_t(value >> bit) & mask) << at % 32;
         bit += count;
      }
   }

   constexpr std::uint64_t unpack(std::span<std::uint32_t const> row) const {
      std::uint64_t value = 0;
      for (unsigned bit = 0; bit < width;) {
         unsigned at = offset + bit;
         unsigned count = chunk(bit);
         value |= std::uint64_t(row[at / 32] >> at % 32 & lowBits(count)) << bit;
         bit += count;
      }
      return value;
   }

 private:
   // As many bits as are left, and as the word has.
   constexpr unsigned chunk(unsigned bit) const {
      unsigned inWord = 32 - (offset + bit) % 32;
      return width - bit < inWord ? width - bit : inWord;
   }

   static constexpr std::uint32_t lowBits(unsigned count) {
      return count == 32 ? 0xFFFFFFFF : (std::uint32_t(1) << count) - 1;
   }
};

/// What the bits of a hardware table's rows mean.
struct RowLayout {
   char const* table; ///< the hardware table's name
   char const* name;  ///< the layout's own name, by which its util is found
   unsigned wordsPerRow;
   unsigned defaultRows;
   std::span<BitField const> fields;
};

} // namespace ModelChip
