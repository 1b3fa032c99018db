#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace L3TunnelAgent {

/// Bytes on a control socket that are none of this protocol.
class ProtocolError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// What goes over a control socket, either way: a byte that says what it is, the length of the payload in
/// four bytes of the wire's order, the payload.
struct ControlFrame {
   enum class Kind : char {
      request = 'Q',   ///< the only one that a client sends
      output = 'O',    ///< text for standard output
      complaint = 'E', ///< text for standard error
      end = 'X',       ///< one byte, the exit code; nothing follows
   };
   static constexpr std::size_t headSize = 5;

   Kind kind{};
   std::string payload{};
};

/// A frame as bytes. Its payload has less than 4 GiB.
std::string bytesOf(ControlFrame::Kind kind, std::string_view payload);

/// Text as bytes of frames of that kind, each of at most `largestText`; none for empty text.
std::string textFrames(ControlFrame::Kind kind, std::string_view text);

constexpr std::size_t largestText = 1 << 20;

/// Makes frames of bytes that come in parts.
class FrameReader {
 public:
   /// @param largest payload that is taken, in bytes.
   explicit FrameReader(std::size_t largest) : largest_(largest) {}

   void bytesAre(std::string_view bytes);

   /// Bytes that are kept.
   std::size_t kept() const { return buffer_.size(); }

   /// @return the next frame; nothing as long as it is not whole.
   /// @throws ProtocolError when the head is none, or says of a larger payload. Nothing more can be read
   /// then.
   std::optional<ControlFrame> next();

   /// Whether bytes are left of a frame that is not whole.
   bool hasRest() const { return at_ < buffer_.size(); }

 private:
   std::size_t largest_;
   std::string buffer_;
   std::size_t at_{}; // of the first byte that was not given out
};

} // namespace L3TunnelAgent
