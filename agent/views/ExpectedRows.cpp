#include "agent/views/ExpectedRows.h"

#include "chip/model/Layouts.h"

#include <fmt/format.h>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

using Rows = std::vector<ExpectedRow>;
using Handle = Asic::SwTableBase::EntryHandle;

/// The entry's row, without its fields; null for an entry that has no index.
ExpectedRow*
rowFor(Rows& rows, Handle const& handle, std::string owner, Users::Addresses const* destinations) {
   if (handle.hwEntryIndex() == Asic::invalidIndex) {
      return nullptr;
   }
   rows.push_back({.index = handle.hwEntryIndex(),
                   .isComplete = handle.isComplete(),
                   .owner = std::move(owner),
                   .destinations = destinations,
                   .fields = {}});
   return &rows.back();
}

std::uint64_t
indexOf(Nuv::Ptr<Handle const> const& needed) {
   return needed ? needed->hwEntryIndex() : 0;
}

Rows
interfaceRows(Fabric const& fabric, Users const& users) {
   namespace Row = ModelChip::EgrL3Oif2;
   auto const& table = fabric.interfaces().table();
   Rows rows;
   table.handles().forEach([&](auto const& handle) {
      auto* const row =
            rowFor(rows, handle, fmt::format("interface {}", handle.key()), &users.ofInterface(handle.key()));
      if (auto const entry = table.entry(handle.key()); row && entry) {
         row->fields = {{&Row::valid, 1},
                        {&Row::tagged, entry->isUnderlayL2HdrTagged},
                        {&Row::vlanTag, entry->tnlVlanTag},
                        {&Row::srcMac, entry->srcMacAddress.value()}};
      }
   });
   return rows;
}

/// Whose a row at that index is in either table of next hops.
struct NextHopOwner {
   std::string key;
   Users::Addresses const* destinations{};
   bool isComplete{};
};

std::map<Asic::Index, NextHopOwner>
nextHopOwners(Fabric const& fabric, Users const& users) {
   std::map<Asic::Index, NextHopOwner> owners;
   fabric.programmer().l3EcmpNextHopTable()->handles().forEach([&](auto const& handle) {
      auto const& key = handle.key();
      owners[handle.hwEntryIndex()] = {fmt::format("next hop {} to {}, interface {}, port {}",
                                                   Nuv::text(key.nhEntryType), Nuv::text(key.macAddr),
                                                   key.l3Id.value, key.l2If.value),
                                       &users.ofNextHop(handle), handle.isComplete()};
   });
   return owners;
}

/// The rows of one half of the next hops, each filled by `fill(row, entry)`.
template <class Table, class Fill>
Rows
halfRows(Fabric const& fabric, Users const& users, Table const& table, Fill const& fill) {
   auto const owners = nextHopOwners(fabric, users);
   Rows rows;
   table.handles().forEach([&](auto const& handle) {
      auto const owner = owners.find(handle.key());
      auto* const row = owner == owners.end()
                              ? rowFor(rows, handle, fmt::format("next hop {}", handle.key()), nullptr)
                              : rowFor(rows, handle, owner->second.key, owner->second.destinations);
      if (auto const entry = table.entry(handle.key()); row && entry) {
         fill(*row, *entry);
      }
   });
   return rows;
}

Rows
ingressRows(Fabric const& fabric, Users const& users) {
   namespace Row = ModelChip::IngL3NextHop2Table;
   auto const& table = *fabric.programmer().l3EcmpNextHopTable()->ingL3NextHop2Table();
   return halfRows(fabric, users, table, [](ExpectedRow& row, IngL3NextHop2Table::Entry const& entry) {
      row.fields = {{&Row::valid, 1},
                    {&Row::destinationType, entry.destinationType},
                    {&Row::destinationId, entry.destinationId},
                    {&Row::strengthProfile, entry.strengthProfileIndex}};
   });
}

Rows
egressRows(Fabric const& fabric, Users const& users) {
   namespace Row = ModelChip::EgrL3NextHop2;
   auto const& table = *fabric.programmer().l3EcmpNextHopTable()->egrL3NextHop2();
   return halfRows(fabric, users, table, [](ExpectedRow& row, EgrL3NextHop2::Entry const& entry) {
      row.fields = {{&Row::valid, 1},
                    {&Row::strengthProfile, entry.strengthProfileIndex},
                    {&Row::l3Oif, indexOf(entry.l3Oif2Handle)},
                    {&Row::dstMac, entry.dstMacAddress.value()}};
   });
}

Rows
memberRows(Fabric const& fabric, Users const& users) {
   namespace Row = ModelChip::L3UnderlayEcmpMember1Table;
   Rows rows;
   fabric.programmer().l3EcmpMemberTable()->handles().forEach([&](auto const& handle) {
      auto const& block = handle.key();
      for (std::uint32_t position = 0; position < block.size(); ++position) {
         auto const owner = fmt::format("member {} of the block of {} at {}", position, block.size(),
                                        handle.hwEntryIndex());
         auto* const row = rowFor(rows, handle, owner, &users.ofBlock(handle));
         if (!row) {
            return;
         }
         row->index += position;
         auto const member = block.entry(position);
         if (member.underlayEcmpNextHopIndexHandle) {
            row->fields = {{&Row::valid, 1},
                           {&Row::strengthProfile, member.strengthProfile},
                           {&Row::nextHop, indexOf(member.underlayEcmpNextHopIndexHandle)}};
         }
      }
   });
   return rows;
}

Rows
groupRows(Fabric const& fabric, Users const& users) {
   namespace Row = ModelChip::L3EcmpGroup0Table;
   Rows rows;
   fabric.groups().handles().forEach([&](auto const& handle) {
      auto* const row = rowFor(rows, handle, fmt::format("group of adjacency {}", handle.key().id),
                               &users.ofGroup(handle));
      if (auto const entry = fabric.groups().entry(handle.key()); row && entry) {
         row->fields = {{&Row::valid, 1},
                        {&Row::ecmpBlock, indexOf(entry->ecmpBlockPtrHandle)},
                        {&Row::numPaths, entry->numPaths},
                        {&Row::lbMode, entry->lbMode}};
      }
   });
   return rows;
}

} // namespace

std::vector<ExpectedRow>
expectedRows(Fabric const& fabric, Users const& users, ModelChip::RowLayout const& layout) {
   using Expect = Rows (*)(Fabric const&, Users const&);
   static std::map<ModelChip::RowLayout const*, Expect> const byLayout{
         {&ModelChip::EgrL3Oif2::layout, interfaceRows},
         {&ModelChip::IngL3NextHop2Table::layout, ingressRows},
         {&ModelChip::EgrL3NextHop2::layout, egressRows},
         {&ModelChip::L3UnderlayEcmpMember1Table::layout, memberRows},
         {&ModelChip::L3EcmpGroup0Table::layout, groupRows}};
   auto const found = byLayout.find(&layout);
   // Nothing of the agent's writes to any other table.
   return found == byLayout.end() ? Rows() : found->second(fabric, users);
}

} // namespace L3TunnelAgent
