// The job in the barest C++ that still does it: one look-up for each via and each set, rows stored where they
// belong, users counted. No handles, no states, no answers, no trace.

#include "bench/job/Run.h"

#include <absl/container/flat_hash_map.h>
#include <bit>

namespace {

using namespace Bench;

/// A next hop's key, 12 bytes without padding.
struct Key {
   std::uint32_t words[3];

   explicit Key(Via const& via)
       : words{std::uint32_t(via.mac), std::uint32_t(via.mac >> 32) | std::uint32_t(via.interface) << 16,
               via.port} {}

   friend bool operator==(Key const&, Key const&) = default;
   template <class H>
   friend H AbslHashValue(H state, Key const& key) {
      return H::combine(std::move(state), key.words[0], key.words[1], key.words[2]);
   }
};

/// Free indices, a bit each.
class FreeIndices {
 public:
   explicit FreeIndices(std::size_t count) : words_(count / 64 + 1, ~std::uint64_t(0)) { words_[0] &= ~1ull; }

   std::uint32_t take() {
      while (words_[lowest_] == 0) {
         ++lowest_;
      }
      auto bit = std::countr_zero(words_[lowest_]);
      words_[lowest_] &= words_[lowest_] - 1;
      return std::uint32_t(lowest_ * 64 + std::size_t(bit));
   }

   void give(std::uint32_t index) {
      words_[index / 64] |= 1ull << index % 64;
      lowest_ = std::min<std::size_t>(lowest_, index / 64);
   }

 private:
   std::vector<std::uint64_t> words_;
   std::size_t lowest_{};
};

class Floor {
 public:
   explicit Floor(Job const& job)
       : job_(job)
       , freeHops_(job.hopRows())
       , ing_(job.hopRows() * 2)
       , egr_(job.hopRows() * 3)
       , hopUsers_(job.hopRows())
       , members_(job.memberRows() * 2)
       , groups_((job.sets() + job.changes()) * 3)
       , bases_(job.sets() + job.changes()) {
      for (std::size_t set = 0; set < job.sets(); ++set) {
         vias_.push_back(job.setOf(set));
      }
      changedVias_.resize(job.sets());
      auto order = job.order(2);
      for (std::size_t number = 0; number < job.changes(); ++number) {
         changedVias_[order[number]] = job.changedSetOf(order[number]);
      }
   }

   void add(std::size_t destination, std::size_t set) {
      bases_[destination] = acquire(destination, vias_[set]);
   }

   // The new set is there before the old one goes.
   void addChanged(std::size_t destination, std::size_t set) {
      auto before = bases_[destination];
      bases_[destination] = acquire(destination, changedVias_[set]);
      release(before, vias_[set]);
      std::swap(vias_[set], changedVias_[set]);
   }

   void withdraw(std::size_t destination, std::size_t set) {
      if (job_.hasGroups) {
         rowIs<3>(groups_, destination, {0, 0, 0});
      }
      release(bases_[destination], vias_[set]);
   }

   void settle() {}

   void holdNextHops() {
      for (auto const& vias : vias_) {
         for (auto const& via : vias) {
            hopAt(via);
         }
      }
   }

   std::uint64_t rowsWritten() const { return rowsWritten_; }

   /// Rows of arrays that are used, and the count beside each next hop; bases are those that groups would
   /// have.
   std::size_t rowBytes() const {
      return hops_.size() * 6 * sizeof(std::uint32_t) + std::size_t(nextBase_) * 2 * sizeof(std::uint32_t) +
             groupsUsed_ * 3 * sizeof(std::uint32_t);
   }

   std::uint64_t digest(std::size_t destination) const {
      auto base = job_.hasGroups ? groups_[destination * 3] >> 16 : bases_[destination];
      std::uint64_t sum = 0;
      for (std::size_t at = base; at < base + job_.set; ++at) {
         std::size_t hop = members_[at * 2 + 1];
         sum += digestOfRows(std::span(ing_).subspan(hop * 2, 2), std::span(egr_).subspan(hop * 3, 3));
      }
      return sum;
   }

   bool isEmpty() const { return hops_.empty() && sets_.empty(); }

 private:
   struct Set {
      std::uint32_t base;
      std::uint32_t users;
   };

   template <std::size_t count>
   void rowIs(std::vector<std::uint32_t>& rows, std::size_t index, std::array<std::uint32_t, count> words) {
      std::copy_n(words.begin(), count, rows.begin() + std::ptrdiff_t(index * count));
      ++rowsWritten_;
   }

   std::uint32_t hopAt(Via const& via) {
      auto [hop, isNew] = hops_.try_emplace(Key(via));
      if (isNew) {
         hop->second = freeHops_.take();
         rowIs<2>(ing_, hop->second, {1u | 4u << 8 | std::uint32_t(via.port) << 16, 5});
         rowIs<3>(egr_, hop->second,
                  {1u | 9u << 8 | std::uint32_t(via.interface) << 16, std::uint32_t(via.mac),
                   std::uint32_t(via.mac >> 32)});
      }
      return hop->second;
   }

   std::uint32_t acquire(std::size_t destination, std::vector<Via> const& vias) {
      hopsOfSet_.clear();
      for (auto const& via : vias) {
         hopsOfSet_.push_back(hopAt(via));
      }
      auto [set, isNew] = sets_.try_emplace(hopsOfSet_);
      if (isNew) {
         set->second.base = nextBase_;
         for (auto hop : hopsOfSet_) {
            ++hopUsers_[hop];
            rowIs<2>(members_, nextBase_++, {1, hop});
         }
      }
      ++set->second.users;
      if (job_.hasGroups) {
         groupsUsed_ = std::max(groupsUsed_, destination + 1);
         rowIs<3>(groups_, destination, {1u | set->second.base << 16, std::uint32_t(vias.size()), 1});
      }
      return set->second.base;
   }

   void release(std::uint32_t base, std::vector<Via> const& vias) {
      hopsOfSet_.clear();
      for (std::size_t at = base; at < base + vias.size(); ++at) {
         hopsOfSet_.push_back(members_[at * 2 + 1]);
      }
      auto set = sets_.find(hopsOfSet_);
      if (--set->second.users != 0) {
         return;
      }
      sets_.erase(set);
      for (std::size_t position = 0; position < vias.size(); ++position) {
         rowIs<2>(members_, base + position, {0, 0});
         auto hop = hopsOfSet_[position];
         if (--hopUsers_[hop] == 0) {
            rowIs<2>(ing_, hop, {0, 0});
            rowIs<3>(egr_, hop, {0, 0, 0});
            hops_.erase(Key(vias[position]));
            freeHops_.give(hop);
         }
      }
   }

   Job job_;
   std::vector<std::vector<Via>> vias_;
   std::vector<std::vector<Via>> changedVias_;

   absl::flat_hash_map<Key, std::uint32_t> hops_;
   absl::flat_hash_map<std::vector<std::uint32_t>, Set> sets_;
   FreeIndices freeHops_;
   std::vector<std::uint32_t> ing_;
   std::vector<std::uint32_t> egr_;
   std::vector<std::uint32_t> hopUsers_;
   std::vector<std::uint32_t> members_;
   std::vector<std::uint32_t> groups_;
   std::vector<std::uint32_t> bases_;
   std::uint32_t nextBase_{};
   std::size_t groupsUsed_{};
   std::vector<std::uint32_t> hopsOfSet_;
   std::uint64_t rowsWritten_{};
};

} // namespace

int
main(int argc, char** argv) {
   return sideMain<Floor>("floor", argc, argv);
}
