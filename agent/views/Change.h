#pragma once

#include "agent/views/Difference.h"
#include "agent/views/Json.h"

#include <chrono>

namespace L3TunnelAgent {

/// What happened to one destination. At least one of both is there.
struct Change {
   IpAddress destination{};
   std::optional<Picture::Destination> before{};
   std::optional<Picture::Destination> after{};
};

using WallTime = std::chrono::system_clock::time_point;

/// A time as "2026-01-31T23:59:59.123Z".
std::string timeText(WallTime time);

/// The change in one line for a person, without its end: when, which destination, from which state to which,
/// and what else is another one than before.
std::string text(Change const& change, WallTime time, Paint const& paint);

/// The change as a program reads it; `agent` is as it is after the change.
Json json(Change const& change, WallTime time, Agent const& agent);

} // namespace L3TunnelAgent
