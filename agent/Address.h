#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace L3TunnelAgent {

/// An Ethernet address, in the order of the wire.
struct MacAddress {
   std::array<std::uint8_t, 6> bytes{};

   auto operator<=>(MacAddress const&) const = default;

   /// @return whether it addresses more than one station, or (all zero) none: such an address may have
   /// several forwarding entries on one device.
   bool isGroupOrZero() const;

   /// @return the address in lower case, "02:00:00:00:00:01".
   std::string text() const;

   /// @param text six pairs of hexadecimal digits between colons, in either case.
   /// @return the address; nothing when the text is anything else.
   static std::optional<MacAddress> parse(std::string const& text);

   /// @return the address; nothing unless exactly six bytes are given.
   static std::optional<MacAddress> fromBytes(std::span<std::byte const> bytes);
};

/// An IPv4 or IPv6 address, in the order of the wire. All IPv4 addresses sort before all IPv6 addresses, and
/// each family by value.
struct IpAddress {
   enum class Family : std::uint8_t { v4, v6 };

   Family family{Family::v4};
   std::array<std::uint8_t, 16> bytes{}; // the first four of them for IPv4, the rest zero

   auto operator<=>(IpAddress const&) const = default;

   /// @return the usual text form, "10.0.0.1" or "fe80::1".
   std::string text() const;

   /// @return whether it is that of a group of machines.
   bool isMulticast() const;

   /// @return how many bits an address of its family has.
   std::uint8_t bits() const { return family == Family::v4 ? 32 : 128; }

   /// @return an IPv4 address as a number in host order. Only for IPv4.
   std::uint32_t v4() const;

   /// @param value an IPv4 address as a number in host order.
   static IpAddress fromV4(std::uint32_t value);

   /// @return the address in any form that the C library reads; nothing when it reads none.
   static std::optional<IpAddress> parse(std::string const& text);

   /// @return the IPv4 address of four bytes, the IPv6 address of sixteen; nothing for another length.
   static std::optional<IpAddress> fromBytes(std::span<std::byte const> bytes);
};

} // namespace L3TunnelAgent

/// Starts from the process's hash seed, so that no addresses can be chosen for what they share. The order of
/// what hashes by it must not show.
template <>
struct std::hash<L3TunnelAgent::IpAddress> {
   std::size_t operator()(L3TunnelAgent::IpAddress const& address) const noexcept;
};
