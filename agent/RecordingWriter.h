#pragma once

#include "agent/Recording.h"

#include <string_view>

namespace L3TunnelAgent {

/// A file that cannot be written: the text names it, and what the system said.
class WriteError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// Writes a recording frame by frame, compressed when the file's name ends in .gz.
class RecordingWriter {
 public:
   enum class Existing : std::uint8_t { kept, replaced };

   /// Makes the file and writes its head.
   /// @param file "-" is standard output.
   /// @param existing whether a file that is there is replaced, or an error.
   /// @throws WriteError when it cannot be made.
   RecordingWriter(std::filesystem::path const& file, Existing existing);

   /// @param frame its number is of no matter.
   /// @throws WriteError when it cannot be written.
   void add(Frame const& frame);

   /// Adds a marker or a note.
   void add(FrameKind kind, std::uint64_t nanoseconds, std::string_view text);

   /// Has what was added so far in the file, whatever becomes of this process.
   /// @throws WriteError when it cannot be written.
   void flush();

   /// Ends the file, to which nothing may be added any more. Without this, what was added last may not be in
   /// it.
   /// @throws WriteError when it cannot be written to its end.
   void close();

 private:
   struct Close {
      void operator()(gzFile_s* stream) const;
   };

   void write(std::string_view bytes);
   WriteError error() const;

   std::string file_;
   std::unique_ptr<gzFile_s, Close> stream_;
};

} // namespace L3TunnelAgent
