#pragma once

#include "agent/Recording.h"

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace L3TunnelAgent {

/// The bytes of a recording.
class RecordingBuilder {
 public:
   RecordingBuilder& frame(FrameKind kind, std::uint64_t nanoseconds, std::string_view payload,
                           std::uint8_t tag = 0, std::uint32_t sender = 0) {
      append<std::uint32_t>(static_cast<std::uint32_t>(16 + payload.size()));
      append(static_cast<std::uint8_t>(kind));
      append(tag);
      append<std::uint16_t>(0);
      append(sender);
      append(nanoseconds);
      bytes_ += payload;
      return *this;
   }

   RecordingBuilder& frame(FrameKind kind, std::uint64_t nanoseconds, std::span<std::byte const> payload) {
      return frame(kind, nanoseconds,
                   std::string_view(reinterpret_cast<char const*>(payload.data()), payload.size()));
   }

   std::string const& bytes() const { return bytes_; }

 private:
   template <typename T>
   void append(T value) {
      for (std::size_t i = 0; i < sizeof(T); ++i) {
         bytes_.push_back(static_cast<char>(value >> 8 * i));
      }
   }

   std::string bytes_ = "RNLCAP01";
};

/// The first frames of a recording, uncompressed.
inline RecordingBuilder
rebuilt(std::filesystem::path const& file, std::size_t most = ~std::size_t{0}) {
   RecordingBuilder builder;
   Recording recording(file);
   for (auto frame = recording.next(); frame && recording.count() <= most; frame = recording.next()) {
      builder.frame(frame->kind, frame->nanoseconds, frame->payload);
   }
   return builder;
}

} // namespace L3TunnelAgent
