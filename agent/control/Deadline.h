#pragma once

#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <utility>

namespace L3TunnelAgent {

/// A time by which something must have happened.
class Deadline {
 public:
   template <class Executor>
   explicit Deadline(Executor&& executor) : timer_(std::forward<Executor>(executor)) {}

   /// From now on the deadline is that far ahead; `passed` is called with the owner once it has passed,
   /// unless it is put off, called off, or the owner has gone.
   template <class Owner>
   void in(std::chrono::milliseconds time, std::shared_ptr<Owner> const& owner, void (Owner::*passed)()) {
      timer_.expires_after(time);
      timer_.async_wait([this, weak = std::weak_ptr(owner), passed](asio::error_code const& error) {
         auto const held = weak.lock();
         // What was put off may have passed already, and wait for its turn in the loop.
         if (!error && held && timer_.expiry() <= std::chrono::steady_clock::now()) {
            ((*held).*passed)();
         }
      });
   }

   void off() { timer_.expires_at(asio::steady_timer::time_point::max()); }

 private:
   asio::steady_timer timer_;
};

} // namespace L3TunnelAgent
