#include "agent/MessageReader.h"

#include "agent/Attributes.h"
#include "agent/Messages.h"
#include "agent/Recording.h"

#include <cerrno>
#include <cstring>
#include <linux/rtnetlink.h>
#include <vector>

namespace L3TunnelAgent {

namespace {

constexpr int mostError = 4096; // the kernel's own numbers are below

/// @param code negative, as the kernel has it; anything when the message lies.
std::string
errorText(int code) {
   auto const number = "error " + std::to_string(code);
   return code < 0 && code > -mostError ? std::string(std::strerror(-code)) + " (" + number + ")" : number;
}

/// Errors, and dumps that the kernel broke off, come with a negative error number.
void
checkControl(nlmsghdr const* header) {
   if (header->nlmsg_type == NLMSG_OVERRUN) {
      throw MessageError("NLMSG_OVERRUN: the kernel lost data");
   }
   if (header->nlmsg_type != NLMSG_ERROR && header->nlmsg_type != NLMSG_DONE) {
      return;
   }
   char const* const name = header->nlmsg_type == NLMSG_ERROR ? "NLMSG_ERROR" : "NLMSG_DONE";
   int const code = fixedPart<int>(name, header);
   if (code != 0 && !(code > -mostError && meansNone(-code))) {
      throw MessageError(std::string(name) + ": the kernel answered with " + errorText(code));
   }
}

/// The library compares lengths as signed numbers, so one with the highest bit set would pass it.
bool
fits(nlmsghdr const* header, int left) {
   return mnl_nlmsg_ok(header, left) && header->nlmsg_len <= static_cast<unsigned>(left);
}

void
applyMessage(KernelState& state, nlmsghdr const* header) {
   switch (header->nlmsg_type) {
   case RTM_NEWLINK:
   case RTM_DELLINK:
      return applyLink(state, header);
   case RTM_NEWADDR:
   case RTM_DELADDR:
      return applyAddress(state, header);
   case RTM_NEWNEIGH:
   case RTM_DELNEIGH:
      return applyNeighbour(state, header);
   case RTM_NEWNEXTHOP:
   case RTM_DELNEXTHOP:
      return applyNextHop(state, header);
   case RTM_NEWROUTE:
   case RTM_DELROUTE:
      return applyRoute(state, header);
   case RTM_NEWRULE:
   case RTM_DELRULE:
      return applyRule(state, header);
   case RTM_NEWNETCONF:
      return applySettings(state, header);
   default:
      return checkControl(header);
   }
}

} // namespace

std::string
messageName(std::uint16_t type) {
   switch (type) {
   case RTM_NEWLINK:
      return "RTM_NEWLINK";
   case RTM_DELLINK:
      return "RTM_DELLINK";
   case RTM_NEWADDR:
      return "RTM_NEWADDR";
   case RTM_DELADDR:
      return "RTM_DELADDR";
   case RTM_NEWNEIGH:
      return "RTM_NEWNEIGH";
   case RTM_DELNEIGH:
      return "RTM_DELNEIGH";
   case RTM_NEWNEXTHOP:
      return "RTM_NEWNEXTHOP";
   case RTM_DELNEXTHOP:
      return "RTM_DELNEXTHOP";
   case RTM_NEWROUTE:
      return "RTM_NEWROUTE";
   case RTM_DELROUTE:
      return "RTM_DELROUTE";
   case RTM_NEWRULE:
      return "RTM_NEWRULE";
   case RTM_DELRULE:
      return "RTM_DELRULE";
   case RTM_NEWNETCONF:
      return "RTM_NEWNETCONF";
   default:
      return "message " + std::to_string(type);
   }
}

std::size_t
messageSize(std::span<std::byte const> datagram) {
   if (datagram.size() < sizeof(nlmsghdr)) {
      return datagram.size();
   }
   std::size_t const length = read<nlmsghdr>(datagram).nlmsg_len;
   return length < sizeof(nlmsghdr) || length > datagram.size() ? datagram.size() : length;
}

bool
meansNone(int error) {
   return error == EOPNOTSUPP || error == EAFNOSUPPORT || error == EPROTONOSUPPORT;
}

bool
isInterrupted(std::span<std::byte const> datagram) {
   bool result = false;
   eachMessage(datagram, [&](std::span<std::byte const> message) {
      result |= message.size() >= sizeof(nlmsghdr) &&
                (read<nlmsghdr>(message).nlmsg_flags & NLM_F_DUMP_INTR) != 0;
   });
   return result;
}

void
applyDatagram(KernelState& state, std::span<std::byte const> datagram) {
   if (datagram.empty()) {
      return;
   }
   // Headers and attributes are read in place, which needs the alignment that they have in the kernel's
   // buffer.
   std::vector<std::uint32_t> aligned((datagram.size() + 3) / 4);
   std::memcpy(aligned.data(), datagram.data(), datagram.size());

   auto const* header = reinterpret_cast<nlmsghdr const*>(aligned.data());
   int left = static_cast<int>(datagram.size());
   while (fits(header, left)) {
      applyMessage(state, header);
      header = mnl_nlmsg_next(header, &left);
   }
   if (left > 0) {
      throw MessageError(left < static_cast<int>(sizeof(nlmsghdr))
                               ? std::to_string(left) + " bytes at the end hold no message"
                               : messageName(header->nlmsg_type) + ": its length " +
                                       std::to_string(header->nlmsg_len) + " does not fit the " +
                                       std::to_string(left) + " bytes left");
   }
}

void
applyReply(KernelState& state, std::uint8_t tag, std::span<std::byte const> datagram) {
   applyDatagram(state, datagram);
   if (tag != rulesTag && tag != rulesTagV6) {
      return;
   }
   eachMessage(datagram, [&](std::span<std::byte const> message) {
      if (message.size() >= sizeof(nlmsghdr) && read<nlmsghdr>(message).nlmsg_type == NLMSG_DONE) {
         state.rulesAreDumped(tag == rulesTag ? IpAddress::Family::v4 : IpAddress::Family::v6);
      }
   });
}

KernelState
recordedState(std::filesystem::path const& file) {
   KernelState state;
   Recording recording(file);
   while (auto const frame = recording.next()) {
      if (frame->kind != FrameKind::dumpReply) {
         continue;
      }
      try {
         applyReply(state, frame->tag, frame->payload);
      } catch (MessageError const& e) {
         throw recording.error(e.what());
      }
   }
   state.takeChanges();
   return state;
}

} // namespace L3TunnelAgent
