#pragma once

#include "agent/Fabric.h"
#include "chip/model/Forwarding.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <ostream>
#include <set>
#include <tuple>

namespace L3TunnelAgent {

/// A unicast via to the neighbour of that number, by that port; device and port are numbered alike.
inline DerivedVia
unicastVia(std::uint8_t neighbour, int port, std::uint8_t source = 1,
           std::optional<std::uint16_t> vlan = std::nullopt) {
   return {.kind = ViaKind::unicast,
           .mac = MacAddress{{2, 0, 0, 0, 0, neighbour}},
           .device = port,
           .sourceMac = MacAddress{{2, 1, 0, 0, 0, source}},
           .port = port,
           .vlan = vlan,
           .tagged = vlan.has_value()};
}

/// A via without a neighbour.
inline DerivedVia
otherVia(ViaKind kind) {
   return {.kind = kind, .reason = "so it is"};
}

inline IpAddress
address(std::uint32_t number) {
   return IpAddress::fromV4(0x0A000000 + number);
}

inline Destination
destination(std::uint32_t number, std::vector<DerivedVia> vias) {
   return {.address = address(number), .vias = std::move(vias), .reason = {}};
}

/// Where a packet ends up: port, neighbour, source and tag of its header, or the CPU (type 8) or nowhere (0).
struct Reached {
   unsigned type{};
   unsigned port{};
   Fendo::EthAddr neighbour;
   Fendo::EthAddr source;
   std::optional<std::uint16_t> tag;

   friend bool operator<(Reached const& a, Reached const& b) { return a.tied() < b.tied(); }
   friend bool operator==(Reached const& a, Reached const& b) { return a.tied() == b.tied(); }
   friend std::ostream& operator<<(std::ostream& out, Reached const& reached) {
      return out << "type " << reached.type << " port " << reached.port << " to "
                 << Nuv::text(reached.neighbour) << " from " << Nuv::text(reached.source) << " tag "
                 << (reached.tag ? std::to_string(*reached.tag) : "-");
   }

 private:
   std::tuple<unsigned, unsigned, Fendo::EthAddr const&, Fendo::EthAddr const&,
              std::optional<std::uint16_t> const&>
   tied() const {
      return {type, port, neighbour, source, tag};
   }
};

using ReachedSet = std::set<Reached>;

inline ReachedSet
reached(ModelChip::GroupRows const& rows) {
   ReachedSet all;
   for (auto const& hop : rows.hops) {
      Reached one{.type = hop.destinationType, .port = hop.destinationId};
      if (hop.interface) {
         one.neighbour = hop.dstMac;
         one.source = hop.interface->srcMac;
         one.tag = hop.interface->tagged ? std::optional(hop.interface->vlanTag) : std::nullopt;
      }
      all.insert(one);
   }
   return all;
}

/// What the chip is to do with a set: all of its vias, but beside one that forwards those to the CPU only
/// when the settings keep them.
inline ReachedSet
wanted(Fabric const& fabric, std::vector<DerivedVia> const& vias) {
   using ZandorL3Tunnel::DestinationType;
   Reached const drop;
   Reached const cpu{.type = unsigned(DestinationType::system)};
   auto const forwards = [](DerivedVia const& via) {
      return via.kind == ViaKind::unicast && via.port && via.sourceMac;
   };
   bool const keepsCpu =
         fabric.settings().includeUnresolved || std::none_of(vias.begin(), vias.end(), forwards);
   ReachedSet all;
   for (auto const& via : vias) {
      if (forwards(via)) {
         all.insert({unsigned(DestinationType::unicast), fabric.ports().number(*via.port).value_or(0),
                     ethAddr(*via.mac), ethAddr(*via.sourceMac),
                     via.tagged.value_or(false) ? via.vlan : std::nullopt});
      } else if (via.kind == ViaKind::drop) {
         all.insert(drop);
      } else if (keepsCpu) {
         all.insert(fabric.settings().dropToCpu ? drop : cpu);
      }
   }
   return all;
}

/// What the chip does with a destination.
inline ReachedSet
reached(Fabric const& fabric, std::uint32_t number) {
   auto const& destination = fabric.destinations().at(address(number));
   if (!destination.group) {
      return {};
   }
   auto const rows = ModelChip::followGroup(fabric.chip(), destination.group->hwEntryIndex());
   EXPECT_EQ(rows.problem, "");
   return reached(rows);
}

inline Asic::Index
rowsIn(Fabric const& fabric, std::string const& table) {
   return fabric.chip().table(table)->rowsPresent();
}

/// Expects that chip, tables and allocators are as they were at the start.
inline void
expectEmpty(Fabric const& fabric) {
   for (auto const& table : fabric.chip().tables()) {
      EXPECT_EQ(table->rowsPresent(), 0U) << table->shape().name;
      EXPECT_EQ(table->unanswered(), 0U) << table->shape().name;
   }
   auto const& programmer = fabric.programmer();
   EXPECT_EQ(fabric.interfaces().table().handles().size(), 0U);
   EXPECT_EQ(fabric.interfaces().indices().holders(), 0U);
   EXPECT_EQ(fabric.groups().handles().size(), 0U);
   EXPECT_EQ(fabric.groups().indexAllocator()->holders(), 0U);
   EXPECT_EQ(programmer.l3EcmpMemberTable()->handles().size(), 0U);
   EXPECT_EQ(programmer.l3EcmpMemberTable()->indexAllocator()->holders(), 0U);
   EXPECT_EQ(programmer.l3EcmpNextHopTable()->handles().size(), 0U);
   EXPECT_EQ(programmer.l3EcmpNextHopTable()->indexAllocator()->holders(), 0U);
}

} // namespace L3TunnelAgent
