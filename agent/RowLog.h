#pragma once

#include "chip/model/Chip.h"

#include <deque>
#include <map>
#include <vector>

namespace L3TunnelAgent {

/// What the chip did to its rows, in order: counted always, and kept while that is asked for.
class RowLog {
 public:
   using Words = std::vector<std::uint32_t>; ///< of a row; empty where there is none

   struct Write {
      ModelChip::Table const* table{};
      Asic::Index index{};
      Words before;
      Words after;
   };

   /// Observes the chip, which must outlive the log and have no other observer.
   explicit RowLog(ModelChip::Chip& chip);
   RowLog(RowLog const&) = delete;
   RowLog& operator=(RowLog const&) = delete;
   ~RowLog();

   /// Rows written or cleared so far, in all tables and in one.
   std::size_t count() const { return count_; }
   std::size_t count(ModelChip::Table const& table) const;

   /// Of all those, how many had the words already.
   std::size_t needless() const { return needless_; }

   /// Whether writes are kept from here on, the newest `most` of them; they are forgotten when not.
   void isKept(bool kept, std::size_t most = unlimited);

   /// Those that are kept, in order: the last one is number `count()`.
   std::deque<Write> const& writes() const { return writes_; }

   /// Forgets writes up to that number.
   void writesDel(std::size_t upTo);

   static constexpr std::size_t unlimited = ~std::size_t(0);

 private:
   struct Mirror {
      std::vector<Words> rows;
      std::size_t writes{};
   };

   static Words rowOf(ModelChip::Table const& table, Asic::Index index);
   void rowIs(ModelChip::Table const& table, Asic::Index index);

   ModelChip::Chip& chip_;
   std::size_t count_{};
   std::size_t needless_{};
   bool isKept_{};
   std::size_t most_{unlimited};
   std::deque<Write> writes_;
   std::map<ModelChip::Table const*, Mirror> mirrors_;
};

} // namespace L3TunnelAgent
