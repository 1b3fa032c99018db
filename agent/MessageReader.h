#pragma once

#include "agent/KernelState.h"

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

/// Applies every routing message of one datagram to a state: replies to a request for the kernel's state and
/// announcements of changes alike. Messages about anything but links, neighbours, forwarding entries, next
/// hops, IPv4 routes and IPv4 rules are passed over.
/// @param datagram what one receive call returned, at any alignment.
/// @throws MessageError when a message or one of its attributes is malformed, or carries an error of the
/// kernel; the messages before it are applied then, it and those behind it are not.
void applyDatagram(KernelState& state, std::span<std::byte const> datagram);

/// @return the state that the dump replies of a recording hold; its announcements are not applied.
/// @throws RecordingError when the recording or a message in it cannot be read.
KernelState recordedState(std::filesystem::path const& recording);

} // namespace L3TunnelAgent
