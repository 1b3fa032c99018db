#include "agent/control/ServiceManager.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fmt/format.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace L3TunnelAgent {

namespace {

std::optional<std::uint64_t>
numberIn(char const* variable) {
   char const* const text = std::getenv(variable);
   if (!text) {
      return std::nullopt;
   }
   std::uint64_t number = 0;
   auto const* const last = text + std::strlen(text);
   auto const [end, error] = std::from_chars(text, last, number);
   return error == std::errc() && end == last ? std::optional(number) : std::nullopt;
}

std::optional<std::chrono::microseconds>
watchdogIntervalOf() {
   // A day: what is longer is no watchdog, and twice that fits every clock.
   constexpr std::uint64_t longest = 24ULL * 3600 * 1000000;
   auto const time = numberIn("WATCHDOG_USEC");
   auto const process = numberIn("WATCHDOG_PID");
   bool const isOurs = !std::getenv("WATCHDOG_PID") || process == static_cast<std::uint64_t>(getpid());
   if (!time || *time < 2 || *time > longest || !isOurs) {
      return std::nullopt;
   }
   return std::chrono::microseconds(*time / 2);
}

/// A socket connected to the address in $NOTIFY_SOCKET; closed without one. A leading @ means an abstract
/// name.
Descriptor
connectedManager() {
   char const* const variable = std::getenv("NOTIFY_SOCKET");
   std::string_view const name = variable ? variable : "";
   sockaddr_un address{};
   if (name.size() < 2 || name.size() >= sizeof address.sun_path ||
       (name.front() != '/' && name.front() != '@')) {
      return {};
   }
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, name.data(), name.size());
   if (name.front() == '@') {
      address.sun_path[0] = '\0';
   }
   // A name in the file system ends with a NUL, an abstract one with its length.
   auto const length = offsetof(sockaddr_un, sun_path) + name.size() + (name.front() == '/' ? 1 : 0);
   Descriptor descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
   if (!descriptor.isOpen()) {
      return {};
   }
   timeval const patience{.tv_sec = 1, .tv_usec = 0};
   setsockopt(descriptor.value(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
   if (connect(descriptor.value(), reinterpret_cast<sockaddr const*>(&address),
               static_cast<socklen_t>(length)) != 0) {
      return {};
   }
   return descriptor;
}

std::uint64_t
monotonicMicroseconds() {
   timespec now{};
   clock_gettime(CLOCK_MONOTONIC, &now);
   return static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

} // namespace

ServiceManager::ServiceManager(asio::io_context& loop) : descriptor_(connectedManager()), timer_(loop) {
   if (isThere()) {
      interval_ = watchdogIntervalOf();
   }
   if (interval_) {
      watch();
   }
}

void
ServiceManager::readyIs(std::string const& status) {
   tell("READY=1\nSTATUS=" + status);
}

void
ServiceManager::reloadingIs() {
   tell(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", monotonicMicroseconds()));
}

void
ServiceManager::stoppingIs() {
   interval_.reset();
   timer_.cancel();
   tell("STOPPING=1");
}

void
ServiceManager::tell(std::string const& state, int flags) const {
   if (isThere()) {
      // The manager may be gone or busy: the service goes on without it.
      [[maybe_unused]] auto const sent =
            send(descriptor_.value(), state.data(), state.size(), MSG_NOSIGNAL | flags);
   }
}

void
ServiceManager::watch() {
   tell("WATCHDOG=1", MSG_DONTWAIT);
   timer_.expires_after(*interval_);
   timer_.async_wait([this, alive = std::weak_ptr(alive_)](asio::error_code const& error) {
      if (!error && !alive.expired() && interval_) {
         watch();
      }
   });
}

} // namespace L3TunnelAgent
