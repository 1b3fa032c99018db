#pragma once

#include "platform/nuv/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Asic {

/// Contiguous runs of the indices 0 .. size-1, each index free or taken. A run is given by its first index
/// and its length, which is at least 1. What an operation costs does not depend on how the free indices are
/// scattered: searching reads one cache line per level of a 4-way tree over words of 64 indices, taking and
/// giving change the run's words and climb that tree as far as it changes.
class ZANDOR_EXPORT RunMap {
 public:
   /// All `size` indices are free.
   explicit RunMap(std::uint32_t size = 0) { grow(size); }

   std::uint32_t size() const { return size_; }
   std::uint32_t used() const { return used_; }
   std::uint32_t free() const { return size_ - used_; }

   /// The length of the longest run of free indices; 0 when all are taken.
   std::uint32_t largestFreeRun() const;

   /// How many runs the free indices form.
   std::uint32_t freeRuns() const { return freeRuns_; }

   /// The lowest index from which `length` indices are free; nothing when there is no such run.
   std::optional<std::uint32_t> firstFit(std::uint32_t length) const;

   /// Takes a run, which need not be one that firstFit() found. Returns false, and changes nothing, when it
   /// is empty or not in range or any index of it is taken.
   bool take(std::uint32_t base, std::uint32_t length);

   /// Frees a run, which may be a part of what was taken at once, or several neighbours. Returns false, and
   /// changes nothing, when it is empty or not in range or any index of it is free.
   bool give(std::uint32_t base, std::uint32_t length);

   /// Whether all indices of the run are free; false when it is empty or not in range.
   bool isFree(std::uint32_t base, std::uint32_t length) const;

   /// Adds free indices at the end, `size` being the new number of indices. Returns false, and changes
   /// nothing, when there are more already. Throws std::bad_alloc, which leaves the indices as they were.
   bool grow(std::uint32_t size);

   /// Drops indices from the end, `size` being the new number of indices. Returns false, and changes nothing,
   /// when there are fewer already or one to be dropped is taken.
   bool shrink(std::uint32_t size);

 private:
   /// A free run, from `first` up to, but not including, `end`.
   struct Run {
      std::uint32_t first = 0;
      std::uint32_t end = 0;
   };

   bool isBitFree(std::uint32_t index) const { return words_[index / 64] >> (index % 64) & 1; }
   bool isInRange(std::uint32_t base, std::uint32_t length) const;
   std::uint32_t startOfRun(std::uint32_t index) const;
   std::uint32_t endOfRun(std::uint32_t first) const;
   std::uint64_t startedIn(std::size_t word) const;
   std::uint32_t longestFrom(std::size_t word, Run known) const;
   std::size_t lastWordWithStart(std::size_t word) const;

   std::uint64_t flip(std::uint32_t base, std::uint32_t length);
   void clear(std::uint32_t base, std::uint32_t length, Run within);
   void merge(std::uint32_t base, std::uint32_t length);
   void raise(std::size_t word, std::uint32_t length);
   void lower(std::size_t word, std::uint32_t length);
   void shapeIs(std::uint32_t size);
   void rebuildTree();

   // A bit is set while its index is free; what lies beyond the size is not, and two more words follow that
   // are 0. longest_[0] has for each word the length of the longest free run that begins in it, wherever that
   // run ends; longest_[i + 1] has the greatest of each group of longest_[i], up to a level of one.
   std::vector<std::uint64_t> words_;
   std::array<std::vector<std::uint32_t>, 14> longest_;
   std::size_t depth_ = 0;
   std::uint32_t size_ = 0;
   std::uint32_t used_ = 0;
   std::uint32_t freeRuns_ = 0;
};

} // namespace Asic
