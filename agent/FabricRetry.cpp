#include "agent/Fabric.h"

#include <algorithm>
#include <fmt/format.h>

// How those that failed are asked for again: one after the other, so that none holds what only the next one
// could use, and only where there is room for what they lack. A chip that is far too small has many that
// wait.
namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

constexpr int looksPerStep = 64;

bool
isHeld(L3NextHop2Table const& table, L3UnderlayNextHopKey const& key) {
   return table.indexAllocator()->indexForKey(Nuv::nuvType<L3UnderlayNextHopKey>(), &key) !=
          Asic::invalidIndex;
}

/// Why a set is not tried again that lacks something else than it did when it failed.
std::string
reasonOf(Need::Kind kind, ViaSet const& set) {
   switch (kind) {
   case Need::Kind::group:
      return "no group index is free";
   case Need::Kind::memberRun:
      return fmt::format("no run of {} member rows is free", set.members());
   default:
      return "too few next-hop indices are free";
   }
}

} // namespace

bool
Fabric::Room::exceeds(Room const& other) const {
   return memberRun > other.memberRun || nextHops > other.nextHops || interfaces > other.interfaces ||
          groups > other.groups;
}

Fabric::Room
Fabric::room() const {
   return {.memberRun = programmer_->l3EcmpMemberTable()->indexAllocator()->largestFreeRun(),
           .nextHops = programmer_->l3EcmpNextHopTable()->indexAllocator()->free(),
           .interfaces = interfaces_->indices().free(),
           .groups = groups_->indexAllocator()->free()};
}

// What a failed set gave back is of no use to itself.
bool
Fabric::mayHaveRoom() {
   bool const byFailure = std::exchange(gaveBack_, false) && waiting_.size() > 1;
   return (std::exchange(released_, false) || byFailure) && !waiting_.empty();
}

void
Fabric::lackIs(ProgrammedDestination const& destination, Need::Kind kind) {
   auto const& set = *destination.set();
   Need need{.kind = kind};
   if (kind == Need::Kind::memberRun) {
      need = set.runNeed();
   } else if (kind == Need::Kind::nextHop) {
      need.content = set.programmed->content().number();
   }
   waiting_.needIs(destination.address, need);
}

/// The one being tried has come as far as it can: on to the next one that is worth it.
void
Fabric::retryNext() {
   if (retry_->tried) {
      retryEnds();
   }
   auto const free = room();
   for (int looks = 0; looks < looksPerStep; ++looks) {
      auto const place = waiting_.next(retry_->at);
      if (!place) {
         retry_.reset();
         return;
      }
      retry_->at = *place;
      if (isWorthATry(*place, free)) {
         auto const& set = *destinations_.at(*place->address).set();
         Destination again{.address = *place->address, .vias = set.programmed->list(), .reason = {}};
         retry_->room = free;
         destinationIs(again);
         retry_->tried = std::move(again);
         return;
      }
   }
}

void
Fabric::retryEnds() {
   auto const tried = *std::exchange(retry_->tried, std::nullopt);
   auto const* need = waiting_.need(tried.address);
   // What a set gives back that fails again was free before, but for what its group had held. One that has
   // found room has brought what those that were passed over may share.
   gaveBack_ = false;
   released_ |= !need || room().exceeds(retry_->room);
   if (need && need->kind != Need::Kind::group && need->kind != Need::Kind::interface) {
      retry_->hopeless.insert(destinations_.at(tried.address).set()->programmed->content().number());
   }
}

/// Goes past those that need no look of their own. One that lacks something else by now waits for that.
bool
Fabric::isWorthATry(Waiting::Place const& place, Room const& room) {
   auto const& need = place.need;
   if ((need.kind == Need::Kind::group && room.groups == 0) ||
       (need.kind == Need::Kind::memberRun && need.length > room.memberRun)) {
      retry_->at = Waiting::Place::after(need.kind);
      return false;
   }
   auto& destination = destinations_.at(*place.address);
   auto const& set = *destination.set();
   if (retry_->hopeless.contains(set.programmed->content().number())) {
      if (need.content != 0) {
         retry_->at = Waiting::Place::after(need);
      }
      return false;
   }
   if (need.kind == Need::Kind::attempt) {
      return true;
   }
   if (need.kind == Need::Kind::interface) {
      return mayForwardMore(set, room);
   }
   auto const kind = lack(destination, room);
   if (kind == need.kind && need.content != 0) {
      retry_->at = Waiting::Place::after(need);
   } else if (kind) {
      lackIs(destination, *kind);
      destination.reason = reasonOf(*kind, set);
      touched_.insert(destination.address);
   }
   return !kind;
}

std::optional<Need::Kind>
Fabric::lack(ProgrammedDestination const& destination, Room const& room) const {
   auto const& set = *destination.set();
   auto const& content = set.programmed->content();
   if (!destination.group && room.groups == 0) {
      return Need::Kind::group;
   }
   if (set.members() > room.memberRun && !content.isInABlock()) {
      return Need::Kind::memberRun;
   }
   return hasNextHops(content, room) ? std::nullopt : std::optional(Need::Kind::nextHop);
}

/// Whether those of its next hops that are not there would find room.
bool
Fabric::hasNextHops(ProgrammedVias::Content const& content, Room const& room) const {
   auto const& table = *programmer_->l3EcmpNextHopTable();
   Asic::Index missing = 0;
   return std::all_of(content.vias().begin(), content.vias().end(), [&](ViaContent const& via) {
      auto const key = nextHopKey(via, room);
      missing += key && isHeld(table, *key) ? 0 : 1;
      return missing <= room.nextHops;
   });
}

/// The next hop that the via would have; nothing when its interface or its port's number is not there yet.
std::optional<L3UnderlayNextHopKey>
Fabric::nextHopKey(ViaContent const& via, Room const& room) const {
   L3UnderlayNextHopKey key;
   key.nhEntryType = entryType(via.kind);
   if (via.mac) {
      key.macAddr = ethAddr(*via.mac);
   }
   if (!via.forwards() || !isRoomFor(via, room)) {
      return key;
   }
   auto const port = ports_.number(*via.port);
   auto const index = interfaces_->index(interfaceKey(via));
   if (!port || index == Asic::invalidIndex) {
      return std::nullopt;
   }
   key.l3Id = {std::uint16_t(index)};
   key.l2If = {*port};
   return key;
}

bool
Fabric::isRoomFor(ViaContent const& via, Room const& room) const {
   return (ports_.number(*via.port) || !ports_.full()) &&
          (room.interfaces > 0 || interfaces_->index(interfaceKey(via)) != Asic::invalidIndex);
}

bool
Fabric::mayForwardMore(ViaSet const& set, Room const& room) const {
   return std::any_of(set.vias().begin(), set.vias().end(), [&](ProgrammedVia const& via) {
      return !via.shortOf.empty() && isRoomFor(ViaContent(via.via), room);
   });
}

} // namespace L3TunnelAgent
