#pragma once

#include "agent/tests/MessageBuilder.h"
#include "agent/tests/live/Namespace.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace L3TunnelAgent::Live {

/// Tells a namespace's kernel what to do, many messages at a time.
class Injector {
 public:
   explicit Injector(Namespace const& space);
   Injector(Injector const&) = delete;
   Injector& operator=(Injector const&) = delete;
   ~Injector();

   /// A message that makes or replaces something.
   template <typename Fixed>
   static MessageBuilder making(std::uint16_t type, Fixed const& fixed) {
      return {type, fixed, NLM_F_REQUEST | NLM_F_CREATE | NLM_F_REPLACE};
   }

   /// A message that changes or deletes something that is there.
   template <typename Fixed>
   static MessageBuilder changing(std::uint16_t type, Fixed const& fixed) {
      return {type, fixed, NLM_F_REQUEST};
   }

   /// Takes a message; it goes out with others, at flush() at the latest.
   void put(MessageBuilder const& message);

   /// Sends what it has; the kernel has done it all when this returns.
   /// Throws std::runtime_error when the messages cannot be sent.
   void flush();

   std::size_t sent() const { return sent_; } ///< messages
   std::size_t refused() const {
      return refused_;
   }                                            ///< of these, those that the kernel answered with an error
   int lastError() const { return lastError_; } ///< of the newest of these, as errno has it

 private:
   void readErrors();

   int socket_;
   std::vector<std::byte> pending_;
   std::size_t sent_{};
   std::size_t refused_{};
   int lastError_{};
};

} // namespace L3TunnelAgent::Live
