#include "agent/live/NetlinkSocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace L3TunnelAgent {

namespace {

NetlinkError
systemError(std::string const& what) {
   return NetlinkError("rtnetlink: " + what + ": " + std::strerror(errno));
}

} // namespace

Received
DatagramReader::receive(int descriptor) {
   using Kind = Received::Kind;
   sockaddr_nl sender{};
   iovec place{.iov_base = buffer_.data(), .iov_len = buffer_.size()};
   msghdr message{};
   message.msg_name = &sender;
   message.msg_namelen = sizeof sender;
   message.msg_iov = &place;
   message.msg_iovlen = 1;
   // With this flag the length is the datagram's own, also where that did not fit.
   ssize_t const size = recvmsg(descriptor, &message, MSG_DONTWAIT | MSG_TRUNC);
   if (size < 0) {
      if (errno == EAGAIN || errno == EINTR) {
         return {.kind = Kind::nothing};
      }
      if (errno == ENOBUFS) {
         return {.kind = Kind::overrun};
      }
      throw systemError("cannot receive");
   }
   if (message.msg_namelen != sizeof sender || sender.nl_family != AF_NETLINK || sender.nl_pid != 0) {
      return {.kind = Kind::foreign};
   }
   auto const length = static_cast<std::size_t>(size);
   if (length > buffer_.size()) {
      buffer_.resize(length);
      return {.kind = Kind::truncated};
   }
   return {.kind = Kind::datagram, .bytes = std::span(buffer_).first(length)};
}

NetlinkSocket::NetlinkSocket(NetworkNamespace const& where) {
   where.within([&] {
      descriptor_ = Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
   });
   if (!descriptor_.isOpen()) {
      throw systemError("no socket");
   }
   sockaddr_nl const own{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
   if (bind(descriptor_.value(), reinterpret_cast<sockaddr const*>(&own), sizeof own) != 0) {
      throw systemError("the socket cannot be bound");
   }
   // So that a request asks for what it says and nothing more; older kernels know no other way than theirs.
   int const on = 1;
   setsockopt(descriptor_.value(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
}

bool
NetlinkSocket::join(unsigned group) {
   if (setsockopt(descriptor_.value(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) == 0) {
      return true;
   }
   if (errno != EINVAL) {
      throw systemError("announcements of group " + std::to_string(group) + " cannot be heard");
   }
   return false;
}

void
NetlinkSocket::receiveBufferIs(std::size_t bytes) {
   // The kernel doubles the number.
   int const size = static_cast<int>(std::min<std::size_t>(bytes, INT_MAX / 2));
   if (setsockopt(descriptor_.value(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
      setsockopt(descriptor_.value(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
   }
}

Descriptor
NetlinkSocket::duplicate() const {
   Descriptor result(fcntl(descriptor_.value(), F_DUPFD_CLOEXEC, 0));
   if (!result.isOpen()) {
      throw systemError("the socket cannot be watched");
   }
   return result;
}

void
NetlinkSocket::send(std::span<std::byte const> message) {
   sockaddr_nl const kernel{.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
   ssize_t const sent = sendto(descriptor_.value(), message.data(), message.size(), 0,
                               reinterpret_cast<sockaddr const*>(&kernel), sizeof kernel);
   if (sent != static_cast<ssize_t>(message.size())) {
      throw systemError("cannot send");
   }
}

} // namespace L3TunnelAgent
