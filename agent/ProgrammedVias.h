#pragma once

#include "agent/Interfaces.h"
#include "agent/ViaList.h"
#include "types/L3Via.h"

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace L3TunnelAgent {

/// A via as it was handed to the library, or left out.
struct ProgrammedVia {
   DerivedVia via;
   bool isProgrammed{};
   ZandorL3Tunnel::L3ViaEntry entry{};     ///< what was handed over; meaningless when nothing was
   Nuv::Ptr<Interfaces::Use> interface {}; ///< that the entry names, if it does
   std::string shortOf{};                  ///< what there is no room for, so that the CPU serves the via

   /// Whether the chip can forward over it.
   bool forwards() const { return via.kind == ViaKind::unicast && entry.l2If.isValid(); }
   bool isToCpu() const { return via.kind == ViaKind::cpu || (via.kind == ViaKind::unicast && !forwards()); }
};

/// What the chip needs to know of a via. Without a port it needs the neighbour alone, which is then the
/// CPU's.
struct ViaContent {
   ViaKind kind{};
   std::optional<MacAddress> mac{};
   std::optional<int> port{};
   std::optional<MacAddress> sourceMac{};
   std::optional<std::uint16_t> tag{};

   explicit ViaContent(DerivedVia const& via);

   bool forwards() const { return port.has_value(); }

   auto operator<=>(ViaContent const&) const = default;
};

Brix::NextHopEntryType entryType(ViaKind kind);

/// The interface entry of a via that forwards.
InterfaceKey interfaceKey(ViaContent const& via);

class ProgrammedLists;

/// A list of vias as it was handed over: one for all destinations that have the list.
class ProgrammedVias final : public Nuv::Object {
 public:
   /// What a list would come to with room for all. Lists that differ in words alone have the same.
   class Content final : public Nuv::Object {
    public:
      using Vias = std::vector<ViaContent>; // ascending, each once
      using All = std::map<Vias, Content const*>;

      Content(All& all, All::const_iterator place, std::uint64_t number)
          : all_(all), place_(place), number_(number) {}
      ~Content() override { all_.erase(place_); }

      Vias const& vias() const { return place_->first; }

      /// No two that differ ever have the same.
      std::uint64_t number() const { return number_; }

      /// Held by whoever has a block of it.
      using InABlock = std::shared_ptr<void const>;
      InABlock inABlock() const;
      bool isInABlock() const { return !inABlock_.expired(); }

    private:
      All& all_;
      All::const_iterator place_;
      std::uint64_t number_;
      mutable std::weak_ptr<void const> inABlock_;
   };

   struct Parts {
      ViaList list;
      std::vector<ProgrammedVia> vias;
      Nuv::Ptr<ZandorL3Tunnel::L3Via const> handed;
      Nuv::Ptr<Content const> content;
      bool hasFailed{};
   };

   ProgrammedVias(ProgrammedLists& lists, Parts parts);
   ~ProgrammedVias() override;

   ViaList const& list() const { return parts_.list; }
   std::vector<ProgrammedVia> const& vias() const { return parts_.vias; }

   /// Those that are programmed.
   Nuv::Ptr<ZandorL3Tunnel::L3Via const> const& handed() const { return parts_.handed; }
   Content const& content() const { return *parts_.content; }

   /// Whether there was no room for some of its interfaces or ports.
   bool isShort() const { return isShort_; }

 private:
   friend class ProgrammedLists;

   ProgrammedLists& lists_;
   Parts parts_;
   bool isShort_;
};

/// Finds the lists of vias that were handed over, and owns none. It must outlive them.
class ProgrammedLists {
 public:
   using Ptr = Nuv::Ptr<ProgrammedVias const>;

   /// @param includeUnresolved whether vias to the CPU stay in lists that also forward.
   explicit ProgrammedLists(bool includeUnresolved) : includeUnresolved_(includeUnresolved) {}

   ProgrammedLists(ProgrammedLists const&) = delete;
   ProgrammedLists& operator=(ProgrammedLists const&) = delete;

   /// The list as it was handed over last; null when nobody has it.
   Ptr find(ViaList const& list) const;

   /// The list with its vias, of which those that are to be are handed over: that which stands already when
   /// it is the same.
   Ptr made(ViaList const& list, std::vector<ProgrammedVia> vias);

   /// The same list as it is shown once it has failed: it keeps no interface.
   Ptr failed(ProgrammedVias const& programmed);

 private:
   friend class ProgrammedVias;

   using ByList = std::unordered_map<void const*, ProgrammedVias const*>;

   Nuv::Ptr<ProgrammedVias::Content const> content(ViaList const& list);
   Ptr added(ProgrammedVias::Parts parts);
   ByList& byList(bool hasFailed) { return hasFailed ? failed_ : standing_; }

   bool includeUnresolved_;
   ByList standing_;
   ByList failed_;
   ProgrammedVias::Content::All contents_;
   std::uint64_t lastContent_{};
};

/// The library's form of an Ethernet address.
inline Fendo::EthAddr
ethAddr(MacAddress const& mac) {
   return {mac.bytes};
}

} // namespace L3TunnelAgent
