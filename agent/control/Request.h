#pragma once

#include "agent/control/Frames.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// What a client of the control socket asks for: a command line, and what its terminal is.
struct Request {
   static constexpr std::size_t largest = 64 * 1024; ///< payload of its frame, in bytes
   static constexpr std::size_t mostWords = 256;

   std::vector<std::string> words{}; ///< behind the program's name; none contains a NUL
   bool isColoured{};

   bool operator==(Request const&) const = default;
};

/// The request as the bytes of its frame.
/// @throws ProtocolError when it is too large.
std::string bytesOf(Request const& request);

/// @throws ProtocolError when the frame is no request.
Request requestOf(ControlFrame const& frame);

} // namespace L3TunnelAgent
