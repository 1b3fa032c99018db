#include "agent/views/EntryTree.h"

#include "agent/Cause.h"
#include "tables/L3NextHop2Table.h"

#include <fmt/format.h>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

using Handle = Asic::SwTableBase::EntryHandle;

std::string
placeOf(Handle const& handle) {
   return handle.hwEntryIndex() == Asic::invalidIndex ? "without an index"
                                                      : fmt::format("{}", handle.hwEntryIndex());
}

/// One entry of the tree, with what made it fail.
std::string
line(std::size_t depth, std::string const& what, Handle const& handle, std::string const& cause,
     Paint const& paint) {
   auto const state = handle.entryState();
   return fmt::format("{}{}: {}{}\n", std::string(2 * depth, ' '), what,
                      paint(styleOf(state), Nuv::text(state)), cause.empty() ? "" : ", " + printable(cause));
}

std::string
interfaceLine(Agent const& agent, EgrL3NextHop2::Entry const& egress, Paint const& paint) {
   auto const& needed = egress.l3Oif2Handle;
   // Interface 0 stands for none in particular.
   if (!needed || needed->hwEntryIndex() == 0) {
      return "";
   }
   auto const entry = agent.fabric().interfaces().table().entry(needed->hwEntryIndex());
   auto const what =
         !entry ? std::string()
                : fmt::format(", source MAC {}, {}", Nuv::text(entry->srcMacAddress),
                              entry->isUnderlayL2HdrTagged ? fmt::format("VLAN {}", entry->tnlVlanTag)
                                                           : std::string("untagged"));
   return line(4, fmt::format("interface {}{}", placeOf(*needed), what), *needed,
               needed->hasLeft() ? "was removed" : "", paint);
}

std::string
nextHopLines(View const& view, std::uint32_t position, Handle const& handle, Paint const& paint) {
   auto const* hop = dynamic_cast<L3NextHop2Table::EntryHandle const*>(&handle);
   if (!hop || !hop->table()) {
      return line(3, fmt::format("member {}: next hop {}", position, placeOf(handle)), handle, "", paint);
   }
   auto const ingress = hop->table()->ingL3NextHop2TableEntry(hop->key());
   auto const egress = hop->table()->egrL3NextHop2Entry(hop->key());
   auto to = ingress ? "to " + sendsTo(ingress->destinationType) : std::string("not written");
   if (hop->key().l2If.isValid()) {
      to += fmt::format(" {}, neighbour {}", portText(view.agent, hop->key().l2If.value),
                        Nuv::text(hop->key().macAddr));
   }
   auto out = line(3, fmt::format("member {}: next hop {} {}", position, placeOf(handle), to), handle,
                   causeOfNextHop(handle), paint);
   return egress ? out + interfaceLine(view.agent, *egress, paint) : out;
}

std::string
blockLines(View const& view, char const* role, Handle const& block, Paint const& paint) {
   auto const hops = nextHopsOf(block);
   auto const users = view.users.ofBlock(block).size();
   auto out = line(2,
                   fmt::format("{} block {} of {}, used by {}", role, placeOf(block),
                               counted(hops.size(), "member", "members"),
                               counted(users, "destination", "destinations")),
                   block, causeOfBlock(block), paint);
   for (auto const& [position, hop] : hops) {
      out += nextHopLines(view, position, *hop, paint);
   }
   return out;
}

/// The next hop by what it leads to, for it may have no index yet.
std::string
nameOf(L3NextHop2Table::EntryHandle const& hop) {
   return hop.key().l2If.isValid() ? "the next hop to " + Nuv::text(hop.key().macAddr)
                                   : "next hop " + placeOf(hop);
}

std::string
waitOfNextHop(Handle const& handle) {
   auto const* hop = dynamic_cast<L3NextHop2Table::EntryHandle const*>(&handle);
   if (!hop) {
      return "next hop " + placeOf(handle);
   }
   auto const* table = hop->table();
   auto const egress = table ? table->egrL3NextHop2Entry(hop->key()) : std::nullopt;
   if (egress && egress->l3Oif2Handle && !egress->l3Oif2Handle->isComplete()) {
      return fmt::format("interface {}, which {} needs", placeOf(*egress->l3Oif2Handle), nameOf(*hop));
   }
   return fmt::format("the chip's answer for the rows of {}", nameOf(*hop));
}

std::string
waitOfBlock(Handle const& block) {
   for (auto const& [position, hop] : nextHopsOf(block)) {
      if (!hop->isComplete() || !hop->isHwIndexValid()) {
         return waitOfNextHop(*hop);
      }
   }
   return fmt::format("the chip's answer for the rows of block {}", placeOf(block));
}

} // namespace

std::string
entryTree(View const& view, ProgrammedDestination const& destination, Paint const& paint) {
   std::string out;
   if (destination.group) {
      out += line(1, fmt::format("group {}", placeOf(*destination.group)), *destination.group,
                  causeOfGroup(*destination.group), paint);
   }
   if (destination.current && destination.current->block) {
      out += blockLines(view, "points at", *destination.current->block, paint);
   }
   if (destination.wanted && destination.wanted->block) {
      out += blockLines(view, "moves to", *destination.wanted->block, paint);
   }
   return out.empty() ? "  nothing\n" : out;
}

std::string
waitsFor(ProgrammedDestination const& destination) {
   auto const* set = destination.set();
   auto const state = destination.state();
   if (!set || !set->block ||
       (state != DestinationState::inProgress && state != DestinationState::unresolved)) {
      return "";
   }
   if (!set->block->isComplete() || !set->block->isHwIndexValid()) {
      return waitOfBlock(*set->block);
   }
   return fmt::format("the chip's answer for the row of group {}",
                      destination.group ? placeOf(*destination.group) : "");
}

} // namespace L3TunnelAgent
