#pragma once

#include "chip/model/Layouts.h"
#include "programmer/testing/Wishes.h"

#include <bit>

namespace ZandorL3Tunnel {

/// Looks at a small chip after each row that it applied: at that row, and at those that read it. It knows of
/// the chip's rows only what they say, and follows groups by the chip's own look-up. No table may have more
/// than 64 rows.
class RowWatch {
 public:
   using Mask = std::uint64_t;

   RowWatch(ModelChip::Chip const& chip, Wishes const& wishes) : chip_(chip), wishes_(wishes) {
      for (auto const& table : chip.tables()) {
         auto const& name = table->shape().name;
         if (name == ModelChip::EgrL3Oif2::layout.table) {
            interfaces_ = table.get();
         } else if (name == ModelChip::IngL3NextHop2Table::layout.table) {
            ingress_ = table.get();
         } else if (name == ModelChip::EgrL3NextHop2::layout.table) {
            egress_ = table.get();
         } else if (name == ModelChip::L3UnderlayEcmpMember1Table::layout.table) {
            members_ = table.get();
         } else if (name == ModelChip::L3EcmpGroup0Table::layout.table) {
            groups_ = table.get();
         }
      }
   }

   /// What is wrong since the row at `index` was applied; empty when nothing is.
   std::string applied(ModelChip::Table const& table, Asic::Index index) {
      problem_.clear();
      if (&table == interfaces_) {
         interfaceApplied(index);
      } else if (&table == ingress_ || &table == egress_) {
         nextHopApplied(table, index);
      } else if (&table == members_) {
         memberApplied(index);
      } else if (&table == groups_) {
         groupApplied(index);
      }
      return problem_;
   }

   /// What is wrong with the groups as they are now, touched or not.
   std::string atRest() {
      problem_.clear();
      for (Asic::Index group = 0; group < groups_->numEntries(); ++group) {
         if (wishOf_[group] != 0) {
            follow(group);
         }
      }
      return problem_;
   }

   /// The request that the destination's row in the chip is of; 0 without a row.
   std::uint32_t inForce(unsigned destination) const { return inForce_[destination]; }

   /// Whether the row of the interface carries the value.
   bool carries(Asic::Index interface, std::uint8_t value) const {
      return interfaces_->hasRow(interface) && valueAt(interface) == value;
   }

 private:
   static constexpr Asic::Index none = 64;
   static bool has(Mask mask, Asic::Index index) { return index < 64 && (mask >> index & 1) != 0; }

   template <class Visit>
   static void forEach(Mask mask, Visit&& visit) {
      for (; mask != 0; mask &= mask - 1) {
         visit(Asic::Index(std::countr_zero(mask)));
      }
   }

   template <class... Parts>
   void fail(Parts const&... parts) {
      if (problem_.empty()) {
         problem_ = Nuv::text(parts...);
      }
   }

   std::uint64_t valueAt(Asic::Index interface) const {
      return ModelChip::EgrL3Oif2::srcMac.unpack(interfaces_->row(interface)) & 0xff;
   }

   void interfaceApplied(Asic::Index index) {
      if (!interfaces_->hasRow(index)) {
         if (over_[index] != 0) {
            fail("next-hop rows over interface ", index, " are left without it");
         }
      } else if (!wishes_.mayCarry(index, valueAt(index))) {
         fail("interface ", index, " carries ", valueAt(index), ", which nobody asked for");
      }
      groupsOfNextHops(over_[index]);
   }

   void nextHopApplied(ModelChip::Table const& table, Asic::Index index) {
      if (&table == egress_) {
         over_[overOf_[index]] &= ~(Mask(1) << index);
         if (egress_->hasRow(index)) {
            auto interface = Asic::Index(ModelChip::EgrL3NextHop2::l3Oif.unpack(egress_->row(index)));
            if (interface != 0 && !interfaces_->hasRow(interface)) {
               fail("next hop ", index, " is over interface ", interface, ", which is not there");
            }
            overOf_[index] = interface == 0 ? none : interface;
            over_[overOf_[index]] |= Mask(1) << index;
         }
      }
      if (!table.hasRow(index) && readers_[index] != 0) {
         fail("member rows of next hop ", index, " are left without it");
      }
      groupsOfNextHops(Mask(1) << index);
   }

   void memberApplied(Asic::Index index) {
      readers_[nextHopOf_[index]] &= ~(Mask(1) << index);
      if (members_->hasRow(index)) {
         auto nextHop =
               Asic::Index(ModelChip::L3UnderlayEcmpMember1Table::nextHop.unpack(members_->row(index)));
         if (!ingress_->hasRow(nextHop) || !egress_->hasRow(nextHop)) {
            fail("member ", index, " points at next hop ", nextHop, ", which is not there");
         }
         nextHopOf_[index] = std::min(nextHop, none);
         readers_[nextHopOf_[index]] |= Mask(1) << index;
      }
      groupsOfMembers(Mask(1) << index);
   }

   void groupApplied(Asic::Index index) {
      auto before = std::exchange(wishOf_[index], 0);
      paths_[index] = 0;
      std::uint32_t number = 0;
      if (groups_->hasRow(index)) {
         number = std::uint32_t(ModelChip::L3EcmpGroup0Table::lbMode.unpack(groups_->row(index)));
      }
      auto const* wish = wishes_.wish(number);
      auto const* wishBefore = wishes_.wish(before);
      bool isSame = wish && wishBefore && wish->destination == wishBefore->destination;
      if (wishBefore && !isSame && rowOf_[wishBefore->destination] == index) {
         inForce_[wishBefore->destination] = 0;
         if (!wasRemoved(*wishBefore, before)) {
            fail("destination ", wishBefore->destination, " lost its group, and nobody removed it");
         }
      }
      if (wish) {
         groupWritten(index, number, *wish);
      } else if (groups_->hasRow(index)) {
         fail("group ", index, " is of no request");
      }
   }

   // A destination that was removed and is there again may have another row before its first one is cleared.
   bool wasRemoved(Wishes::Wish const& wish, std::uint32_t since) const {
      return wishes_.destination(wish.destination).goneAfter >= since;
   }

   void groupWritten(Asic::Index index, std::uint32_t number, Wishes::Wish const& wish) {
      auto before = std::exchange(inForce_[wish.destination], number);
      if (before != 0 && wishOf_[rowOf_[wish.destination]] == before && !wasRemoved(wish, before)) {
         fail("destination ", wish.destination, " has two groups");
      } else if (number < before) {
         fail("destination ", wish.destination, " went back from request ", before, " to ", number);
      }
      wishOf_[index] = number;
      rowOf_[wish.destination] = index;
      auto row = groups_->row(index);
      auto base = Asic::Index(ModelChip::L3EcmpGroup0Table::ecmpBlock.unpack(row));
      auto count = unsigned(ModelChip::L3EcmpGroup0Table::numPaths.unpack(row));
      if (count != 0 && base < 64 && count < 64) {
         paths_[index] = ((Mask(1) << count) - 1) << base;
      }
      follow(index);
   }

   void groupsOfNextHops(Mask nextHops) {
      Mask touched = 0;
      forEach(nextHops, [&](Asic::Index nextHop) { touched |= readers_[nextHop]; });
      groupsOfMembers(touched);
   }

   void groupsOfMembers(Mask touched) {
      for (Asic::Index group = 0; touched != 0 && group < groups_->numEntries(); ++group) {
         if (paths_[group] & touched) {
            follow(group);
         }
      }
   }

   /// The group forwards by the whole set of its request, and by nothing else.
   void follow(Asic::Index group) {
      auto const& wish = *wishes_.wish(wishOf_[group]);
      auto rows = ModelChip::followGroup(chip_, group);
      if (!rows.problem.empty()) {
         fail("destination ", wish.destination, ": ", rows.problem);
      } else if (rows.hops.size() != wish.vias.size()) {
         fail("destination ", wish.destination, " has ", rows.hops.size(), " paths instead of ",
              wish.vias.size());
      }
      for (std::size_t path = 0; problem_.empty() && path < rows.hops.size(); ++path) {
         if (!wishes_.mayForward(wish.vias[path], rows.hops[path])) {
            fail("destination ", wish.destination, " does not forward by via ", wish.vias[path], " on path ",
                 path, ", but by next hop ", rows.hops[path].nextHop, " to ", rows.hops[path].destinationType,
                 ".", rows.hops[path].destinationId);
         }
      }
   }

   ModelChip::Chip const& chip_;
   Wishes const& wishes_;
   ModelChip::Table const* interfaces_{};
   ModelChip::Table const* ingress_{};
   ModelChip::Table const* egress_{};
   ModelChip::Table const* members_{};
   ModelChip::Table const* groups_{};
   std::string problem_;

   // Who reads what, by the rows themselves; the last place is for rows that read nothing here.
   std::array<Mask, 65> over_{};    ///< egress rows over each interface
   std::array<Mask, 65> readers_{}; ///< member rows of each next hop
   std::array<Mask, 64> paths_{};   ///< member rows of each group
   std::array<Asic::Index, 64> overOf_ = filled();
   std::array<Asic::Index, 64> nextHopOf_ = filled();
   std::array<std::uint32_t, 64> wishOf_{};
   std::array<std::uint32_t, Wishes::destinations> inForce_{};
   std::array<Asic::Index, Wishes::destinations> rowOf_{};

   static constexpr std::array<Asic::Index, 64> filled() {
      std::array<Asic::Index, 64> all{};
      all.fill(none);
      return all;
   }
};

} // namespace ZandorL3Tunnel
