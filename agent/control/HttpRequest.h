#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace L3TunnelAgent {

/// Where the head of a request ends: behind its empty line. Nothing as long as that is not there.
std::optional<std::size_t> httpHeadEnd(std::string_view bytes);

/// What a request comes to.
struct HttpOutcome {
   int status{};      ///< of the answer: 200 when it asks for what is there
   bool isHeadOnly{}; ///< the answer's body is not sent
};

/// @param head of the request, up to and with its empty line.
/// @param path of the one thing that there is, which GET and HEAD ask for.
HttpOutcome httpOutcome(std::string_view head, std::string_view path);

/// The answer from its status line on, after which the connection ends.
/// @param content the body of a 200; others say their status in words.
std::string httpAnswer(HttpOutcome outcome, std::string_view content);

} // namespace L3TunnelAgent
