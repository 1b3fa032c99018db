#pragma once

#include "agent/live/Descriptor.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace L3TunnelAgent {

/// Tells the service manager that started this process how it is, by datagrams to the socket that
/// $NOTIFY_SOCKET names. Without that, it does nothing. What cannot be sent is not sent.
class ServiceManager {
 public:
   /// Reads the environment. `loop` must outlive this.
   explicit ServiceManager(asio::io_context& loop);
   ServiceManager(ServiceManager const&) = delete;
   ServiceManager& operator=(ServiceManager const&) = delete;

   /// The service is up, or up again after reloadingIs(). `status` is a line for a person.
   void readyIs(std::string const& status);

   /// Reads anew what it was told before.
   void reloadingIs();

   void stoppingIs();

   /// Whether the manager listens.
   bool isThere() const { return descriptor_.isOpen(); }

   /// How often the manager is told that the loop still turns: half the time in $WATCHDOG_USEC. Nothing when
   /// it does not ask for that, or asks another process ($WATCHDOG_PID).
   std::optional<std::chrono::microseconds> watchdogInterval() const { return interval_; }

 private:
   void tell(std::string const& state, int flags = 0) const;
   void watch();

   Descriptor descriptor_;
   std::optional<std::chrono::microseconds> interval_;
   asio::steady_timer timer_;
   std::shared_ptr<int> alive_ = std::make_shared<int>(); // until this goes, before the last handler may have
};

} // namespace L3TunnelAgent
