#include "agent/Cause.h"

#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

#include <fmt/format.h>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

using Handle = Asic::SwTableBase::EntryHandle;

bool
hasIndex(Handle const& handle) {
   return handle.hwEntryIndex() != Asic::invalidIndex;
}

std::string
causeOfInterface(Handle const& handle) {
   return handle.hasLeft() ? "its interface was removed"
                           : fmt::format("the chip refused the row of interface {}", handle.hwEntryIndex());
}

/// The interface that keeps a next hop from coming, if one does.
Nuv::Ptr<Handle const>
interfaceAwaited(L3NextHop2Table::EntryHandle const& nextHop) {
   auto const* const table = nextHop.table();
   auto const egr = table ? table->egrL3NextHop2Entry(nextHop.key()) : std::nullopt;
   return egr && egr->l3Oif2Handle && !egr->l3Oif2Handle->isComplete() ? egr->l3Oif2Handle : nullptr;
}

/// Whether an index is all that a next hop that has failed lacks.
bool
lacksIndex(Handle const& handle) {
   auto const* const nextHop = dynamic_cast<L3NextHop2Table::EntryHandle const*>(&handle);
   return nextHop && !hasIndex(handle) && !interfaceAwaited(*nextHop);
}

} // namespace

std::string
causeOfNextHop(Handle const& handle) {
   auto const* const nextHop = dynamic_cast<L3NextHop2Table::EntryHandle const*>(&handle);
   if (!nextHop || !handle.isFailed()) {
      return "";
   }
   auto const name = fmt::format("next hop to {}", Nuv::text(nextHop->key().macAddr));
   if (auto const interface = interfaceAwaited(*nextHop)) {
      return fmt::format("{}: {}", name, causeOfInterface(*interface));
   }
   if (!hasIndex(handle)) {
      return name + ": no next-hop index is free";
   }
   return fmt::format("{}: the chip refused a row at index {}", name, handle.hwEntryIndex());
}

std::string
causeOfBlock(Handle const& handle) {
   auto const* const block = dynamic_cast<L3UnderlayEcmpMember1Table::EntryHandle const*>(&handle);
   if (!block || !handle.isFailed()) {
      return "";
   }
   for (auto const& member : block->key().members()) {
      auto cause = causeOfNextHop(*member.entry.underlayEcmpNextHopIndexHandle);
      if (!cause.empty()) {
         return cause;
      }
   }
   return hasIndex(handle)
                ? fmt::format("the chip refused a member row of the block at {}", handle.hwEntryIndex())
                : fmt::format("no run of {} member rows is free", block->key().size());
}

std::string
causeOfGroup(Handle const& handle) {
   auto const* const group = dynamic_cast<L3EcmpGroup0Table::EntryHandle const*>(&handle);
   if (!group || !handle.isFailed()) {
      return "";
   }
   auto const* const table = group->table();
   auto const entry = table ? table->entry(group->key()) : std::nullopt;
   if (entry && entry->ecmpBlockPtrHandle && entry->ecmpBlockPtrHandle->isFailed()) {
      return causeOfBlock(*entry->ecmpBlockPtrHandle);
   }
   if (!hasIndex(handle)) {
      return "no group index is free";
   }
   if (entry && entry->ecmpBlockPtrHandle && entry->ecmpBlockPtrHandle->hwEntryIndex() > 0xffff) {
      return fmt::format("its block is at {}, beyond what a group's 16 bits name",
                         entry->ecmpBlockPtrHandle->hwEntryIndex());
   }
   return fmt::format("the chip refused the row of group {}", handle.hwEntryIndex());
}

Need::Kind
lackOfBlock(Handle const& handle) {
   auto const& block = dynamic_cast<L3UnderlayEcmpMember1Table::EntryHandle const&>(handle);
   bool isShort = false;
   for (auto const& member : block.key().members()) {
      auto const& nextHop = *member.entry.underlayEcmpNextHopIndexHandle;
      if (nextHop.isFailed() && !lacksIndex(nextHop)) {
         return Need::Kind::attempt;
      }
      isShort |= nextHop.isFailed();
   }
   return isShort ? Need::Kind::nextHop : hasIndex(handle) ? Need::Kind::attempt : Need::Kind::memberRun;
}

Need::Kind
lackOfGroup(Handle const& handle) {
   auto const& group = dynamic_cast<L3EcmpGroup0Table::EntryHandle const&>(handle);
   auto const* const table = group.table();
   auto const entry = table ? table->entry(group.key()) : std::nullopt;
   if (entry && entry->ecmpBlockPtrHandle && entry->ecmpBlockPtrHandle->isFailed()) {
      return lackOfBlock(*entry->ecmpBlockPtrHandle);
   }
   return hasIndex(handle) ? Need::Kind::attempt : Need::Kind::group;
}

} // namespace L3TunnelAgent
