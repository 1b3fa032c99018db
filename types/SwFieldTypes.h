#pragma once

#include "platform/nuv/EnumType.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Hash.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <limits>

namespace ZandorL3Tunnel {

/// What an ingress next hop's destination is: the chip's codes.
enum class ZANDOR_EXPORT DestinationType : std::uint8_t {
   invalidDestination = 0,
   l2Multicast = 1,
   l3Multicast = 2,
   unicast = 4,
   system = 8
};

/// Strength profiles of next hops: an index of 8 bits, named by its number.
enum class ZANDOR_EXPORT L3UnderlayIngNextHopStrengthProfileIndex : std::uint8_t {};
enum class ZANDOR_EXPORT L3UnderlayEgrNextHopStrengthProfileIndex : std::uint8_t {};

/// The type system's descriptor of a value, by number or by name. A `Nuv::RangeException` when there is none.
ZANDOR_EXPORT Nuv::EnumInstance const& destinationTypeInstance(unsigned number);
ZANDOR_EXPORT Nuv::EnumInstance const& destinationTypeInstance(Pelm::String const& name);
ZANDOR_EXPORT Nuv::EnumInstance const& l3UnderlayIngNextHopStrengthProfileIndexInstance(unsigned number);
ZANDOR_EXPORT Nuv::EnumInstance const&
l3UnderlayIngNextHopStrengthProfileIndexInstance(Pelm::String const& name);
ZANDOR_EXPORT Nuv::EnumInstance const& l3UnderlayEgrNextHopStrengthProfileIndexInstance(unsigned number);
ZANDOR_EXPORT Nuv::EnumInstance const&
l3UnderlayEgrNextHopStrengthProfileIndexInstance(Pelm::String const& name);

/// A value's name; its number in decimal where it has none.
ZANDOR_EXPORT Pelm::String stringValue(DestinationType value);
ZANDOR_EXPORT Pelm::String stringValue(L3UnderlayIngNextHopStrengthProfileIndex value);
ZANDOR_EXPORT Pelm::String stringValue(L3UnderlayEgrNextHopStrengthProfileIndex value);

/// The enumerations that the functions below serve.
template <class E>
concept FieldEnum =
      std::same_as<E, DestinationType> || std::same_as<E, L3UnderlayIngNextHopStrengthProfileIndex> ||
      std::same_as<E, L3UnderlayEgrNextHopStrengthProfileIndex>;

/// Reads a value's name from the front of a character range; a `Nuv::RangeException` when there is none.
ZANDOR_EXPORT void parseText(Nuv::TextRange& range, DestinationType& value);
ZANDOR_EXPORT void parseText(Nuv::TextRange& range, L3UnderlayIngNextHopStrengthProfileIndex& value);
ZANDOR_EXPORT void parseText(Nuv::TextRange& range, L3UnderlayEgrNextHopStrengthProfileIndex& value);

template <FieldEnum E>
void
appendText(Pelm::String& out, E value) {
   out.append(stringValue(value));
}

template <FieldEnum E>
Pelm::String
valueToStrep(E value) {
   return stringValue(value);
}

/// Sets `value` from the name that is exactly the character range.
template <FieldEnum E>
void
sequenceToValue(char const* begin, char const* end, E& value) {
   value = Nuv::valueFromText<E>(Pelm::StringView(begin, std::size_t(end - begin)));
}

template <FieldEnum E>
std::ostream&
operator<<(std::ostream& stream, E value) {
   return Nuv::writeText(stream, stringValue(value));
}

/// Number of 13 bits, 0 to 0x1fff. A larger one is a range error.
class ZANDOR_EXPORT U13 {
 public:
   static constexpr unsigned max = 0x1fff;

   constexpr U13() = default;
   explicit U13(std::uint32_t value);

   constexpr std::uint16_t value() const { return value_; }

   std::uint32_t hash(unsigned seed) const { return Nuv::hashOf(value_, seed); }
   friend auto operator<=>(U13 const&, U13 const&) = default;
   friend void appendText(Pelm::String& out, U13 number) { Nuv::appendText(out, unsigned(number.value_)); }
   friend void parseText(Nuv::TextRange& range, U13& number) {
      number = U13(std::uint32_t(range.number(std::numeric_limits<std::uint32_t>::max())));
   }

 private:
   std::uint16_t value_{};
};

} // namespace ZandorL3Tunnel

/// The bounds of the field type, for whoever asks before building one.
template <>
struct std::numeric_limits<ZandorL3Tunnel::U13> {
   static constexpr bool is_specialized = true;
   static constexpr unsigned max() { return ZandorL3Tunnel::U13::max; }
};
