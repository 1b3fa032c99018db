#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace L3TunnelAgent {

/// A folder that lasts as long as this object, with a path short enough for a socket in it.
class TemporaryFolder {
 public:
   TemporaryFolder() {
      std::string name = "/tmp/agent-control-XXXXXX";
      if (!mkdtemp(name.data())) {
         throw std::runtime_error("no temporary folder " + name);
      }
      path_ = name;
   }

   TemporaryFolder(TemporaryFolder const&) = delete;
   TemporaryFolder& operator=(TemporaryFolder const&) = delete;
   ~TemporaryFolder() { std::filesystem::remove_all(path_); }

   std::string operator/(std::string const& name) const { return (path_ / name).string(); }

 private:
   std::filesystem::path path_;
};

} // namespace L3TunnelAgent
