#pragma once

#include "agent/control/Deadline.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace L3TunnelAgent {

/// Serves metrics over HTTP at this machine's own IPv4 address 127.0.0.1, from the loop that runs the agent.
class MetricsServer {
 public:
   struct Settings {
      std::uint16_t port{}; ///< 0 takes one that is free
      std::size_t mostClients{16};
      std::size_t largestHead{8192};             ///< of a request, in bytes
      std::chrono::milliseconds patience{5000};  ///< for a request to come, and for its answer to be read
      std::chrono::milliseconds freshness{1000}; ///< for so long what was made is served again
   };

   /// Listens from now on. `content` makes the metrics, and throws nothing but std::exception.
   /// @throws std::runtime_error which names the port, when it cannot be had.
   MetricsServer(asio::io_context& loop, Settings settings, std::function<std::string()> content);
   MetricsServer(MetricsServer const&) = delete;
   MetricsServer& operator=(MetricsServer const&) = delete;
   ~MetricsServer();

   /// Listens no more and sends all clients away, so that the loop runs out of work.
   void stop();

   std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

 private:
   class Client;

   void accept();
   void accepted(asio::ip::tcp::socket socket);
   std::string answer(std::string const& head);
   std::string const& content();

   Settings settings_;
   std::function<std::string()> content_;
   std::string made_;
   std::optional<std::chrono::steady_clock::time_point> madeAt_;
   asio::ip::tcp::acceptor acceptor_;
   asio::steady_timer pause_;
   std::set<std::shared_ptr<Client>> clients_;
   std::shared_ptr<int> alive_ = std::make_shared<int>(); // until this goes, before the last handler may have
};

} // namespace L3TunnelAgent
