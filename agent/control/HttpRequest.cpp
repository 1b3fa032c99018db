#include "agent/control/HttpRequest.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>

namespace L3TunnelAgent {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr int ok = 200;

/// Characters of a method or a field's name (RFC 9110, 5.6.2).
bool
isToken(std::string_view text) {
   return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char character) {
      return std::isalnum(character) ||
             std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(character)) != std::string_view::npos;
   });
}

bool
isVisible(std::string_view text) {
   return std::all_of(text.begin(), text.end(),
                      [](unsigned char character) { return character > ' ' && character < 0x7f; });
}

/// The text up to the separator, which both go from `rest`; all of it when there is none.
std::string_view
cut(std::string_view& rest, std::string_view separator) {
   auto const at = rest.find(separator);
   auto const part = rest.substr(0, at);
   rest.remove_prefix(at == std::string_view::npos ? rest.size() : at + separator.size());
   return part;
}

bool
isHost(std::string_view name) {
   constexpr std::string_view host = "host";
   return std::equal(name.begin(), name.end(), host.begin(), host.end(), [](unsigned char one, char other) {
      return std::tolower(one) == static_cast<unsigned char>(other);
   });
}

/// How many fields name a host; nothing when one of the lines is no field.
std::optional<std::size_t>
hostsIn(std::string_view fields) {
   std::size_t hosts = 0;
   while (!fields.empty()) {
      auto line = cut(fields, lineEnd);
      if (line.empty()) {
         break;
      }
      auto const colon = line.find(':');
      if (colon == std::string_view::npos || !isToken(line.substr(0, colon))) {
         return std::nullopt;
      }
      hosts += isHost(line.substr(0, colon)) ? 1 : 0;
   }
   return hosts;
}

/// The status that the version calls for.
int
statusOfVersion(std::string_view version, std::size_t hosts) {
   auto const isDigit = [](char character) { return character >= '0' && character <= '9'; };
   bool const isVersion = version.size() == 8 && version.starts_with("HTTP/") && isDigit(version[5]) &&
                          version[6] == '.' && isDigit(version[7]);
   if (!isVersion) {
      return 400;
   }
   if (version[5] != '1') {
      return 505;
   }
   return version[7] != '0' && hosts != 1 ? 400 : ok;
}

std::string_view
words(int status) {
   switch (status) {
   case ok:
      return "OK";
   case 400:
      return "Bad Request";
   case 404:
      return "Not Found";
   case 405:
      return "Method Not Allowed";
   case 431:
      return "Request Header Fields Too Large";
   case 503:
      return "Service Unavailable";
   default:
      return "HTTP Version Not Supported";
   }
}

} // namespace

std::optional<std::size_t>
httpHeadEnd(std::string_view bytes) {
   auto const at = bytes.find("\r\n\r\n");
   return at == std::string_view::npos ? std::nullopt : std::optional(at + 4);
}

HttpOutcome
httpOutcome(std::string_view head, std::string_view path) {
   auto line = cut(head, lineEnd);
   auto const method = cut(line, " ");
   auto target = cut(line, " ");
   bool const isHeadOnly = method == "HEAD";
   auto const hosts = hostsIn(head);
   if (!isToken(method) || target.empty() || !isVisible(target) || !hosts) {
      return {400, isHeadOnly};
   }
   if (auto const status = statusOfVersion(line, *hosts); status != ok) {
      return {status, isHeadOnly};
   }
   if (method != "GET" && !isHeadOnly) {
      return {405, false};
   }
   return {cut(target, "?") == path ? ok : 404, isHeadOnly};
}

std::string
httpAnswer(HttpOutcome outcome, std::string_view content) {
   auto const body = outcome.status == ok ? std::string(content)
                                          : fmt::format("{} {}\n", outcome.status, words(outcome.status));
   auto const* const type =
         outcome.status == ok ? "text/plain; version=0.0.4; charset=utf-8" : "text/plain; charset=utf-8";
   return fmt::format(
                "HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\n{}Connection: close\r\n\r\n",
                outcome.status, words(outcome.status), type, body.size(),
                outcome.status == 405 ? "Allow: GET, HEAD\r\n" : "") +
          (outcome.isHeadOnly ? "" : body);
}

} // namespace L3TunnelAgent
