#include "agent/tests/live/Namespace.h"

#include "agent/tests/live/Process.h"

#include <cstring>
#include <fcntl.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace L3TunnelAgent::Live {

namespace {

/// Enters a network namespace for as long as it lives.
class Visit {
 public:
   explicit Visit(std::string const& name) : home_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
      int const there = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
      int const failed = there < 0 || home_ < 0 || setns(there, CLONE_NEWNET) != 0;
      close(there);
      if (failed) {
         throw std::runtime_error("namespace " + name + ": " + std::strerror(errno));
      }
   }
   Visit(Visit const&) = delete;
   Visit& operator=(Visit const&) = delete;
   ~Visit() {
      setns(home_, CLONE_NEWNET);
      close(home_);
   }

 private:
   int home_;
};

} // namespace

Namespace::Namespace(std::string name) : name_(std::move(name)) {
   outputOf({"ip", "netns", "add", name_});
   ip("link set lo up");
}

Namespace::~Namespace() {
   try {
      outputOf({"ip", "netns", "delete", name_});
   } catch (std::exception const&) {
      // It goes with the sandbox.
   }
}

void
Namespace::ip(std::string const& lines) const {
   outputOf({"ip", "-batch", "-"}, name_, lines + "\n");
}

void
Namespace::bridge(std::string const& lines) const {
   outputOf({"bridge", "-batch", "-"}, name_, lines + "\n");
}

void
Namespace::sysctl(std::string const& key, std::string const& value) const {
   std::string path = key;
   for (char& each : path) {
      each = each == '.' ? '/' : each;
   }
   outputOf({"tee", "/proc/sys/" + path}, name_, value);
}

int
Namespace::openSocket(int family, int type, int protocol) const {
   Visit const visit(name_);
   int const result = socket(family, type | SOCK_CLOEXEC, protocol);
   if (result < 0) {
      throw std::runtime_error(std::string("socket: ") + std::strerror(errno));
   }
   return result;
}

int
Namespace::openRouteSocket() const {
   return openSocket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
}

int
Namespace::deviceIndex(std::string const& device) const {
   Visit const visit(name_);
   auto const index = if_nametoindex(device.c_str());
   return index ? static_cast<int>(index) : throw std::runtime_error("no device " + device);
}

bool
isSupported(std::string const& ipLines, std::string const& bridgeLines) {
   Namespace const space("probe");
   try {
      space.ip("link add port type veth peer name peer\n" + ipLines);
      space.bridge(bridgeLines);
   } catch (std::exception const&) {
      return false;
   }
   return true;
}

} // namespace L3TunnelAgent::Live
