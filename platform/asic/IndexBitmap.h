#pragma once

#include "platform/nuv/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Asic {

/// Which of the indices 0 .. size-1 are taken. Every operation touches one word per level of a 64-way
/// hierarchy: four words for a million indices.
class ZANDOR_EXPORT IndexBitmap {
 public:
   /// All `size` indices are free.
   explicit IndexBitmap(std::uint32_t size = 0) { grow(size); }

   std::uint32_t size() const { return size_; }
   std::uint32_t used() const { return used_; }

   /// The lowest index that is not taken; nothing when all are.
   std::optional<std::uint32_t> lowestFree() const;

   /// How many runs the free indices form, and the length of the longest. Both go through all indices, 64 at
   /// a time.
   std::uint32_t freeRuns() const;
   std::uint32_t largestFreeRun() const;

   /// Takes the index. Returns false, and changes nothing, when it is out of range or taken already.
   bool take(std::uint32_t index);

   /// Frees the index. Returns false, and changes nothing, when it is out of range or not taken.
   bool give(std::uint32_t index);

   /// Whether the index is taken; false when it is out of range.
   bool isTaken(std::uint32_t index) const;

   /// Adds free indices at the end, `size` being the new number of indices. Returns false, and changes
   /// nothing, when there are more already. Throws std::bad_alloc, which leaves the indices as they were.
   bool grow(std::uint32_t size);

   /// Drops indices from the end, `size` being the new number of indices. Returns false, and changes nothing,
   /// when there are fewer already or one to be dropped is taken. Throws like grow().
   bool shrink(std::uint32_t size);

 private:
   // A bit of level 0 is set while its index is free, one of a higher level while its word of the level below
   // is not 0. The highest level is one word. What lies beyond the size is not set.
   std::array<std::vector<std::uint64_t>, 6> levels_;
   std::size_t depth_ = 0;
   std::uint32_t size_ = 0;
   std::uint32_t used_ = 0;
};

} // namespace Asic
