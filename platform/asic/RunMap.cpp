#include "platform/asic/RunMap.h"

#include <algorithm>
#include <bit>

namespace Asic {

namespace {

// What is best done without branches is: which way they go cannot be predicted.
constexpr std::size_t groupSize = 4;

constexpr std::uint64_t ones = ~std::uint64_t(0);

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
   std::uint32_t reached = 1;
   for (int doubling = 0; doubling < 6; ++doubling) {
      std::uint32_t step = std::min(reached, length - reached);
      word &= word >> step;
      reached += step;
   }
   return word;
}

/// The first of a group that is at least `length`, which one of them is.
std::size_t
firstAtLeast(std::uint32_t const* group, std::uint32_t length) {
   bool isAfterFirst = group[0] < length;
   bool isAfterSecond = isAfterFirst & (group[1] < length);
   bool isAfterThird = isAfterSecond & (group[2] < length);
   return std::size_t(isAfterFirst) + isAfterSecond + isAfterThird;
}

std::uint32_t
greatest(std::uint32_t const* group) {
   return std::max(std::max(group[0], group[1]), std::max(group[2], group[3]));
}

} // namespace

std::uint32_t
RunMap::largestFreeRun() const {
   return depth_ ? longest_[depth_ - 1][0] : 0;
}

std::optional<std::uint32_t>
RunMap::firstFit(std::uint32_t length) const {
   if (length == 0 || length > largestFreeRun()) {
      return std::nullopt;
   }
   std::size_t at = 0;
   for (std::size_t level = depth_ - 1; level-- > 0;) {
      at = at * groupSize + firstAtLeast(&longest_[level][at * groupSize], length);
   }
   // One that does not end in its word is the last there. Beyond 64, it is the only one in question.
   std::uint64_t started = startedIn(at);
   std::uint64_t starts = runStarts(started, std::min(length, 64u));
   int position = starts != 0 ? std::countr_zero(starts) : 64 - std::countl_one(started);
   return std::uint32_t(at * 64) + std::uint32_t(position);
}

bool
RunMap::take(std::uint32_t base, std::uint32_t length) {
   if (!isInRange(base, length) || !isBitFree(base)) {
      return false;
   }
   Run run;
   run.first = startOfRun(base);
   run.end = endOfRun(run.first);
   if (run.end - base < length) {
      return false;
   }
   clear(base, length, run);
   used_ += length;
   return true;
}

bool
RunMap::give(std::uint32_t base, std::uint32_t length) {
   if (!isInRange(base, length)) {
      return false;
   }
   if (flip(base, length) != 0) {
      flip(base, length);
      return false;
   }
   merge(base, length);
   used_ -= length;
   return true;
}

bool
RunMap::isFree(std::uint32_t base, std::uint32_t length) const {
   return isInRange(base, length) && isBitFree(base) && endOfRun(startOfRun(base)) - base >= length;
}

bool
RunMap::isInRange(std::uint32_t base, std::uint32_t length) const {
   return length != 0 && base < size_ && length <= size_ - base;
}

/// The first index of the free run around an index; the one after it, when it is taken.
std::uint32_t
RunMap::startOfRun(std::uint32_t index) const {
   std::size_t word = index / 64;
   std::uint32_t at = index % 64;
   auto below = std::uint32_t(std::countl_one(words_[word] << (63 - at)));
   if (below <= at) {
      return index + 1 - below;
   }
   if (word == 0 || words_[word - 1] >> 63 == 0) {
      return std::uint32_t(word * 64);
   }
   // No run begins in the words that this one fills up.
   std::size_t first = lastWordWithStart(word - 1);
   return std::uint32_t(first * 64 + 64) - std::uint32_t(std::countl_one(words_[first]));
}

/// The end of the free run that begins at `first`; `first` itself, when it is taken.
std::uint32_t
RunMap::endOfRun(std::uint32_t first) const {
   std::size_t word = first / 64;
   auto open = std::uint32_t(std::countr_one(words_[word] >> (first % 64)));
   bool goesOn = first % 64 + open == 64;
   if (!goesOn)
      return first + open;
   std::uint64_t next = words_[word + 1];
   return first + (next == ones ? longest_[0][word] : open + std::uint32_t(std::countr_one(next)));
}

/// The bits of a word without those of a run that begins before it.
std::uint64_t
RunMap::startedIn(std::size_t at) const {
   std::uint64_t word = words_[at];
   bool isOpen = at > 0 && words_[at - 1] >> 63 != 0;
   return isOpen ? word & (word + 1) : word;
}

/// The length of the longest run that begins in a word. One that goes on beyond the next word must be known.
std::uint32_t
RunMap::longestFrom(std::size_t at, Run known) const {
   std::uint64_t word = startedIn(at);
   auto open = std::uint32_t(std::countl_one(word));
   auto end = std::uint32_t(at * 64 + 64);
   auto length = open;
   if (open != 0) {
      length = end - open == known.first ? known.end - known.first
                                         : open + std::uint32_t(std::countr_one(words_[at + 1]));
   }
   // Only as many bits as that can be a longer run.
   std::uint64_t closed = open < 64 ? word & (ones >> open) : 0;
   return closed != 0 && std::uint32_t(std::popcount(closed)) > length ? std::max(length, longestRun(closed))
                                                                       : length;
}

/// The last word up to `word` in which a run begins; there is one.
std::size_t
RunMap::lastWordWithStart(std::size_t word) const {
   std::size_t level = 0;
   std::size_t at = word;
   while (longest_[level][at] == 0) {
      if (at % groupSize != 0) {
         --at;
      } else {
         at = at / groupSize - 1;
         ++level;
      }
   }
   while (level-- > 0) {
      at = at * groupSize + groupSize - 1;
      while (longest_[level][at] == 0) {
         --at;
      }
   }
   return at;
}

/// Frees a run that is taken, or takes one that is free, as far as bits go. Returns a bit for each index that
/// was free before.
std::uint64_t
RunMap::flip(std::uint32_t base, std::uint32_t length) {
   std::size_t at = base / 64;
   std::size_t last = (std::size_t(base) + length - 1) / 64;
   std::uint64_t mask = ones << (base % 64);
   std::uint64_t before = 0;
   for (; at < last; ++at) {
      before |= words_[at] & mask;
      words_[at] ^= mask;
      mask = ones;
   }
   mask &= ones >> (63 - (base + length - 1) % 64);
   before |= words_[at] & mask;
   words_[at] ^= mask;
   return before;
}

/// Takes indices out of a free run.
void
RunMap::clear(std::uint32_t base, std::uint32_t length, Run within) {
   flip(base, length);
   Run before{within.first, base};
   Run after{base + length, within.end};
   std::size_t word = within.first / 64;
   bool goesOn = after.first != after.end;
   bool isNear = goesOn && after.first / 64 == word;
   // All runs of a word were at most as long as the one that was its longest. So where that one ended within
   // the word, none goes on beyond the next.
   if (longest_[0][word] == within.end - within.first) {
      lower(word, longestFrom(word, isNear ? after : before));
   }
   if (goesOn && !isNear) {
      raise(after.first / 64, after.end - after.first);
   }
   freeRuns_ += std::uint32_t(before.first != before.end) + std::uint32_t(goesOn) - 1;
}

/// Puts indices that were freed together with the free runs on both sides.
void
RunMap::merge(std::uint32_t base, std::uint32_t length) {
   std::uint32_t after = base + length;
   Run run{base > 0 ? startOfRun(base - 1) : 0, endOfRun(after)};
   std::size_t word = after / 64;
   if (run.end != after && word != run.first / 64 && longest_[0][word] == run.end - after) {
      lower(word, longestFrom(word, {}));
   }
   raise(run.first / 64, run.end - run.first);
   freeRuns_ += 1 - std::uint32_t(run.first != base) - std::uint32_t(run.end != after);
}

/// A run of that length begins in the word now.
void
RunMap::raise(std::size_t word, std::uint32_t length) {
   for (std::size_t level = 0; level < depth_ && longest_[level][word] < length; ++level) {
      longest_[level][word] = length;
      word /= groupSize;
   }
}

/// The longest run that begins in the word is not longer than that any more.
void
RunMap::lower(std::size_t word, std::uint32_t length) {
   std::uint32_t before = longest_[0][word];
   longest_[0][word] = length;
   for (std::size_t level = 1; level < depth_; ++level) {
      std::size_t first = word - word % groupSize;
      word /= groupSize;
      std::uint32_t& longest = longest_[level][word];
      if (longest != before) {
         return;
      }
      longest = greatest(&longest_[level - 1][first]);
      if (longest == before) {
         return;
      }
   }
}

/// Makes room for that many indices; what is new is taken. Throws before anything is dropped.
void
RunMap::shapeIs(std::uint32_t size) {
   std::size_t nodes = size / 64 + (size % 64 != 0);
   words_.resize(nodes + 2);
   std::size_t depth = 0;
   for (; nodes > 1; ++depth) {
      nodes = (nodes - 1) / groupSize + 1;
      longest_[depth].resize(nodes * groupSize);
   }
   longest_[depth].resize(1);
   depth_ = depth + 1;
   size_ = size;
}

void
RunMap::rebuildTree() {
   for (std::size_t level = 1; level < depth_; ++level) {
      for (std::size_t at = 0; at * groupSize < longest_[level - 1].size(); ++at) {
         longest_[level][at] = greatest(&longest_[level - 1][at * groupSize]);
      }
   }
}

bool
RunMap::grow(std::uint32_t size) {
   if (size < size_) {
      return false;
   }
   if (size == size_) {
      return true;
   }
   std::uint32_t base = size_;
   shapeIs(size);
   flip(base, size - base);
   merge(base, size - base);
   rebuildTree();
   return true;
}

bool
RunMap::shrink(std::uint32_t size) {
   if (size > size_) {
      return false;
   }
   if (size == size_) {
      return true;
   }
   if (!take(size, size_ - size)) {
      return false;
   }
   used_ -= size_ - size;
   shapeIs(size);
   rebuildTree();
   return true;
}

} // namespace Asic
