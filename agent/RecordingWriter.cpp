#include "agent/RecordingWriter.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

namespace L3TunnelAgent {

namespace {

constexpr std::string_view magic = "RNLCAP01";
constexpr std::size_t headSize = 16; // counted by the length, as the payload is
constexpr mode_t mode = 0644;

template <typename T>
void
append(std::string& bytes, T value) {
   for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes.push_back(static_cast<char>(value >> 8 * i));
   }
}

int
openFile(std::filesystem::path const& file, RecordingWriter::Existing existing) {
   if (file == "-") {
      return dup(STDOUT_FILENO);
   }
   int const further = existing == RecordingWriter::Existing::replaced ? O_TRUNC : O_EXCL;
   return open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | further, mode);
}

gzFile
openStream(std::filesystem::path const& file, RecordingWriter::Existing existing) {
   int const descriptor = openFile(file, existing);
   // "T" is without compression.
   gzFile const stream =
         descriptor < 0 ? nullptr : gzdopen(descriptor, file.extension() == ".gz" ? "wb" : "wbT");
   if (!stream && descriptor >= 0) {
      close(descriptor);
   }
   return stream;
}

} // namespace

void
RecordingWriter::Close::operator()(gzFile_s* stream) const {
   gzclose(stream);
}

RecordingWriter::RecordingWriter(std::filesystem::path const& file, Existing existing)
    : file_(file == "-" ? "standard output" : file.string()), stream_(openStream(file, existing)) {
   if (!stream_) {
      throw WriteError(file_ + ": cannot be made: " + std::strerror(errno));
   }
   write(magic);
}

void
RecordingWriter::add(Frame const& frame) {
   std::string head;
   append(head, static_cast<std::uint32_t>(headSize + frame.payload.size()));
   append(head, static_cast<std::uint8_t>(frame.kind));
   append(head, frame.tag);
   append(head, std::uint16_t{0});
   append(head, frame.sender);
   append(head, frame.nanoseconds);
   write(head);
   write({reinterpret_cast<char const*>(frame.payload.data()), frame.payload.size()});
}

void
RecordingWriter::add(FrameKind kind, std::uint64_t nanoseconds, std::string_view text) {
   auto const* const begin = reinterpret_cast<std::byte const*>(text.data());
   add({.kind = kind, .nanoseconds = nanoseconds, .payload = {begin, begin + text.size()}});
}

void
RecordingWriter::write(std::string_view bytes) {
   errno = 0;
   if (!bytes.empty() && gzwrite(stream_.get(), bytes.data(), static_cast<unsigned>(bytes.size())) == 0) {
      throw error();
   }
}

void
RecordingWriter::flush() {
   errno = 0;
   if (gzflush(stream_.get(), Z_SYNC_FLUSH) != Z_OK) {
      throw error();
   }
}

void
RecordingWriter::close() {
   errno = 0;
   if (stream_ && gzclose(stream_.release()) != Z_OK) {
      throw WriteError(file_ + ": cannot be written: " + (errno ? std::strerror(errno) : "unknown error"));
   }
}

WriteError
RecordingWriter::error() const {
   int const systemError = errno;
   int code = Z_OK;
   char const* const text = gzerror(stream_.get(), &code);
   bool const isSystem = code == Z_ERRNO && systemError != 0;
   return WriteError(file_ + ": cannot be written: " + (isSystem ? std::strerror(systemError) : text));
}

} // namespace L3TunnelAgent
