#include "agent/live/NetworkNamespace.h"

#include "agent/live/NetlinkSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

namespace L3TunnelAgent {

namespace {

constexpr char const* folder = "/var/run/netns/";
constexpr char const* ownFile = "/proc/self/ns/net";

Descriptor
opened(std::string const& name, std::string const& file) {
   Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
   if (!descriptor.isOpen()) {
      throw NetlinkError("network namespace " + name + ": " + file + ": " + std::strerror(errno));
   }
   return descriptor;
}

} // namespace

NetworkNamespace::NetworkNamespace(std::optional<std::string> const& name) {
   if (!name) {
      return;
   }
   name_ = *name;
   if (name_.empty() || name_ == "." || name_ == ".." || name_.find('/') != std::string::npos) {
      throw NetlinkError("network namespace " + name_ + ": is no name of one");
   }
   other_ = opened(name_, folder + name_);
   own_ = opened(name_, ownFile);
}

NetworkNamespace::Standing
NetworkNamespace::standing() const {
   if (!other_.isOpen()) {
      return Standing::same;
   }
   struct stat opened {};
   struct stat named {};
   if (stat((folder + name_).c_str(), &named) != 0) {
      return Standing::gone;
   }
   bool const isSame = fstat(other_.value(), &opened) == 0 && opened.st_dev == named.st_dev &&
                       opened.st_ino == named.st_ino;
   return isSame ? Standing::same : Standing::another;
}

void
NetworkNamespace::within(std::function<void()> const& make) const {
   auto const enter = [&](Descriptor const& descriptor, char const* what) {
      if (descriptor.isOpen() && setns(descriptor.value(), CLONE_NEWNET) != 0) {
         throw NetlinkError("network namespace " + name_ + ": cannot be " + what + ": " +
                            std::strerror(errno));
      }
   };
   enter(other_, "entered");
   try {
      make();
   } catch (...) {
      enter(own_, "left");
      throw;
   }
   enter(own_, "left");
}

} // namespace L3TunnelAgent
