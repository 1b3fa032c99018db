#pragma once

#include "platform/asic/HwTable.h"
#include "platform/nuv/Export.h"

#include <map>

namespace Asic {

/// Which hardware tables the software tables of one type use: one for each unit at most. Published in the
/// state database under the type's path, so that others learn which hardware tables there are to mount.
///
/// It says what the type uses, not which table lives: the end of a software table changes nothing.
class ZANDOR_EXPORT HwTableMountInfo final : public Nuv::Object {
 public:
   /// Observer of one type's hardware tables.
   class Notifiee : public Nuv::Notifiee {
    public:
      /// The type uses a hardware table on `unit`, or another one than before.
      virtual void handleHwTable(UnitId unit) = 0;
   };

   explicit HwTableMountInfo(Pelm::String tableType) : tableType_(std::move(tableType)) {}

   static constexpr char const* typeName() { return "Asic::HwTableMountInfo"; }

   /// Where the state database has that of the software tables of type `tableType`.
   static Pelm::String path(Pelm::String const& tableType);

   /// Says in `stateDatabase` that tables of type `tableType` use `hwTable` on `unit`, and mounts the path
   /// for it. Observers may be called before it returns.
   static void publish(Kallo::EntityManager& stateDatabase, Pelm::String const& tableType, UnitId unit,
                       HwTable const& hwTable);

   /// The full name of the software tables' type.
   Pelm::String const& tableType() const { return tableType_; }

   /// The hardware table of `unit`, whose own path is `HwTable::path(unit, name)`; null when there is none.
   HwTable::Shape const* hwTable(UnitId unit) const;

   void hwTableIs(UnitId unit, HwTable::Shape const& shape);

   /// The hardware tables by unit.
   std::map<UnitId, HwTable::Shape> const& hwTables() const { return hwTables_; }

   /// Registers an observer; it hears changes until it leaves or the object ends.
   void notifieeIs(Notifiee& notifiee) const { notifieeList_.notifieeIs(notifiee); }

 private:
   Pelm::String tableType_;
   std::map<UnitId, HwTable::Shape> hwTables_;
   mutable Nuv::NotifieeList<Notifiee> notifieeList_;
};

} // namespace Asic
