#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct gzFile_s;

namespace L3TunnelAgent {

/// A recording that cannot be read: the text names the file, where in it, and what is wrong there.
class RecordingError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

enum class FrameKind : std::uint8_t {
   datagram = 0,  // what the kernel announced
   marker = 1,    // JSON text of the recorder
   dumpReply = 2, // what the kernel answered to a request for its state
   note = 3,      // text of the recorder, such as a lost datagram
};

/// What recordings know dumps of rules by.
constexpr std::uint8_t rulesTag = 8;
constexpr std::uint8_t rulesTagV6 = 10;

struct Frame {
   FrameKind kind{};
   std::uint8_t tag{};          // of a dump reply: which dump; otherwise 0
   std::uint32_t sender{};      // netlink port id, 0 for the kernel
   std::uint64_t nanoseconds{}; // monotonic clock of the recorded machine
   std::size_t number{};        // in its recording, from 1
   std::vector<std::byte> payload{};
};

/// Reads a recorded fabric frame by frame, from a plain or a gzip file.
class Recording {
 public:
   /// Opens the file and reads its head.
   /// @param file "-" is standard input.
   /// @throws RecordingError when the file cannot be read or is no recording.
   explicit Recording(std::filesystem::path const& file);

   /// @return the next frame; nothing at the end of the file.
   /// @throws RecordingError when the file ends within a frame, or the frame is none. The recording is of no
   /// further use then.
   std::optional<Frame> next();

   /// @return how many frames were read, which is the number of the one read last, from 1.
   std::size_t count() const { return count_; }

   /// @return an error that names this file and the frame read last.
   RecordingError error(std::string const& what) const { return error(count_, what); }

   /// @return an error that names this file and that frame.
   RecordingError error(std::size_t frame, std::string const& what) const;

 private:
   struct Close {
      void operator()(gzFile_s* stream) const;
   };

   std::size_t read(void* target, std::size_t size);
   RecordingError errorAt(std::string const& what) const;

   std::string file_;
   std::unique_ptr<gzFile_s, Close> stream_;
   std::size_t count_{};
   std::uint64_t offset_{}; // of the current frame, in the uncompressed data
};

} // namespace L3TunnelAgent
