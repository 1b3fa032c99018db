#pragma once

#include "platform/nuv/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Asic {

/// Contiguous runs of the indices 0 .. size-1, each index free or taken. A run is given by its first index
/// and its length, which is at least 1. Searching takes time in the logarithm of the size, however the free
/// indices are scattered; taking and giving also go over the run's bits, 64 at a time.
class ZANDOR_EXPORT RunMap {
 public:
   /// All `size` indices are free.
   explicit RunMap(std::uint32_t size = 0) { grow(size); }

   std::uint32_t size() const { return size_; }
   std::uint32_t used() const { return used_; }
   std::uint32_t free() const { return size_ - used_; }

   /// The length of the longest run of free indices; 0 when all are taken.
   std::uint32_t largestFreeRun() const;

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

 private:
   /// The free runs of a node's range: at its beginning, at its end, and the longest.
   struct Node {
      std::uint32_t prefix = 0;
      std::uint32_t suffix = 0;
      std::uint32_t best = 0;
      bool operator==(Node const&) const = default;
   };

   bool isInRange(std::uint32_t base, std::uint32_t length) const;
   bool all(bool free, std::uint32_t base, std::uint32_t length) const;
   void set(bool free, std::uint32_t base, std::uint32_t length);
   void summarize(std::size_t first, std::size_t last);
   Node blockSummary(std::size_t block) const;
   Node nodeSummary(std::size_t level, std::size_t node) const;
   std::uint32_t firstFitInBlock(std::size_t block, std::uint32_t length) const;

   // A bit is set while its index is free; the words come in blocks. levels_[0] has a node for each block,
   // levels_[i + 1] one for each group of nodes of levels_[i], and the highest level in use is one node.
   // Nodes fill up the last group of their level, and what lies beyond the size is not free.
   std::vector<std::uint64_t> words_;
   std::array<std::vector<Node>, 7> levels_;
   std::size_t depth_ = 0;
   std::uint32_t size_ = 0;
   std::uint32_t used_ = 0;
};

} // namespace Asic
