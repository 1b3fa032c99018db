#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace L3TunnelAgent {

/// One kind of a kernel's state, which is asked for at once.
struct DumpKind {
   std::uint8_t tag{};     // that recordings know its replies by
   char const* name{};     // for a person
   std::uint16_t type{};   // of the request, RTM_GET*
   std::uint8_t family{};  // AF_*
   std::uint32_t extras{}; // RTEXT_FILTER_*, of links
};

/// Everything that is read, what others refer to first.
std::span<DumpKind const> allDumps();

/// Next-hop objects and routes.
std::span<DumpKind const> routeDumps();

/// @return the message that asks for it.
std::vector<std::byte> request(DumpKind const& kind, std::uint32_t sequence);

} // namespace L3TunnelAgent
