#include "platform/asic/RunMap.h"

#include <algorithm>
#include <bit>

namespace Asic {

namespace {

// A block of words is one cache line, a group of nodes three.
constexpr std::size_t blockWords = 8;
constexpr std::size_t blockBits = blockWords * 64;
constexpr std::size_t groupNodes = 16;

constexpr std::uint64_t ones = ~std::uint64_t(0);

/// The bits `first` .. `end`-1 of a word; 0 <= first < end <= 64.
std::uint64_t
bits(std::size_t first, std::size_t end) {
   return (ones << first) & (ones >> (64 - end));
}

/// The length of the longest run of set bits.
std::uint32_t
longestRun(std::uint64_t word) {
   if (word == 0) {
      return 0;
   }
   // runs[i] has the bits from which 2^i bits are set.
   std::array<std::uint64_t, 7> runs;
   runs[0] = word;
   std::size_t level = 0;
   while (level < 6) {
      std::uint64_t next = runs[level] & (runs[level] >> (1u << level));
      if (next == 0) {
         break;
      }
      runs[++level] = next;
   }
   std::uint64_t starts = runs[level];
   std::uint32_t length = 1u << level;
   while (level-- > 0) {
      std::uint64_t longer = length < 64 ? starts & (runs[level] >> length) : 0;
      if (longer != 0) {
         starts = longer;
         length += 1u << level;
      }
   }
   return length;
}

/// The bits from which `length` bits are set; 1 <= length <= 64.
std::uint64_t
runStarts(std::uint64_t word, std::uint32_t length) {
   for (std::uint32_t reached = 1; reached < length && word != 0;) {
      std::uint32_t step = std::min(reached, length - reached);
      word &= word >> step;
      reached += step;
   }
   return word;
}

/// Puts the free runs of ranges that follow each other together.
class Joiner {
 public:
   void add(std::uint32_t prefix, std::uint32_t suffix, std::uint32_t best, std::uint64_t span) {
      bool isFree = prefix == span;
      best_ = std::max({best_, best, open_ + prefix});
      open_ = isFree ? open_ + prefix : suffix;
      if (!isClosed_) {
         prefix_ += prefix;
         isClosed_ = !isFree;
      }
   }

   std::uint32_t prefix() const { return prefix_; }
   std::uint32_t suffix() const { return open_; }
   std::uint32_t best() const { return best_; }

 private:
   std::uint32_t prefix_ = 0;
   std::uint32_t open_ = 0;
   std::uint32_t best_ = 0;
   bool isClosed_ = false;
};

/// The number of indices beneath a node of that level.
std::uint64_t
spanOf(std::size_t level) {
   return std::uint64_t(blockBits) << (4 * level);
}
static_assert(groupNodes == 1 << 4);

} // namespace

std::uint32_t
RunMap::largestFreeRun() const {
   return depth_ ? levels_[depth_ - 1][0].best : 0;
}

std::optional<std::uint32_t>
RunMap::firstFit(std::uint32_t length) const {
   if (length == 0 || length > largestFreeRun()) {
      return std::nullopt;
   }
   std::size_t node = 0;
   for (std::size_t level = depth_ - 1; level > 0; --level) {
      std::uint64_t span = spanOf(level - 1);
      std::uint32_t open = 0;
      // Some child has the run, or it starts in one child and ends in a later one.
      for (std::size_t child = node * groupNodes;; ++child) {
         Node const& summary = levels_[level - 1][child];
         if (summary.prefix >= length - open) {
            return std::uint32_t(child * span - open);
         }
         if (summary.best >= length) {
            node = child;
            break;
         }
         open = summary.prefix == span ? open + summary.prefix : summary.suffix;
      }
   }
   return firstFitInBlock(node, length);
}

/// The same within a block that is known to have such a run.
std::uint32_t
RunMap::firstFitInBlock(std::size_t block, std::uint32_t length) const {
   std::uint32_t open = 0;
   for (std::size_t at = block * blockWords;; ++at) {
      std::uint64_t word = words_[at];
      if (std::uint32_t(std::countr_one(word)) >= length - open) {
         return std::uint32_t(at * 64 - open);
      }
      if (length <= 64) {
         if (std::uint64_t starts = runStarts(word, length)) {
            return std::uint32_t(at * 64) + std::uint32_t(std::countr_zero(starts));
         }
      }
      open = word == ones ? open + 64 : std::uint32_t(std::countl_one(word));
   }
}

bool
RunMap::take(std::uint32_t base, std::uint32_t length) {
   if (!isFree(base, length)) {
      return false;
   }
   set(false, base, length);
   used_ += length;
   return true;
}

bool
RunMap::give(std::uint32_t base, std::uint32_t length) {
   if (!isInRange(base, length) || !all(false, base, length)) {
      return false;
   }
   set(true, base, length);
   used_ -= length;
   return true;
}

bool
RunMap::isFree(std::uint32_t base, std::uint32_t length) const {
   return isInRange(base, length) && all(true, base, length);
}

bool
RunMap::isInRange(std::uint32_t base, std::uint32_t length) const {
   return length != 0 && base < size_ && length <= size_ - base;
}

bool
RunMap::all(bool free, std::uint32_t base, std::uint32_t length) const {
   std::size_t end = std::size_t(base) + length;
   for (std::size_t at = base; at < end;) {
      std::size_t start = at - at % 64;
      std::uint64_t mask = bits(at % 64, std::min<std::size_t>(end - start, 64));
      if ((words_[start / 64] & mask) != (free ? mask : 0)) {
         return false;
      }
      at = start + 64;
   }
   return true;
}

/// Marks a run that is in range and brings all nodes up to date.
void
RunMap::set(bool free, std::uint32_t base, std::uint32_t length) {
   std::size_t end = std::size_t(base) + length;
   for (std::size_t at = base; at < end;) {
      std::size_t start = at - at % 64;
      std::uint64_t mask = bits(at % 64, std::min<std::size_t>(end - start, 64));
      std::uint64_t& word = words_[start / 64];
      word = free ? word | mask : word & ~mask;
      at = start + 64;
   }
   summarize(base / blockBits, (end - 1) / blockBits);
}

/// Brings the nodes of those blocks, and all that are above them, up to date.
void
RunMap::summarize(std::size_t first, std::size_t last) {
   bool hasChanged = true;
   for (std::size_t level = 0; level < depth_ && hasChanged; ++level) {
      hasChanged = false;
      for (std::size_t node = first; node <= last; ++node) {
         Node summary = level == 0 ? blockSummary(node) : nodeSummary(level, node);
         hasChanged |= summary != levels_[level][node];
         levels_[level][node] = summary;
      }
      first /= groupNodes;
      last /= groupNodes;
   }
}

RunMap::Node
RunMap::blockSummary(std::size_t block) const {
   Joiner joiner;
   for (std::size_t at = block * blockWords; at < (block + 1) * blockWords; ++at) {
      std::uint64_t word = words_[at];
      // A word with fewer free indices than that cannot have a longer run.
      bool isWorthwhile = std::uint32_t(std::popcount(word)) > joiner.best();
      joiner.add(std::uint32_t(std::countr_one(word)), std::uint32_t(std::countl_one(word)),
                 isWorthwhile ? longestRun(word) : 0, 64);
   }
   return {joiner.prefix(), joiner.suffix(), joiner.best()};
}

RunMap::Node
RunMap::nodeSummary(std::size_t level, std::size_t node) const {
   Joiner joiner;
   for (std::size_t child = node * groupNodes; child < (node + 1) * groupNodes; ++child) {
      Node const& summary = levels_[level - 1][child];
      joiner.add(summary.prefix, summary.suffix, summary.best, spanOf(level - 1));
   }
   return {joiner.prefix(), joiner.suffix(), joiner.best()};
}

bool
RunMap::grow(std::uint32_t size) {
   if (size < size_) {
      return false;
   }
   if (size == size_) {
      return true;
   }
   // All memory comes first: words and nodes that are 0 mean nothing yet.
   std::size_t nodes = (std::size_t(size) - 1) / blockBits + 1;
   words_.resize(nodes * blockWords);
   std::size_t depth = 1;
   for (; nodes > 1; ++depth) {
      std::size_t groups = (nodes - 1) / groupNodes + 1;
      levels_[depth - 1].resize(groups * groupNodes);
      nodes = groups;
   }
   levels_[depth - 1].resize(1);

   std::uint32_t base = size_;
   depth_ = depth;
   size_ = size;
   // The first node of each new level lies above the new indices, so this reaches all that was there as well.
   set(true, base, size - base);
   return true;
}

} // namespace Asic
