#pragma once

#include "agent/views/Sections.h"

#include <optional>
#include <string>

namespace L3TunnelAgent {

/// Why a destination is as it is, for a person: how far it has come and for what reason, what the kernel
/// said, each of its vias, and the entries that it stands on down to the one that it waits for or that
/// failed. Nothing when it is no tunnel destination.
std::optional<std::string> explanation(View const& view, IpAddress const& destination, Paint const& paint);

} // namespace L3TunnelAgent
