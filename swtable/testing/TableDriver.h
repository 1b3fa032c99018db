#pragma once

#include "chip/model/Chip.h"
#include "swtable/KeyedTable.h"

#include <memory>

namespace ZandorL3Tunnel {

/// A software table on a chip as the laws of all tables see it: keys and values are small numbers, 0 to 9
/// each, and different numbers are different keys, values and rows.
class TableDriver {
 public:
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
   using ResponseFunction = Asic::SwTableBase::ResponseFunction;
   using EntryType = Asic::SwTable::EntryHandle::EntryType;

   virtual ~TableDriver() = default;

   virtual Handle ref(unsigned key, unsigned value) = 0;
   virtual Handle commit(unsigned key, unsigned value, ResponseFunction handler) = 0;
   Handle commit(unsigned key, unsigned value) { return commit(key, value, {}); }
   virtual void remove(unsigned key) = 0;
   virtual void removeAll() = 0;

   /// Values from now on need that entry as well as what they are, in a table whose entries need others.
   virtual void neededIs(Handle const& needed) = 0;

   /// The handle at the key, or null, and its type.
   virtual Handle handle(unsigned key) const = 0;
   virtual EntryType entryType(unsigned key) const = 0;
   virtual std::size_t handles() const = 0;
   /// Whether that value is the newest one written, and whether it is the one for hardware.
   virtual bool isEntry(unsigned key, unsigned value) const = 0;
   virtual bool isResolvedEntry(unsigned key, unsigned value) const = 0;
   virtual bool hasEntry(unsigned key) const = 0;

   /// The table itself; null once it was let go.
   virtual Asic::SwTable* table() const = 0;
   virtual void tableDel() = 0;
   virtual void syncEntries() = 0;
   virtual bool supportsStaleEntryPurge() const = 0;
   virtual Pelm::String hwTableName() const = 0;
};

/// Makes a driver for a new table on the chip of that state database.
struct TableDriverFactory {
   char const* name;
   std::unique_ptr<TableDriver> (*make)(ModelChip::Chip&, Nuv::Ptr<Kallo::EntityManager> const&);
};

/// The driver of a keyed table. `Traits` should have the table's type `T`, hold what entries need
/// (default-constructed, then `init(chip, stateDatabase)`), and make a key and an entry of a number:
/// `key(number)`, `entry(number)`, and the table itself: `make()`. Entries that need one of another table
/// need that of the handle `needed`.
template <class Traits>
class KeyedTableDriver final : public TableDriver {
   using T = typename Traits::T;

 public:
   static std::unique_ptr<TableDriver> make(ModelChip::Chip& chip,
                                            Nuv::Ptr<Kallo::EntityManager> const& stateDatabase) {
      auto driver = std::make_unique<KeyedTableDriver>();
      driver->traits_.init(chip, stateDatabase);
      driver->table_->doInit(0, stateDatabase, chip.chipInfo());
      return driver;
   }

   Handle ref(unsigned key, unsigned value) override {
      return table_->entryRef(traits_.key(key), traits_.entry(value));
   }
   Handle commit(unsigned key, unsigned value, ResponseFunction handler) override {
      return table_->entryCommitWithResponseHandler(traits_.key(key), traits_.entry(value),
                                                    std::move(handler));
   }
   void remove(unsigned key) override { table_->entryRemove(traits_.key(key)); }
   void removeAll() override { table_->entryRemoveAll(); }
   void neededIs(Handle const& needed) override {
      if constexpr (requires { traits_.needed; }) {
         traits_.needed = needed;
      }
   }
   Handle handle(unsigned key) const override { return table_->entryHandle(traits_.key(key)); }
   EntryType entryType(unsigned key) const override {
      return table_->entryHandle(traits_.key(key))->entryType();
   }
   std::size_t handles() const override { return table_->handles().size(); }
   bool isEntry(unsigned key, unsigned value) const override {
      return table_->entry(traits_.key(key)) == traits_.entry(value);
   }
   bool isResolvedEntry(unsigned key, unsigned value) const override {
      return table_->resolvedEntry(traits_.key(key)) == traits_.entry(value);
   }
   bool hasEntry(unsigned key) const override { return table_->entry(traits_.key(key)).has_value(); }
   Asic::SwTable* table() const override { return table_.get(); }
   void tableDel() override { table_ = nullptr; }
   void syncEntries() override { table_->syncEntries(); }
   bool supportsStaleEntryPurge() const override { return T::supportsStaleEntryPurge(); }
   Pelm::String hwTableName() const override { return Traits::hwTableName(); }

 private:
   Traits traits_;
   Nuv::Ptr<T> table_ = Traits::make();
};

} // namespace ZandorL3Tunnel
