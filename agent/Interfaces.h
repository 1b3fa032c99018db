#pragma once

#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/nuv/HashMap.h"
#include "tables/EgrL3Oif2.h"

#include <vector>

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

/// The egress interface entries that vias name: one for each distinct key, at the lowest free index from 1
/// that a next hop's row can name. An entry is written with its first use and removed after its last; its
/// index is given to another key only when the table has nothing there any more, next hops of old included.
class Interfaces {
 public:
   /// `table` is the one that the entries are written to; nobody else writes to it.
   explicit Interfaces(Nuv::Ptr<ZandorL3Tunnel::EgrL3Oif2> table);

   /// One user's hold on an entry; the last one that goes removes the entry. It must go before the
   /// interfaces.
   class Use final : public Nuv::Object {
    public:
      Use(Interfaces& interfaces, InterfaceKey key, Asic::Index index)
          : interfaces_(interfaces), key_(key), index_(index) {}
      ~Use() override { interfaces_.useDel(*this); }

      InterfaceKey const& key() const { return key_; }
      Asic::Index index() const { return index_; }

    private:
      Interfaces& interfaces_;
      InterfaceKey key_;
      Asic::Index index_;
   };

   /// The entry of that key, written now unless it stands; null when no index is free.
   Nuv::Ptr<Use> use(InterfaceKey const& key);

   /// The index that the entry of that key holds; the invalid one when there is none.
   Asic::Index index(InterfaceKey const& key) const;

   /// Gives back the indices of removed entries that the table has let go; true when there was one.
   bool freeLeft();

   ZandorL3Tunnel::EgrL3Oif2 const& table() const { return *table_; }
   Asic::FirstFreeIndexAllocator const& indices() const { return *indices_; }

 private:
   void useDel(Use const& use);

   Nuv::Ptr<ZandorL3Tunnel::EgrL3Oif2> table_;
   Nuv::Ptr<Asic::FirstFreeIndexAllocator> indices_;
   Nuv::HashMap<InterfaceKey, Use*> uses_;
   std::vector<InterfaceKey> left_; // removed, perhaps still in the table
};

} // namespace L3TunnelAgent
