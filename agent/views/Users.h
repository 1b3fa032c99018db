#pragma once

#include "agent/Fabric.h"

#include <map>
#include <vector>

namespace L3TunnelAgent {

/// Which destinations stand on an entry of a software table, now or with the set that they are moving to.
class Users {
 public:
   using Handle = Asic::SwTableBase::EntryHandle;
   using Addresses = std::vector<IpAddress>;

   /// As the fabric is now. The handles that it knows must live as long as it is used.
   explicit Users(Fabric const& fabric);

   /// The destinations, in order; none for an entry that nobody stands on.
   Addresses const& ofGroup(Handle const& group) const { return of(group); }
   Addresses const& ofBlock(Handle const& block) const { return of(block); }
   Addresses const& ofNextHop(Handle const& nextHop) const { return of(nextHop); }
   Addresses const& ofInterface(Asic::Index index) const;

   /// The devices whose vias name the interface, with the VLAN of each.
   using Devices = std::map<int, std::optional<std::uint16_t>>;
   Devices const& devicesOf(Asic::Index interface) const;

   /// How many member rows, of blocks that somebody stands on, point at the next hop.
   std::size_t membersOf(Handle const& nextHop) const;

 private:
   Addresses const& of(Handle const& handle) const;
   void destinationIs(ProgrammedDestination const& destination);
   void blockIs(IpAddress const& address, Handle const& block);
   void viaIs(IpAddress const& address, ProgrammedVia const& via);
   static void addressIs(Addresses& addresses, IpAddress const& address);

   std::map<Handle const*, Addresses> users_;
   std::map<Handle const*, std::size_t> members_;
   std::map<Handle const*, std::vector<Handle const*>> hops_; // of each block
   std::map<Asic::Index, Addresses> interfaceUsers_;
   std::map<Asic::Index, Devices> interfaceDevices_;
};

/// The next hops of a block's members by position; none for anything but a block.
std::map<std::uint32_t, Nuv::Ptr<Asic::SwTableBase::EntryHandle const>>
nextHopsOf(Asic::SwTableBase::EntryHandle const& block);

} // namespace L3TunnelAgent
