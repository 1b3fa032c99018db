#pragma once

#include "agent/KernelState.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <span>
#include <stdexcept>

namespace L3TunnelAgent {

/// A message of the kernel that cannot be read: the text names the message, the attribute and what is wrong.
///
class MessageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// @return how long a datagram's first message is: all that there is when it is no whole one.
std::size_t messageSize(std::span<std::byte const> datagram);

/// Applies every routing message of one datagram to a state: replies to a request for the kernel's state and
/// announcements of changes alike. Messages about anything but links, addresses, neighbours, forwarding
/// entries, next hops, routes, rules and settings are passed over.
/// @param datagram what one receive call returned, at any alignment.
/// @throws MessageError when a message or one of its attributes is malformed, or carries an error of the
/// kernel that does not mean that it has none of a kind; the messages before it are applied then, it and
/// those behind it are not.
void applyDatagram(KernelState& state, std::span<std::byte const> datagram);

/// Applies a reply to a request for all of one kind, as above.
/// @param tag what recordings know the kind by.
void applyReply(KernelState& state, std::uint8_t tag, std::span<std::byte const> datagram);

/// Calls visit(message) for each message of a datagram, its header included, in order. What is no whole
/// message is the last one.
template <typename Visit>
void
eachMessage(std::span<std::byte const> datagram, Visit const& visit) {
   while (!datagram.empty()) {
      auto const size = messageSize(datagram);
      visit(datagram.first(size));
      datagram = datagram.subspan(std::min<std::size_t>((size + 3) / 4 * 4, datagram.size()));
   }
}

/// @return whether a kernel that refuses to tell its state with that error number has none of what it was
/// asked for, which is as good as an empty answer.
bool meansNone(int error);

/// @return whether a kernel's reply says that what it tells of changed while it did: something may be told
/// twice, or not at all.
bool isInterrupted(std::span<std::byte const> datagram);

/// @return the state that the dump replies of a recording hold, no changes noted; its announcements are not
/// applied.
/// @throws RecordingError when the recording or a message in it cannot be read.
KernelState recordedState(std::filesystem::path const& recording);

} // namespace L3TunnelAgent
