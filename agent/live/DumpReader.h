#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace L3TunnelAgent {

/// Gathers the kernel's replies to one request for its state.
class DumpReader {
 public:
   enum class State : std::uint8_t {
      more,        // replies are to come
      done,        // that was all
      interrupted, // that was all, but it changed meanwhile, so that something may be there twice or not at
                   // all
      failed,      // the kernel refused it, or broke it off
   };

   /// @param sequence number of the request.
   explicit DumpReader(std::uint32_t sequence) : sequence_(sequence) {}

   /// Takes a datagram; one that answers another request is passed over.
   State take(std::span<std::byte const> datagram);

   /// @return why it failed: an error number.
   int error() const { return error_; }

   /// @return the datagrams so far, each as it was received.
   std::vector<std::vector<std::byte>> const& replies() const { return replies_; }

 private:
   std::uint32_t sequence_;
   bool isInterrupted_{};
   int error_{};
   std::vector<std::vector<std::byte>> replies_;
};

} // namespace L3TunnelAgent
