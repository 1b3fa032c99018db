#include "agent/live/DumpReader.h"

#include "agent/Attributes.h"
#include "agent/MessageReader.h"

#include <cerrno>
#include <linux/netlink.h>

namespace L3TunnelAgent {

namespace {

/// The kernel's error number, negated, which is the first thing in such a message.
int
errorOf(std::span<std::byte const> message) {
   return message.size() < sizeof(nlmsghdr) + sizeof(int) ? EBADMSG
                                                          : -read<int>(message.subspan(sizeof(nlmsghdr)));
}

} // namespace

DumpReader::State
DumpReader::take(std::span<std::byte const> datagram) {
   auto state = State::more;
   bool isOurs = false;
   eachMessage(datagram, [&](std::span<std::byte const> message) {
      auto const header = message.size() < sizeof(nlmsghdr) ? nlmsghdr{} : read<nlmsghdr>(message);
      if (state != State::more || header.nlmsg_seq != sequence_) {
         return;
      }
      isOurs = true;
      isInterrupted_ |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0 || header.nlmsg_type == NLMSG_OVERRUN;
      if (header.nlmsg_type == NLMSG_ERROR || header.nlmsg_type == NLMSG_DONE) {
         error_ = errorOf(message);
         state = error_ != 0 ? State::failed : isInterrupted_ ? State::interrupted : State::done;
      }
   });
   if (isOurs) {
      replies_.emplace_back(datagram.begin(), datagram.end());
   }
   return state;
}

} // namespace L3TunnelAgent
