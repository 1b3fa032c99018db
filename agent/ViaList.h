#pragma once

#include "agent/Address.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace L3TunnelAgent {

enum class ViaKind : std::uint8_t {
   unicast, // to a neighbour whose address is known
   cpu,     // needs software: the neighbour is not known, or the destination is this machine
   drop,
};

/// One way that packets to a destination take.
struct DerivedVia {
   ViaKind kind{};
   std::optional<MacAddress> mac{};       // of the neighbour; only of a unicast via, and always there
   std::optional<int> device{};           // index of the routed device
   std::optional<MacAddress> sourceMac{}; // of the routed device: the frame's source; none: it has none
   std::optional<int> port{};             // index of the device that the frame leaves by, when that is known
   std::optional<std::uint16_t> vlan{};   // of the routed device; none: it is untagged
   std::optional<bool> tagged{}; // whether the frame leaves the port with that VLAN; known when the port is
   unsigned weight{1};           // share of the packets, relative to the other vias: 1 to 65536
   std::optional<IpAddress>
         gateway{};      // the neighbour; the destination itself when that is directly connected
   std::string reason{}; // empty for a unicast via with a port and a source

   bool operator==(DerivedVia const&) const = default;
};

/// The ways of a destination, which never change: a copy is the same list, and most destinations of a fabric
/// share a few.
class ViaList {
   using Vias = std::vector<DerivedVia>;

 public:
   using value_type = DerivedVia;
   using size_type = Vias::size_type;
   using const_reference = Vias::const_reference;
   using const_iterator = Vias::const_iterator;
   using iterator = const_iterator;
   using Weak = std::weak_ptr<Vias const>;

   ViaList() = default;
   ViaList(Vias vias) : vias_(vias.empty() ? nullptr : std::make_shared<Vias const>(std::move(vias))) {}
   ViaList(std::initializer_list<DerivedVia> vias) : ViaList(Vias(vias)) {}

   /// The list that was given away, empty when nobody holds it any more.
   explicit ViaList(Weak const& weak) : vias_(weak.lock()) {}
   Weak weak() const { return vias_; }

   Vias const& vias() const {
      static Vias const none;
      return vias_ ? *vias_ : none;
   }
   bool empty() const { return !vias_; }
   size_type size() const { return vias().size(); }
   const_iterator begin() const { return vias().begin(); }
   const_iterator end() const { return vias().end(); }
   DerivedVia const& operator[](std::size_t at) const { return vias()[at]; }
   DerivedVia const& at(std::size_t at) const { return vias().at(at); }
   DerivedVia const& front() const { return vias().front(); }

   /// The same for the same list, and for no other one that is there.
   void const* identity() const { return vias_.get(); }

   bool operator==(ViaList const& other) const { return vias_ == other.vias_ || vias() == other.vias(); }

 private:
   std::shared_ptr<Vias const> vias_; // null: empty
};

} // namespace L3TunnelAgent
