#include "types/SwFieldTypes.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("SwFieldTypes");

Nuv::EnumType const destinationTypes("ZandorL3Tunnel::DestinationType", module,
                                     {{unsigned(DestinationType::invalidDestination), "invalidDestination"},
                                      {unsigned(DestinationType::unicast), "unicast"},
                                      {unsigned(DestinationType::l2Multicast), "l2Multicast"},
                                      {unsigned(DestinationType::l3Multicast), "l3Multicast"},
                                      {unsigned(DestinationType::system), "system"}});
Nuv::EnumType const ingProfiles("ZandorL3Tunnel::L3UnderlayIngNextHopStrengthProfileIndex", module,
                                Nuv::EnumType::numbered(0, 255));
Nuv::EnumType const egrProfiles("ZandorL3Tunnel::L3UnderlayEgrNextHopStrengthProfileIndex", module,
                                Nuv::EnumType::numbered(0, 255));

} // namespace

U13::U13(std::uint32_t value) : value_(std::uint16_t(value)) {
   if (value > max) {
      throw Nuv::RangeException("U13::value < 0 or > 0x1fff not allowed");
   }
}

Nuv::EnumInstance const&
destinationTypeInstance(unsigned number) {
   return destinationTypes.instance(number);
}

Nuv::EnumInstance const&
destinationTypeInstance(Pelm::String const& name) {
   return destinationTypes.instance(name);
}

Nuv::EnumInstance const&
l3UnderlayIngNextHopStrengthProfileIndexInstance(unsigned number) {
   return ingProfiles.instance(number);
}

Nuv::EnumInstance const&
l3UnderlayIngNextHopStrengthProfileIndexInstance(Pelm::String const& name) {
   return ingProfiles.instance(name);
}

Nuv::EnumInstance const&
l3UnderlayEgrNextHopStrengthProfileIndexInstance(unsigned number) {
   return egrProfiles.instance(number);
}

Nuv::EnumInstance const&
l3UnderlayEgrNextHopStrengthProfileIndexInstance(Pelm::String const& name) {
   return egrProfiles.instance(name);
}

Pelm::String
stringValue(DestinationType value) {
   return destinationTypes.stringValue(unsigned(value));
}

Pelm::String
stringValue(L3UnderlayIngNextHopStrengthProfileIndex value) {
   return ingProfiles.stringValue(unsigned(value));
}

Pelm::String
stringValue(L3UnderlayEgrNextHopStrengthProfileIndex value) {
   return egrProfiles.stringValue(unsigned(value));
}

void
parseText(Nuv::TextRange& range, DestinationType& value) {
   value = DestinationType(destinationTypes.parse(range).number);
}

void
parseText(Nuv::TextRange& range, L3UnderlayIngNextHopStrengthProfileIndex& value) {
   value = L3UnderlayIngNextHopStrengthProfileIndex(ingProfiles.parse(range).number);
}

void
parseText(Nuv::TextRange& range, L3UnderlayEgrNextHopStrengthProfileIndex& value) {
   value = L3UnderlayEgrNextHopStrengthProfileIndex(egrProfiles.parse(range).number);
}

} // namespace ZandorL3Tunnel
