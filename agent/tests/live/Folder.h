#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace L3TunnelAgent::Live {

/// A folder that lasts as long as this object, open to routers that gave up root's rights.
class Folder {
 public:
   Folder() {
      std::string name = (std::filesystem::temp_directory_path() / "agent-live-test-XXXXXX").string();
      if (!mkdtemp(name.data())) {
         throw std::runtime_error("no temporary folder " + name);
      }
      path_ = name;
      std::filesystem::permissions(path_, std::filesystem::perms(0755));
   }

   Folder(Folder const&) = delete;
   Folder& operator=(Folder const&) = delete;
   ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path_, ignored);
   }

   std::filesystem::path const& path() const { return path_; }

 private:
   std::filesystem::path path_;
};

} // namespace L3TunnelAgent::Live
