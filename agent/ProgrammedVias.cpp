#include "agent/ProgrammedVias.h"

#include <algorithm>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

bool
isSame(ProgrammedVias const& one, std::vector<ProgrammedVia> const& vias, L3Via const& handed) {
   return one.handed()->via() == handed.via() &&
          std::equal(one.vias().begin(), one.vias().end(), vias.begin(), vias.end(),
                     [](auto const& a, auto const& b) { return a.shortOf == b.shortOf; });
}

} // namespace

ViaContent::ViaContent(DerivedVia const& via) : kind(via.kind), mac(via.mac) {
   if (via.kind == ViaKind::unicast && via.port && via.sourceMac) {
      port = via.port;
      sourceMac = via.sourceMac;
      tag = via.tagged.value_or(false) ? std::optional(via.vlan.value_or(0)) : std::nullopt;
   }
}

Brix::NextHopEntryType
entryType(ViaKind kind) {
   switch (kind) {
   case ViaKind::unicast:
      return Brix::NextHopEntryType::unicast;
   case ViaKind::cpu:
      return Brix::NextHopEntryType::receive;
   case ViaKind::drop:
      break;
   }
   return Brix::NextHopEntryType::drop;
}

InterfaceKey
interfaceKey(ViaContent const& via) {
   InterfaceKey key;
   key.sourceMac = ethAddr(*via.sourceMac);
   key.tagged = via.tag.has_value();
   key.vlan = via.tag.value_or(0);
   return key;
}

ProgrammedVias::Content::InABlock
ProgrammedVias::Content::inABlock() const {
   auto held = inABlock_.lock();
   if (!held) {
      held = std::make_shared<char const>();
      inABlock_ = held;
   }
   return held;
}

ProgrammedVias::ProgrammedVias(ProgrammedLists& lists, Parts parts)
    : lists_(lists)
    , parts_(std::move(parts))
    , isShort_(std::any_of(parts_.vias.begin(), parts_.vias.end(),
                           [](auto const& via) { return !via.shortOf.empty(); })) {}

ProgrammedVias::~ProgrammedVias() {
   auto& byList = lists_.byList(parts_.hasFailed);
   auto const found = byList.find(list().identity());
   if (found != byList.end() && found->second == this) {
      byList.erase(found);
   }
}

ProgrammedLists::Ptr
ProgrammedLists::find(ViaList const& list) const {
   auto const found = standing_.find(list.identity());
   return Ptr(found == standing_.end() ? nullptr : found->second);
}

// All members are equal: a via's value says nothing. Software is for what the chip cannot forward: beside
// vias that forward it would only take packets away.
ProgrammedLists::Ptr
ProgrammedLists::made(ViaList const& list, std::vector<ProgrammedVia> vias) {
   bool const leavesOut =
         !includeUnresolved_ &&
         std::any_of(vias.begin(), vias.end(), [](ProgrammedVia const& via) { return via.forwards(); });
   auto const handed = l3ViaFactory();
   for (auto& via : vias) {
      via.isProgrammed = !(leavesOut && via.isToCpu());
      if (via.isProgrammed) {
         handed->viaIs(via.entry, 1);
      }
   }
   if (auto standing = find(list); standing && isSame(*standing, vias, *handed)) {
      return standing;
   }
   return added({.list = list, .vias = std::move(vias), .handed = handed, .content = content(list)});
}

ProgrammedLists::Ptr
ProgrammedLists::failed(ProgrammedVias const& programmed) {
   auto const found = failed_.find(programmed.list().identity());
   if (found != failed_.end() && isSame(*found->second, programmed.vias(), *programmed.handed())) {
      return Ptr(found->second);
   }
   auto parts = programmed.parts_;
   parts.hasFailed = true;
   for (auto& via : parts.vias) {
      via.interface = nullptr;
   }
   return added(std::move(parts));
}

ProgrammedLists::Ptr
ProgrammedLists::added(ProgrammedVias::Parts parts) {
   auto const added = Nuv::make<ProgrammedVias>(*this, std::move(parts));
   byList(added->parts_.hasFailed)[added->list().identity()] = added.get();
   return added;
}

Nuv::Ptr<ProgrammedVias::Content const>
ProgrammedLists::content(ViaList const& list) {
   ProgrammedVias::Content::Vias vias;
   for (auto const& via : list) {
      vias.emplace_back(via);
   }
   auto const forwards = [](ViaContent const& via) { return via.forwards(); };
   if (!includeUnresolved_ && std::any_of(vias.begin(), vias.end(), forwards)) {
      std::erase_if(vias, [&](auto const& via) { return via.kind != ViaKind::drop && !via.forwards(); });
   }
   std::sort(vias.begin(), vias.end());
   vias.erase(std::unique(vias.begin(), vias.end()), vias.end());
   auto const [place, isNew] = contents_.try_emplace(std::move(vias));
   if (!isNew) {
      return Nuv::Ptr<ProgrammedVias::Content const>(place->second);
   }
   auto const made = Nuv::make<ProgrammedVias::Content>(contents_, place, ++lastContent_);
   place->second = made.get();
   return made;
}

} // namespace L3TunnelAgent
