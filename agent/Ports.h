#pragma once

#include "agent/SeededHash.h"
#include "platform/chipstate/ZandorCentralTypes.h"

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

namespace L3TunnelAgent {

/// The chip's numbers of ports: the agent's own, from 1 to 0xfffe, in the order in which devices were first
/// asked for. A device keeps its number until it is forgotten.
class Ports {
 public:
   static constexpr std::size_t most = ZandorCentral::VirtualPort::invalidValue - 1;

   /// The device's number, given now unless it has one; nothing when all are taken.
   std::optional<std::uint16_t> numberIs(int device);

   /// The device's number, if it has one.
   std::optional<std::uint16_t> number(int device) const;

   /// The device behind a number; 0 when the number is not in use.
   int device(std::uint16_t number) const;

   bool full() const { return numbers_.size() == most; }

   /// Forgets all devices but those of these numbers.
   void keepOnly(std::set<std::uint16_t> const& numbers);

 private:
   MapByNumber<int, std::uint16_t> numbers_;
   std::vector<int> devices_; // by number, from 1; 0 where it is free
   std::vector<std::uint16_t> free_;
};

} // namespace L3TunnelAgent
