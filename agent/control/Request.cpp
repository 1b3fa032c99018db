#include "agent/control/Request.h"

namespace L3TunnelAgent {

namespace {

/// First byte of the payload; the second one holds flags, and the words follow, each with a NUL behind it.
constexpr char version = 1;
constexpr char colouredFlag = 1;
constexpr std::size_t headSize = 2;

} // namespace

std::string
bytesOf(Request const& request) {
   std::string payload{version, request.isColoured ? colouredFlag : char(0)};
   for (auto const& word : request.words) {
      payload += word;
      payload += '\0';
   }
   if (payload.size() > Request::largest || request.words.size() > Request::mostWords) {
      throw ProtocolError("the command line is too long for a running agent");
   }
   return bytesOf(ControlFrame::Kind::request, payload);
}

Request
requestOf(ControlFrame const& frame) {
   auto const& payload = frame.payload;
   if (frame.kind != ControlFrame::Kind::request || payload.size() < headSize) {
      throw ProtocolError("this is no request");
   }
   if (payload[0] != version || (payload[1] & ~colouredFlag) != 0) {
      throw ProtocolError("the request is of another version of the program");
   }
   Request request{.words = {}, .isColoured = payload[1] == colouredFlag};
   for (std::size_t at = headSize; at < payload.size();) {
      auto const end = payload.find('\0', at);
      if (end == std::string::npos) {
         throw ProtocolError("the last word of the request has no end");
      }
      if (request.words.size() == Request::mostWords) {
         throw ProtocolError("the request has more than " + std::to_string(Request::mostWords) + " words");
      }
      request.words.push_back(payload.substr(at, end - at));
      at = end + 1;
   }
   return request;
}

} // namespace L3TunnelAgent
