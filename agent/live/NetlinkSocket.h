#pragma once

#include "agent/live/Descriptor.h"
#include "agent/live/NetworkNamespace.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// The kernel cannot be asked: the text says what was tried, and what the system said.
class NetlinkError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// What one attempt to receive came to.
struct Received {
   enum class Kind : std::uint8_t {
      nothing,   // now
      datagram,  // of the kernel
      foreign,   // a datagram of somebody else
      overrun,   // datagrams were lost for want of room
      truncated, // a datagram was lost since the reader's buffer was too small for it; it is larger now
   };

   Kind kind{};
   std::span<std::byte const> bytes{}; // of a datagram, until the next attempt
};

/// Reads datagrams from a socket that never blocks.
class DatagramReader {
 public:
   static constexpr std::size_t usualSize = 64 * 1024;

   explicit DatagramReader(std::size_t size = usualSize) : buffer_(size) {}

   /// @throws NetlinkError when the socket is of no use any more.
   Received receive(int descriptor);

 private:
   std::vector<std::byte> buffer_;
};

/// A socket to a kernel's routing messages, which never blocks.
class NetlinkSocket {
 public:
   /// @throws NetlinkError when it cannot be made.
   explicit NetlinkSocket(NetworkNamespace const& where);

   /// Hears what is announced to a group (RTNLGRP_*) from here on.
   /// @return whether the kernel has that group.
   bool join(unsigned group);

   /// Asks for room for what was not received yet, in bytes; without the privilege for it, for as much as the
   /// system grants anyone.
   void receiveBufferIs(std::size_t bytes);

   /// @throws NetlinkError when the kernel does not take it.
   void send(std::span<std::byte const> message);

   int descriptor() const { return descriptor_.value(); }

   /// @return another descriptor of this socket, for somebody who closes what is watched.
   /// @throws NetlinkError when the process may open no more.
   Descriptor duplicate() const;

 private:
   Descriptor descriptor_;
};

} // namespace L3TunnelAgent
