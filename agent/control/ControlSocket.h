#pragma once

#include "agent/live/Descriptor.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace L3TunnelAgent {

/// Where a running agent listens unless it is told otherwise: "control" in the first folder of
/// $RUNTIME_DIRECTORY, which a service manager sets, or else in /run/l3tunnel-agent.
std::string defaultControlPath();

/// A listening socket in the file system, which nobody but those whom its mode admits can connect to at any
/// time; its file goes with this object.
class ControlSocket {
 public:
   /// Makes the socket. A socket file that a dead agent left behind is replaced.
   /// @param mode permissions of the file, 0 to 0777.
   /// @throws std::runtime_error which names the path, when another agent listens there, the file is no
   /// socket, or it cannot be made.
   ControlSocket(std::string path, mode_t mode);
   ControlSocket(ControlSocket const&) = delete;
   ControlSocket& operator=(ControlSocket const&) = delete;
   ~ControlSocket();

   /// The descriptor, which does not block and is closed when the process starts another program. The caller
   /// closes it from here on; the file still goes with this object.
   int release() { return descriptor_.release(); }

   std::string const& path() const { return path_; }

 private:
   struct File {
      dev_t device{};
      ino_t number{};
      bool operator==(File const&) const = default;
   };

   static std::optional<File> fileAt(std::string const& path);
   void bindAs(mode_t mode);
   void lockIs(int folder) const;
   void deadOneDel();

   std::string path_;
   Descriptor descriptor_;
   std::optional<File> file_; // that this object made
};

/// Connects to the agent that listens there; returns the descriptor, which blocks.
/// @throws std::runtime_error which names the path.
int connectedControl(std::string const& path);

} // namespace L3TunnelAgent
