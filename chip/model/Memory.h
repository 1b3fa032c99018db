#pragma once

#include "chip/model/RowLayout.h"
#include "platform/asic/Index.h"
#include "platform/nuv/Ptr.h"
#include "platform/pelm/String.h"

#include <map>
#include <vector>

namespace ModelChip {

/// The rows that a chip has in one table.
class Rows {
 public:
   Rows(Asic::Index size, unsigned wordsPerRow);

   /// How many rows there can be.
   Asic::Index size() const { return Asic::Index(isPresent_.size()); }
   /// How many there are.
   Asic::Index present() const { return present_; }

   /// Whether there is a row at `index`; false from `size` on.
   bool has(Asic::Index index) const { return index < size() && isPresent_[index]; }
   /// The words of the row at `index`, below `size`; zero where there is no row.
   std::span<std::uint32_t const> row(Asic::Index index) const;

   /// Writes or clears the row at `index`, below `size`; takes as many words as a row has.
   void rowIs(Asic::Index index, std::span<std::uint32_t const> words);
   void rowDel(Asic::Index index);

 private:
   unsigned wordsPerRow_;
   Asic::Index present_{};
   std::vector<std::uint32_t> words_;
   std::vector<bool> isPresent_;
};

/// The rows of all tables of a chip. They outlive the chip when somebody else holds the memory: a later chip
/// on it finds them, as a process finds the rows of the one before it.
class Memory final : public Nuv::Object {
 public:
   /// The rows of `layout`'s table, none at first. They stay where they are. Throws `Nuv::RangeException`
   /// when the table has another size already.
   Rows& rows(RowLayout const& layout, Asic::Index size);

 private:
   std::map<Pelm::String, Rows> tables_;
};

} // namespace ModelChip
