#pragma once

#include "platform/chipstate/L3AdjIdKey.h"
#include "platform/nuv/Export.h"
#include "swtable/KeyedTable.h"

namespace ZandorL3Tunnel {

/// ECMP groups of the underlay, by adjacency: each points at the block of members that holds its paths, and
/// waits for it.
struct ZANDOR_EXPORT L3EcmpGroup0TableSheet {
   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3EcmpGroup0Table"; }
   static constexpr char const* hwTableName() { return "L3EcmpGroup0Table"; }

   using Index = ZandorL3Common::L3AdjIdKey;
   using Source = OwnAllocator<Asic::FirstFreeIndexAllocator>;

   struct Entry : Asic::EntryBase, Nuv::Record<Entry> {
      Asic::NeededHandle ecmpBlockPtrHandle;
      std::uint16_t ecmpBlockPtr{}; ///< follows from the handle
      std::uint32_t lbMode{};
      std::uint16_t numPaths{};

      /// Whether the entry differs from an empty one. The index that follows from the handle does not count.
      explicit operator bool() const { return !(*this == Entry()); }

      static constexpr auto fieldList() {
         return Nuv::fieldList("ZandorL3Tunnel::L3EcmpGroup0Table::Entry",
                               Nuv::field("ecmpBlockPtrHandle", &Entry::ecmpBlockPtrHandle),
                               Nuv::filledField("ecmpBlockPtr", &Entry::ecmpBlockPtr),
                               Nuv::field("lbMode", &Entry::lbMode),
                               Nuv::field("numPaths", &Entry::numPaths));
      }

      static constexpr auto dependentFields() {
         return std::tuple(Asic::dependentField(&Entry::ecmpBlockPtrHandle, &Entry::ecmpBlockPtr));
      }
   };
};

class ZANDOR_EXPORT L3EcmpGroup0Table final
    : public KeyedTable<L3EcmpGroup0Table, L3EcmpGroup0TableSheet, Asic::SwTable> {
 public:
   explicit L3EcmpGroup0Table(Pelm::String name) : KeyedTable(std::move(name)) {}

   /// A new table, not yet tied to a chip.
   static Nuv::Ptr<L3EcmpGroup0Table> L3EcmpGroup0TableIs(Pelm::String const& name) {
      return Nuv::make<L3EcmpGroup0Table>(name);
   }

   static Nuv::FwkType staticFwkType();
};

/// A new table, not yet tied to a chip.
ZANDOR_EXPORT Nuv::Ptr<L3EcmpGroup0Table> l3EcmpGroup0TableFactory(Pelm::String const& name);

} // namespace ZandorL3Tunnel
