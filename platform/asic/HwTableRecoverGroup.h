#pragma once

#include "platform/asic/HwTable.h"
#include "platform/nuv/Export.h"

#include <vector>

namespace Asic {

/// Hardware tables that are recovered together after a restart: their rows are taken over first, then the
/// software tables write what they want, and at the end of recovery what nobody wrote again is cleared. Each
/// of the two is done once for each table.
class ZANDOR_EXPORT HwTableRecoverGroup final : public Nuv::Object {
 public:
   HwTableRecoverGroup() = default;

   /// Adds a hardware table, unless it is there already. A table whose rows point at rows of another comes
   /// behind that one.
   void hwTableIs(Nuv::Ptr<HwTable> const& table);

   std::size_t hwTables() const { return members_.size(); }

   /// Takes over the rows of each table that has not been recovered yet, before the first entry is written
   /// to it.
   void recover();

   /// Clears the rows of each recovered table that nobody wrote again, last table first, so that no row
   /// points at one that is gone. Returns how many rows there were.
   std::size_t purge();

 private:
   enum class Progress : std::uint8_t { added, recovered, purged };

   struct Member {
      Nuv::Ptr<HwTable> table;
      Progress progress{Progress::added};
   };

   std::vector<Member> members_;
};

} // namespace Asic
