#pragma once

#include "agent/Derive.h"
#include "chip/model/Chip.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

namespace L3TunnelAgent {

/// What tells one egress interface entry from another: several devices may share one, and an SVI whose ports
/// differ in tagging has two.
struct InterfaceKey : Nuv::Record<InterfaceKey> {
   Fendo::EthAddr sourceMac;
   bool tagged{};
   std::uint16_t vlan{}; ///< 0 when not tagged

   static constexpr auto fieldList() {
      return Nuv::fieldList("L3TunnelAgent::InterfaceKey", Nuv::field("sourceMac", &InterfaceKey::sourceMac),
                            Nuv::field("tagged", &InterfaceKey::tagged),
                            Nuv::field("vlan", &InterfaceKey::vlan));
   }
};

/// A via as it was handed to the library, or left out.
struct ProgrammedVia {
   DerivedVia via;
   bool isProgrammed{};
   ZandorL3Tunnel::L3ViaEntry entry; ///< what was handed over; meaningless when nothing was
};

/// A tunnel destination and what stands in the tables for it. Without a route there is neither block nor
/// group.
struct ProgrammedDestination {
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

   IpAddress address;
   std::vector<ProgrammedVia> vias;
   std::string reason;
   Handle block;
   Handle group;
};

/// One switch: a chip, the library's tables for it, and the tunnel destinations programmed into them.
class Fabric {
 public:
   /// A chip with tables of the sizes given, or of the chip's own; nothing is programmed.
   explicit Fabric(ModelChip::Chip::Sizes const& sizes = {});
   ~Fabric();

   /// Programs every destination, in order: interfaces first, then the block of next hops, then the group.
   /// The chip answers when the loop is stepped.
   void program(KernelState const& state, std::vector<Destination> const& destinations);

   /// Takes everything out again, groups first, and waits until the chip has.
   void clear();

   /// Steps the loop until the chip has answered everything; returns the number of steps.
   std::size_t settle() { return loop_.runUntilIdle(); }

   std::vector<ProgrammedDestination> const& destinations() const { return destinations_; }

   ModelChip::Chip& chip() { return *chip_; }
   ModelChip::Chip const& chip() const { return *chip_; }
   ZandorL3Tunnel::EgrL3Oif2 const& interfaces() const { return *interfaces_; }
   ZandorL3Tunnel::L3EcmpGroup0Table const& groups() const { return *groups_; }
   ZandorL3Tunnel::L3UnderlayEcmpProgrammer const& programmer() const { return *programmer_; }

   /// The number of the port: the agent's own, from 1 in the order in which ports were first used.
   std::optional<std::uint16_t> portNumber(int device) const;

   /// The device behind a port's number; 0 when the number is not in use.
   int portDevice(std::uint16_t number) const;

 private:
   ProgrammedVia programmedVia(KernelState const& state, DerivedVia const& via);
   void unicastIs(KernelState const& state, ProgrammedVia& programmed);
   Asic::Index interfaceIs(InterfaceKey const& key);
   std::uint16_t portNumberIs(int device);
   void blockAndGroupAre(ProgrammedDestination& destination, std::uint32_t adjacency);

   static constexpr Asic::UnitId unit = 0;

   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_;
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_;
   Nuv::Ptr<Local::EntityManager> local_;
   Nuv::Ptr<ZandorL3Tunnel::EgrL3Oif2> interfaces_;
   Nuv::Ptr<Asic::FirstFreeIndexAllocator> interfaceIndices_;
   Nuv::Ptr<ZandorL3Tunnel::L3EcmpGroup0Table> groups_;
   Nuv::Ptr<ZandorL3Tunnel::L3UnderlayEcmpProgrammer> programmer_;
   std::vector<int> ports_;
   std::vector<ProgrammedDestination> destinations_;
};

/// The library's form of an Ethernet address.
inline Fendo::EthAddr
ethAddr(MacAddress const& mac) {
   return {mac.bytes};
}

} // namespace L3TunnelAgent
