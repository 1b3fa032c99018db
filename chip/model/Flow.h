#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace ModelChip {

/// An IP address as it stands in a packet.
struct FlowAddress {
   std::array<std::uint8_t, 16> bytes{}; ///< the first four of them for IPv4
   bool isV6{};

   std::span<std::uint8_t const> span() const { return {bytes.data(), std::size_t(isV6 ? 16 : 4)}; }
};

/// What tells the packets of one flow from those of another.
struct Flow {
   FlowAddress source;
   FlowAddress destination;
   std::uint8_t protocol{};
   std::uint16_t sourcePort{};
   std::uint16_t destinationPort{};
};

/// CRC-32C (Castagnoli; RFC 3720, appendix B.4) of the bytes.
std::uint32_t crc32c(std::span<std::uint8_t const> bytes);

/// The hash by which the chip spreads flows: CRC-32C over source address, destination address, protocol, and
/// the source and the destination port, the bytes of each in the order of the wire. It is the same in every
/// process.
std::uint32_t flowHash(Flow const& flow);

/// The path, from 0, that a flow of that hash takes among `numPaths`, which must not be 0: the hash's range
/// is cut into that many equal regions (the hash threshold of RFC 2992).
std::uint32_t pathOf(std::uint32_t hash, std::uint32_t numPaths);

} // namespace ModelChip
