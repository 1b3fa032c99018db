#include "platform/asic/IndexBitmap.h"

#include <algorithm>
#include <bit>

namespace Asic {

namespace {

std::uint64_t
bit(std::size_t index) {
   return std::uint64_t(1) << (index % 64);
}

} // namespace

std::optional<std::uint32_t>
IndexBitmap::lowestFree() const {
   if (used_ == size_) {
      return std::nullopt;
   }
   std::size_t index = 0;
   for (std::size_t level = depth_; level-- > 0;) {
      index = index * 64 + std::size_t(std::countr_zero(levels_[level][index]));
   }
   return std::uint32_t(index);
}

std::uint32_t
IndexBitmap::freeRuns() const {
   std::uint32_t runs = 0;
   std::uint64_t before = 0;
   for (auto word : levels_[0]) {
      runs += std::uint32_t(std::popcount(word & ~(word << 1 | before >> 63)));
      before = word;
   }
   return runs;
}

std::uint32_t
IndexBitmap::largestFreeRun() const {
   std::uint32_t longest = 0;
   std::uint32_t open = 0;
   for (auto word : levels_[0]) {
      for (int at = 0; at < 64;) {
         std::uint64_t rest = word >> at;
         if (rest & 1) {
            int run = std::countr_one(rest);
            at += run;
            open += std::uint32_t(run);
            longest = std::max(longest, open);
         } else {
            at += rest == 0 ? 64 : std::countr_zero(rest);
            open = 0;
         }
      }
   }
   return longest;
}

bool
IndexBitmap::take(std::uint32_t index) {
   if (index >= size_ || isTaken(index)) {
      return false;
   }
   std::size_t at = index;
   for (std::size_t level = 0; level < depth_; ++level) {
      std::uint64_t& word = levels_[level][at / 64];
      word &= ~bit(at);
      if (word != 0) {
         break;
      }
      at /= 64;
   }
   ++used_;
   return true;
}

bool
IndexBitmap::give(std::uint32_t index) {
   if (!isTaken(index)) {
      return false;
   }
   std::size_t at = index;
   for (std::size_t level = 0; level < depth_; ++level) {
      std::uint64_t& word = levels_[level][at / 64];
      bool wasEmpty = word == 0;
      word |= bit(at);
      if (!wasEmpty) {
         break;
      }
      at /= 64;
   }
   --used_;
   return true;
}

bool
IndexBitmap::isTaken(std::uint32_t index) const {
   return index < size_ && !(levels_[0][index / 64] & bit(index));
}

bool
IndexBitmap::grow(std::uint32_t size) {
   if (size < size_) {
      return false;
   }
   if (size == size_) {
      return true;
   }
   // All memory comes first: words that are 0 mean nothing yet.
   std::size_t depth = 0;
   std::size_t words = size;
   do {
      words = words / 64 + (words % 64 != 0);
      levels_[depth++].resize(words);
   } while (words > 1);

   // A level that is new starts with what was below it, so it is filled from its beginning.
   std::size_t first = size_;
   std::size_t end = size;
   for (std::size_t level = 0; level < depth; ++level) {
      if (level > 0) {
         first = level < depth_ ? first / 64 : 0;
         end = levels_[level - 1].size();
      }
      for (std::size_t at = first; at < end;) {
         if (level == 0 && at % 64 == 0 && end - at >= 64) {
            levels_[0][at / 64] = ~std::uint64_t(0);
            at += 64;
         } else {
            if (level == 0 || levels_[level - 1][at] != 0) {
               levels_[level][at / 64] |= bit(at);
            }
            ++at;
         }
      }
   }
   depth_ = depth;
   size_ = size;
   return true;
}

bool
IndexBitmap::shrink(std::uint32_t size) {
   if (size > size_) {
      return false;
   }
   IndexBitmap kept(size);
   for (std::uint32_t index = 0; index < size_; ++index) {
      if (isTaken(index) && !kept.take(index)) {
         return false;
      }
   }
   *this = std::move(kept);
   return true;
}

} // namespace Asic
