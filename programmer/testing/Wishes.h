#pragma once

#include "chip/model/Forwarding.h"
#include "types/L3ViaEntry.h"

#include <array>
#include <vector>

namespace ZandorL3Tunnel {

/// The vias that a system is asked for, by number, and what each becomes in the chip.
namespace ViaPool {

inline constexpr unsigned count = 32;
inline constexpr unsigned unicasts = 24;
inline constexpr Asic::Index interfaces = 12; ///< numbers 1 to this, which are those of the unicast vias

constexpr bool
isUnicast(unsigned via) {
   return via < unicasts;
}
constexpr bool
isDrop(unsigned via) {
   return via == 28 || via == 29;
}
constexpr Asic::Index
interface(unsigned via) {
   return 1 + via % interfaces;
}

inline L3ViaEntry
entry(unsigned via) {
   using Brix::NextHopEntryType;
   L3ViaEntry entry;
   entry.macAddr = {{2, 0, 0, 0, 0, std::uint8_t(via)}};
   entry.l3Id = {std::uint16_t(interface(via))};
   if (isUnicast(via)) {
      entry.nhEntryType = via % 3 == 0 ? NextHopEntryType::tunnelUnicast : NextHopEntryType::unicast;
      entry.l2If = {std::uint16_t(100 + via)};
   } else if (isDrop(via)) {
      entry.nhEntryType = NextHopEntryType::drop;
   } else {
      static constexpr NextHopEntryType toCpu[] = {NextHopEntryType::receive, NextHopEntryType::glean,
                                                   NextHopEntryType::unicast,
                                                   NextHopEntryType::tunnelUnicast};
      entry.nhEntryType = toCpu[via % 4];
   }
   return entry;
}

} // namespace ViaPool

/// What was asked for and may therefore be in the chip, told in the plainest way. Each request has a number,
/// from 1, which its group carries as its mode: so each group row says whose it is.
class Wishes {
 public:
   static constexpr unsigned destinations = 32;

   struct Wish {
      std::uint8_t destination;
      std::vector<std::uint8_t> vias; ///< in the order of members
   };

   struct Destination {
      std::uint32_t newest{};    ///< the request that was made last; 0 when none stands
      std::uint32_t goneAfter{}; ///< the newest request of all when the destination was last removed
   };

   std::uint32_t wishIs(unsigned destination, std::vector<std::uint8_t> vias, bool isCpuDrop) {
      wishes_.push_back({std::uint8_t(destination), std::move(vias)});
      auto number = std::uint32_t(wishes_.size());
      askedAgain(number, isCpuDrop);
      return destinations_[destination].newest = number;
   }

   /// What is for the CPU is dropped, or not, by whoever asked last for one of the same vias.
   void askedAgain(std::uint32_t number, bool isCpuDrop) {
      for (auto via : wish(number)->vias) {
         cpuTypes_[via] |= isCpuDrop ? dropped : toCpu;
      }
   }

   void gone(unsigned destination) { destinations_[destination] = {0, std::uint32_t(wishes_.size())}; }

   void interfaceIs(Asic::Index interface, std::uint8_t value) {
      values_[interface] |= 1u << value;
      newestValue_[interface] = value;
   }

   Destination const& destination(unsigned number) const { return destinations_[number]; }

   /// The request of that number; null when there was none.
   Wish const* wish(std::uint32_t number) const {
      return number == 0 || number > wishes_.size() ? nullptr : &wishes_[number - 1];
   }

   /// Whether the interface was ever to carry the value since everything was last in place.
   bool mayCarry(Asic::Index interface, std::uint64_t value) const {
      return interface < values_.size() && value < 32 && (values_[interface] >> value & 1) != 0;
   }
   std::uint8_t newestValue(Asic::Index interface) const { return newestValue_[interface]; }

   /// Whether what the chip does with a packet to the via is what was asked for.
   bool mayForward(unsigned via, ModelChip::HopRows const& hop) const {
      auto wanted = ViaPool::entry(via);
      if (ViaPool::isUnicast(via)) {
         return hop.destinationType == 4 && hop.destinationId == wanted.l2If.value &&
                hop.dstMac == wanted.macAddr && hop.interface && hop.interface->index == wanted.l3Id.value;
      }
      bool isRight = hop.destinationType == 0
                           ? ViaPool::isDrop(via) || (cpuTypes_[via] & dropped)
                           : hop.destinationType == 8 && !ViaPool::isDrop(via) && (cpuTypes_[via] & toCpu);
      return isRight && hop.destinationId == 0 && hop.dstMac == Fendo::EthAddr() && !hop.interface;
   }

   /// Everything is in place: only the newest values of interfaces may be in the chip.
   void settled() {
      for (Asic::Index interface = 0; interface < values_.size(); ++interface) {
         values_[interface] = 1u << newestValue_[interface];
      }
   }

 private:
   static constexpr std::uint8_t toCpu = 1;
   static constexpr std::uint8_t dropped = 2;

   std::vector<Wish> wishes_;
   std::array<Destination, destinations> destinations_{};
   std::array<std::uint8_t, ViaPool::count> cpuTypes_{};
   std::array<std::uint32_t, ViaPool::interfaces + 1> values_{};
   std::array<std::uint8_t, ViaPool::interfaces + 1> newestValue_{};
};

} // namespace ZandorL3Tunnel
