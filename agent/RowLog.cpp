#include "agent/RowLog.h"

#include <algorithm>

namespace L3TunnelAgent {

RowLog::RowLog(ModelChip::Chip& chip) : chip_(chip) {
   for (auto const& table : chip.tables()) {
      auto& mirror = mirrors_[table.get()];
      mirror.rows.resize(table->numEntries());
      for (Asic::Index index = 0; index < table->numEntries(); ++index) {
         mirror.rows[index] = rowOf(*table, index);
      }
   }
   chip.rowObserverIs([this](ModelChip::Table const& table, Asic::Index index) { rowIs(table, index); });
}

RowLog::~RowLog() {
   chip_.rowObserverIs({});
}

void
RowLog::isKept(bool kept, std::size_t most) {
   isKept_ = kept;
   most_ = most;
   if (!kept) {
      writes_.clear();
   }
}

void
RowLog::writesDel(std::size_t upTo) {
   auto const first = count_ - writes_.size(); // the number before that of the first one kept
   auto const gone = upTo > first ? std::min(upTo - first, writes_.size()) : 0;
   writes_.erase(writes_.begin(), writes_.begin() + std::ptrdiff_t(gone));
}

RowLog::Words
RowLog::rowOf(ModelChip::Table const& table, Asic::Index index) {
   if (!table.hasRow(index)) {
      return {};
   }
   auto const row = table.row(index);
   return {row.begin(), row.end()};
}

void
RowLog::rowIs(ModelChip::Table const& table, Asic::Index index) {
   auto& last = mirrors_.at(&table).rows.at(index);
   auto now = rowOf(table, index);
   ++count_;
   needless_ += now == last ? 1 : 0;
   ++mirrors_.at(&table).writes;
   if (isKept_) {
      writes_.push_back({&table, index, last, now});
      if (writes_.size() > most_) {
         writes_.pop_front();
      }
   }
   last = std::move(now);
}

std::size_t
RowLog::count(ModelChip::Table const& table) const {
   return mirrors_.at(&table).writes;
}

} // namespace L3TunnelAgent
