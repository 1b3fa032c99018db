#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace L3TunnelAgent {

/// A file that lasts as long as this object.
class TemporaryFile {
 public:
   TemporaryFile() {
      std::string name = (std::filesystem::temp_directory_path() / "agent-test-XXXXXX").string();
      int const descriptor = mkstemp(name.data());
      if (descriptor < 0) {
         throw std::runtime_error("no temporary file " + name);
      }
      close(descriptor);
      path_ = name;
   }

   TemporaryFile(TemporaryFile const&) = delete;
   TemporaryFile& operator=(TemporaryFile const&) = delete;
   ~TemporaryFile() { std::filesystem::remove(path_); }

   void write(std::string const& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }

   std::filesystem::path const& path() const { return path_; }

 private:
   std::filesystem::path path_;
};

} // namespace L3TunnelAgent
