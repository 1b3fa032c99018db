#include "agent/tests/live/Injector.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace L3TunnelAgent::Live {

namespace {

/// Bytes that go out at once: few enough for the answers, should all be errors, to fit into the socket's
/// buffer.
constexpr std::size_t batchSize = 16384;

} // namespace

Injector::Injector(Namespace const& space) : socket_(space.openRouteSocket()) {
   int const size = 1 << 20;
   setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
}

Injector::~Injector() {
   close(socket_);
}

void
Injector::put(MessageBuilder const& message) {
   auto const bytes = message.datagram();
   pending_.insert(pending_.end(), bytes.begin(), bytes.end());
   ++sent_;
   if (pending_.size() > batchSize) {
      flush();
   }
}

void
Injector::flush() {
   if (pending_.empty()) {
      return;
   }
   if (send(socket_, pending_.data(), pending_.size(), 0) < 0) {
      throw std::runtime_error(std::string("messages to the kernel: ") + std::strerror(errno));
   }
   pending_.clear();
   readErrors();
}

void
Injector::readErrors() {
   alignas(nlmsghdr) std::array<char, 65536> buffer{};
   for (;;) {
      auto const size = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (size <= 0) {
         return;
      }
      int left = static_cast<int>(size);
      for (auto const* head = reinterpret_cast<nlmsghdr const*>(buffer.data()); mnl_nlmsg_ok(head, left);
           head = mnl_nlmsg_next(head, &left)) {
         if (head->nlmsg_type == NLMSG_ERROR) {
            lastError_ = -static_cast<nlmsgerr const*>(mnl_nlmsg_get_payload(head))->error;
            refused_ += lastError_ != 0;
         }
      }
   }
}

} // namespace L3TunnelAgent::Live
