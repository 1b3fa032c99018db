#include "platform/nuv/TypeInfo.h"
#include "types/L3UnderlayNextHopKey.h"
#include "types/L3Via.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3UnderlayNextHopExternalKey");
Nuv::RegisteredValue<L3ViaEntry> const viaEntryType(module);
Nuv::RegisteredValue<L3UnderlayNextHopKey> const nextHopKeyType(module);
Nuv::RegisteredClass<L3Via> const viaType(module, [](Pelm::String const&) {
   return Nuv::Ptr<Nuv::Object>(l3ViaFactory());
});

} // namespace

Nuv::FwkType
L3Via::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3Via>
L3Via::L3ViaIs() {
   return Nuv::make<L3Via>();
}

Nuv::Ptr<L3Via>
l3ViaFactory() {
   return L3Via::L3ViaIs();
}

void
L3Via::viaIs(L3ViaEntry const& entry, std::uint32_t value) {
   via_.valueIs(entry, value);
}

void
L3Via::viaDel(L3ViaEntry const& entry) {
   via_.erase(entry);
}

void
L3Via::viaDelAll() {
   via_.clear();
}

} // namespace ZandorL3Tunnel
