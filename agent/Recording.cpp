#include "agent/Recording.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <unistd.h>
#include <zlib.h>

namespace L3TunnelAgent {

namespace {

constexpr std::string_view magic = "RNLCAP01";
constexpr std::size_t lengthSize = 4;
constexpr std::size_t headSize = 16; // counted by the length, as the payload is
// The kernel fills at most 32 KiB per dump reply; anything far above is a damaged length.
constexpr std::size_t maximumPayload = 1 << 20;

template <typename T>
T
littleEndian(unsigned char const* bytes) {
   T value = 0;
   for (std::size_t i = sizeof(T); i-- > 0;) {
      value = static_cast<T>(value << 8 | bytes[i]);
   }
   return value;
}

/// A stream of its own, so that closing it leaves standard input open.
gzFile
openStandardInput() {
   int const descriptor = dup(STDIN_FILENO);
   gzFile const stream = descriptor < 0 ? nullptr : gzdopen(descriptor, "rb");
   if (!stream && descriptor >= 0) {
      close(descriptor);
   }
   return stream;
}

/// The library's text without the name that it gives the file, which is said anyway.
std::string
withoutName(std::string const& text, std::string const& file) {
   if (text.starts_with(file + ": ")) {
      return text.substr(file.size() + 2);
   }
   // Standard input is named by its descriptor.
   auto const end = text.find(">: ");
   return text.starts_with("<fd:") && end != std::string::npos ? text.substr(end + 3) : text;
}

} // namespace

void
Recording::Close::operator()(gzFile_s* stream) const {
   gzclose(stream);
}

Recording::Recording(std::filesystem::path const& file)
    : file_(file == "-" ? "standard input" : file.string())
    , stream_(file == "-" ? openStandardInput() : gzopen(file_.c_str(), "rb")) {
   if (!stream_) {
      throw RecordingError(file_ + ": cannot be opened: " + std::strerror(errno));
   }
   std::array<char, magic.size()> head;
   std::size_t const size = read(head.data(), head.size());
   if (std::string_view(head.data(), size) != magic) {
      throw RecordingError(file_ + ": is no recording: it does not begin with " + std::string(magic));
   }
   offset_ = magic.size();
}

std::optional<Frame>
Recording::next() {
   std::array<unsigned char, lengthSize + headSize> head;
   std::size_t const size = read(head.data(), head.size());
   if (size == 0) {
      return std::nullopt;
   }
   if (size < head.size()) {
      throw errorAt("the file ends within the frame's head");
   }

   auto const length = littleEndian<std::uint32_t>(head.data());
   if (length < headSize || length - headSize > maximumPayload) {
      throw errorAt("length " + std::to_string(length) + " is outside " + std::to_string(headSize) + " to " +
                    std::to_string(headSize + maximumPayload));
   }
   if (head[4] > static_cast<unsigned char>(FrameKind::note)) {
      throw errorAt("unknown kind " + std::to_string(head[4]));
   }

   Frame frame{.kind = static_cast<FrameKind>(head[4]),
               .tag = head[5],
               .sender = littleEndian<std::uint32_t>(&head[8]),
               .nanoseconds = littleEndian<std::uint64_t>(&head[12]),
               .number = count_ + 1,
               .payload = std::vector<std::byte>(length - headSize)};
   if (read(frame.payload.data(), frame.payload.size()) < frame.payload.size()) {
      throw errorAt("the file ends within the frame's payload of " + std::to_string(length - headSize) +
                    " bytes");
   }
   ++count_;
   offset_ += lengthSize + length;
   return frame;
}

RecordingError
Recording::error(std::size_t frame, std::string const& what) const {
   return RecordingError(file_ + ": frame " + std::to_string(frame) + ": " + what);
}

RecordingError
Recording::errorAt(std::string const& what) const {
   return RecordingError(file_ + ": frame " + std::to_string(count_ + 1) + " at byte " +
                         std::to_string(offset_) + ": " + what);
}

std::size_t
Recording::read(void* target, std::size_t size) {
   int const got = gzread(stream_.get(), target, static_cast<unsigned>(size));
   int code = Z_OK;
   char const* const text = gzerror(stream_.get(), &code);
   if (got < 0 || (static_cast<std::size_t>(got) < size && code != Z_OK && code != Z_STREAM_END)) {
      auto const what = code == Z_ERRNO ? std::strerror(errno) : withoutName(text, file_);
      throw offset_ == 0 ? RecordingError(file_ + ": cannot be read: " + what) : errorAt(what);
   }
   return static_cast<std::size_t>(got);
}

} // namespace L3TunnelAgent
