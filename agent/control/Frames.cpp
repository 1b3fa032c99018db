#include "agent/control/Frames.h"

#include <algorithm>
#include <string>

namespace L3TunnelAgent {

namespace {

std::optional<ControlFrame::Kind>
kindOf(char byte) {
   using Kind = ControlFrame::Kind;
   for (auto const kind : {Kind::request, Kind::output, Kind::complaint, Kind::end}) {
      if (static_cast<char>(kind) == byte) {
         return kind;
      }
   }
   return std::nullopt;
}

std::size_t
lengthAt(std::string_view bytes) {
   std::size_t length = 0;
   for (char const byte : bytes.substr(0, 4)) {
      length = length << 8 | static_cast<unsigned char>(byte);
   }
   return length;
}

} // namespace

std::string
bytesOf(ControlFrame::Kind kind, std::string_view payload) {
   std::string bytes;
   bytes.reserve(ControlFrame::headSize + payload.size());
   bytes += static_cast<char>(kind);
   for (int shift = 24; shift >= 0; shift -= 8) {
      bytes += static_cast<char>(payload.size() >> shift & 0xff);
   }
   bytes += payload;
   return bytes;
}

std::string
textFrames(ControlFrame::Kind kind, std::string_view text) {
   std::string bytes;
   bytes.reserve(text.size() + (text.size() / largestText + 1) * ControlFrame::headSize);
   for (std::size_t at = 0; at < text.size(); at += largestText) {
      bytes += bytesOf(kind, text.substr(at, largestText));
   }
   return bytes;
}

/// What was given out goes from the front, also when each part ends within a frame.
void
FrameReader::bytesAre(std::string_view bytes) {
   if (at_ > buffer_.size() / 2) {
      buffer_.erase(0, at_);
      at_ = 0;
   }
   buffer_ += bytes;
}

std::optional<ControlFrame>
FrameReader::next() {
   auto const rest = std::string_view(buffer_).substr(at_);
   if (rest.empty()) {
      return std::nullopt;
   }
   auto const kind = kindOf(rest.front());
   if (!kind) {
      throw ProtocolError("byte " + std::to_string(static_cast<unsigned char>(rest.front())) +
                          " begins no frame");
   }
   if (rest.size() < ControlFrame::headSize) {
      return std::nullopt;
   }
   auto const length = lengthAt(rest.substr(1));
   if (length > largest_) {
      throw ProtocolError("a frame of " + std::to_string(length) + " bytes is longer than " +
                          std::to_string(largest_));
   }
   if (rest.size() < ControlFrame::headSize + length) {
      return std::nullopt;
   }
   ControlFrame frame{.kind = *kind, .payload = std::string(rest.substr(ControlFrame::headSize, length))};
   at_ += ControlFrame::headSize + length;
   if (at_ == buffer_.size()) {
      buffer_.clear();
      at_ = 0;
   }
   return frame;
}

} // namespace L3TunnelAgent
