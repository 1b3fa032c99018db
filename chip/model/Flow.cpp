#include "chip/model/Flow.h"

#include <vector>

namespace ModelChip {

namespace {

constexpr std::array<std::uint32_t, 256>
crcTable() {
   constexpr std::uint32_t reversedPolynomial = 0x82f63b78;
   std::array<std::uint32_t, 256> table{};
   for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
      std::uint32_t remainder = byte;
      for (int bit = 0; bit < 8; ++bit) {
         remainder = remainder >> 1 ^ (remainder & 1 ? reversedPolynomial : 0);
      }
      table[byte] = remainder;
   }
   return table;
}

} // namespace

std::uint32_t
crc32c(std::span<std::uint8_t const> bytes) {
   static constexpr auto table = crcTable();
   std::uint32_t remainder = 0xffffffff;
   for (auto const byte : bytes) {
      remainder = remainder >> 8 ^ table[(remainder ^ byte) & 0xff];
   }
   return ~remainder;
}

std::uint32_t
flowHash(Flow const& flow) {
   std::vector<std::uint8_t> bytes;
   for (auto const* address : {&flow.source, &flow.destination}) {
      bytes.insert(bytes.end(), address->span().begin(), address->span().end());
   }
   bytes.push_back(flow.protocol);
   for (auto const port : {flow.sourcePort, flow.destinationPort}) {
      bytes.push_back(std::uint8_t(port >> 8));
      bytes.push_back(std::uint8_t(port));
   }
   return crc32c(bytes);
}

std::uint32_t
pathOf(std::uint32_t hash, std::uint32_t numPaths) {
   return std::uint32_t(std::uint64_t(hash) * numPaths >> 32);
}

} // namespace ModelChip
