#include "agent/control/ControlSocket.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace L3TunnelAgent {

namespace {

constexpr int backlog = 32;

std::runtime_error
fault(std::string const& path, std::string const& what) {
   return std::runtime_error(fmt::format("control socket {}: {}", path, what));
}

std::runtime_error
faultOfCall(std::string const& path) {
   return fault(path, std::strerror(errno));
}

sockaddr_un
addressOf(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (path.empty() || path.size() >= sizeof address.sun_path) {
      throw fault(path, fmt::format("the path has 1 to {} bytes", sizeof address.sun_path - 1));
   }
   std::memcpy(address.sun_path, path.data(), path.size());
   return address;
}

int
connected(std::string const& path, int flags) {
   auto const address = addressOf(path);
   Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
   if (descriptor.value() < 0 ||
       connect(descriptor.value(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
      return -1;
   }
   return descriptor.release();
}

} // namespace

std::string
defaultControlPath() {
   constexpr char const* fallback = "/run/l3tunnel-agent";
   char const* const folders = std::getenv("RUNTIME_DIRECTORY");
   std::string folder = folders && *folders ? folders : fallback;
   folder.resize(std::min(folder.find(':'), folder.size()));
   return folder + "/control";
}

// Who may read the folder may lock it, too, and keep it so.
void
ControlSocket::lockIs(int folder) const {
   constexpr auto pause = std::chrono::milliseconds(20);
   for (int tries = 100; flock(folder, LOCK_EX | LOCK_NB) != 0; --tries) {
      if (errno != EWOULDBLOCK && errno != EINTR) {
         throw faultOfCall(path_);
      }
      if (tries == 0) {
         throw fault(path_, "another process keeps its folder locked");
      }
      std::this_thread::sleep_for(pause);
   }
}

ControlSocket::ControlSocket(std::string path, mode_t mode) : path_(std::move(path)) {
   addressOf(path_);
   auto const folder = std::filesystem::absolute(path_).parent_path();
   // Two agents that start at the same time must not both take the file for a dead one's.
   Descriptor const lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
   if (!lock.isOpen()) {
      throw faultOfCall(path_);
   }
   lockIs(lock.value());
   deadOneDel();
   descriptor_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
   if (!descriptor_.isOpen()) {
      throw faultOfCall(path_);
   }
   bindAs(mode);
   file_ = fileAt(path_);
   if (listen(descriptor_.value(), backlog) != 0) {
      auto const error = faultOfCall(path_);
      unlink(path_.c_str());
      throw error;
   }
}

ControlSocket::~ControlSocket() {
   // Another agent may have its own file there by now.
   if (file_ && fileAt(path_) == file_) {
      unlink(path_.c_str());
   }
}

std::optional<ControlSocket::File>
ControlSocket::fileAt(std::string const& path) {
   struct stat status {};
   if (lstat(path.c_str(), &status) != 0) {
      return std::nullopt;
   }
   return File{.device = status.st_dev, .number = status.st_ino};
}

void
ControlSocket::bindAs(mode_t mode) {
   auto const address = addressOf(path_);
   // The file has its mode from its first moment.
   auto const before = umask(~mode & 0777);
   int const result = bind(descriptor_.value(), reinterpret_cast<sockaddr const*>(&address), sizeof address);
   umask(before);
   if (result != 0) {
      throw faultOfCall(path_);
   }
}

void
ControlSocket::deadOneDel() {
   struct stat status {};
   if (lstat(path_.c_str(), &status) != 0) {
      return;
   }
   if (!S_ISSOCK(status.st_mode)) {
      throw fault(path_, "is there, and is no socket");
   }
   int const other = connected(path_, SOCK_NONBLOCK);
   if (other >= 0) {
      close(other);
   }
   // A full queue is somebody's, too.
   if (other >= 0 || errno != ECONNREFUSED) {
      throw fault(path_,
                  other >= 0 || errno == EAGAIN ? "another agent listens there" : std::strerror(errno));
   }
   if (unlink(path_.c_str()) != 0) {
      throw faultOfCall(path_);
   }
}

int
connectedControl(std::string const& path) {
   int const descriptor = connected(path, 0);
   if (descriptor < 0) {
      bool const isNobody = errno == ENOENT || errno == ECONNREFUSED;
      throw fault(path, fmt::format("{}{}", std::strerror(errno), isNobody ? ": no agent runs there" : ""));
   }
   return descriptor;
}

} // namespace L3TunnelAgent
