#include "agent/views/Users.h"

#include "tables/L3UnderlayEcmpMember1Table.h"

namespace L3TunnelAgent {

Users::Users(Fabric const& fabric) {
   for (auto const& [address, destination] : fabric.destinations()) {
      destinationIs(destination);
   }
}

void
Users::destinationIs(ProgrammedDestination const& destination) {
   if (destination.group) {
      addressIs(users_[destination.group.get()], destination.address);
   }
   for (auto const* set : {&destination.current, &destination.wanted}) {
      if (!*set) {
         continue;
      }
      if ((*set)->block) {
         blockIs(destination.address, *(*set)->block);
      }
      for (auto const& via : (*set)->vias()) {
         viaIs(destination.address, via);
      }
   }
}

void
Users::blockIs(IpAddress const& address, Handle const& block) {
   addressIs(users_[&block], address);
   auto const [found, isNew] = hops_.try_emplace(&block);
   if (isNew) {
      for (auto const& [position, hop] : nextHopsOf(block)) {
         found->second.push_back(hop.get());
         ++members_[hop.get()];
      }
   }
   for (auto const* hop : found->second) {
      addressIs(users_[hop], address);
   }
}

void
Users::viaIs(IpAddress const& address, ProgrammedVia const& via) {
   if (!via.interface) {
      return;
   }
   addressIs(interfaceUsers_[via.interface->index()], address);
   if (via.via.device) {
      interfaceDevices_[via.interface->index()].try_emplace(*via.via.device, via.via.vlan);
   }
}

// Destinations come in order, each with all that it uses.
void
Users::addressIs(Addresses& addresses, IpAddress const& address) {
   if (addresses.empty() || addresses.back() != address) {
      addresses.push_back(address);
   }
}

Users::Addresses const&
Users::of(Handle const& handle) const {
   static Addresses const none;
   auto const found = users_.find(&handle);
   return found == users_.end() ? none : found->second;
}

Users::Addresses const&
Users::ofInterface(Asic::Index index) const {
   static Addresses const none;
   auto const found = interfaceUsers_.find(index);
   return found == interfaceUsers_.end() ? none : found->second;
}

Users::Devices const&
Users::devicesOf(Asic::Index interface) const {
   static Devices const none;
   auto const found = interfaceDevices_.find(interface);
   return found == interfaceDevices_.end() ? none : found->second;
}

std::size_t
Users::membersOf(Handle const& nextHop) const {
   auto const found = members_.find(&nextHop);
   return found == members_.end() ? 0 : found->second;
}

std::map<std::uint32_t, Nuv::Ptr<Asic::SwTableBase::EntryHandle const>>
nextHopsOf(Asic::SwTableBase::EntryHandle const& block) {
   using ZandorL3Tunnel::L3UnderlayEcmpMember1Table;
   std::map<std::uint32_t, Nuv::Ptr<Asic::SwTableBase::EntryHandle const>> hops;
   if (auto const* handle = dynamic_cast<L3UnderlayEcmpMember1Table::EntryHandle const*>(&block)) {
      for (auto const& member : handle->key().members()) {
         if (member.entry.underlayEcmpNextHopIndexHandle) {
            hops.emplace(member.position, member.entry.underlayEcmpNextHopIndexHandle);
         }
      }
   }
   return hops;
}

} // namespace L3TunnelAgent
