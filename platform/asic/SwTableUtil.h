#pragma once

#include "platform/asic/HwTable.h"
#include "platform/asic/HwTableMountInfo.h"
#include "platform/asic/HwTableRecoverGroup.h"
#include "platform/kallo/MountGroup.h"
#include "platform/nuv/Export.h"

#include <span>

namespace Asic {

/// What knows how a table's entries lie in the rows of a chip's hardware table. Supplied by a plug-in of the
/// chip.
class ZANDOR_EXPORT SwTable::Util : public Nuv::Object {
 public:
   /// Adds to `group` the mount of what is published of the hardware tables that software tables of type
   /// `tableType` use.
   static void doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group,
                                       Pelm::String const& tableType);

   /// Mounts the hardware table `hwTableName` of the chip `unit` and adds it to `group`; does nothing when
   /// the chip has none of that name. Of the chip's description nothing else is needed.
   static void doRecoverHwTable(Nuv::Ptr<HwTableRecoverGroup> const& group, UnitId unit,
                                Nuv::Ptr<Kallo::EntityManager> const& entityManager, ChipInfo const& chipInfo,
                                Pelm::String const& hwTableName);

   HwTable& hwTable() const { return *hwTable_; }

   /// The index of the row that dependants of the entry name.
   virtual Index getHwIndex(EntryHandle const& handle) const { return handle.hwIndexForDependentField(); }

   /// Whether no other table writes rows of this hardware table.
   virtual bool isExclusivelyOwnedTable() const { return true; }

   /// Clears the row at `index`, unless somebody else wrote it since.
   void hwEntryDel(Index index, EntryHandle const& owner, SwTable* table) const {
      hwTable().rowDel(index, owner, table);
   }

 protected:
   explicit Util(Nuv::Ptr<HwTable> table) : hwTable_(std::move(table)) {}

 private:
   Nuv::Ptr<HwTable> hwTable_;
};

/// The util of a table with entries of type `Entry`.
template <class Entry>
class ZANDOR_EXPORT SwTable::EntryUtil : public SwTable::Util {
 public:
   /// Packs `entry` into a row of the hardware table; `words` are as many as a row has, and zero.
   virtual void rowOf(Entry const& entry, std::span<std::uint32_t> words) const = 0;

   /// Writes the row of `entry` at `index`. What the entry needs is held while the row is in force.
   void hwEntryIs(Index index, Entry const& entry, EntryHandle& owner, HwTable::Hold hold) const {
      std::uint32_t words[HwTable::maxWords]{};
      auto row = std::span(words).first(hwTable().shape().wordsPerRow);
      rowOf(entry, row);
      hwTable().rowIs(index, row, owner, std::move(hold));
   }

 protected:
   using Util::Util;
};

} // namespace Asic
