#pragma once

#include "agent/control/ChangeFeed.h"
#include "agent/control/ControlClient.h"
#include "agent/control/ControlSocket.h"

#include <asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace L3TunnelAgent {

/// Serves an agent's users over a control socket, from the loop that runs the agent.
///
/// An answer is made in one go, between two other things that the loop does; to read a request and to write
/// an answer never holds the loop up. Clients beyond a number are sent away, and so is who asks while too
/// much waits to be read by others.
class ControlService final : private ControlClient::Owner {
 public:
   struct Settings {
      std::string path{};
      mode_t mode{0600};
      std::size_t mostClients{32};
      std::size_t mostMonitors{16};         ///< of these clients
      std::size_t mostWaiting{64UL << 20U}; ///< bytes of answers that all clients have not read
      ControlClient::Limits limits{};
   };

   /// What was met, counted from the start but for `clients` and `monitors`.
   struct Counters {
      std::uint64_t clients{}; ///< now
      std::uint64_t monitors{};
      std::uint64_t accepted{};
      std::uint64_t requests{};
      std::uint64_t refused{};        ///< clients sent away since there were too many, or too much waited
      std::uint64_t changesLeftOut{}; ///< that monitors were too slow for
   };

   /// Answers a request; throws nothing but std::exception.
   using Respond = std::function<Answer(Request const&)>;

   /// Listens from now on. The loop and the agent must outlive this.
   /// @throws std::runtime_error as ControlSocket does.
   ControlService(asio::io_context& loop, Agent const& agent, Settings settings, Respond respond);
   ControlService(ControlService const&) = delete;
   ControlService& operator=(ControlService const&) = delete;
   ~ControlService() override;

   /// Tells those who follow what has changed of these destinations.
   void changedAre(std::vector<IpAddress> const& addresses);

   /// Sends all clients away and listens no more, so that the loop runs out of work.
   void stop();

   Counters const& counters() const { return counters_; }
   std::string const& path() const { return socket_.path(); }

 private:
   using Client = std::shared_ptr<ControlClient>;

   void accept();
   void accepted(ControlClient::Socket socket);
   void pause();
   std::size_t waiting() const;
   Answer answer(Request const& request);
   void requested(ControlClient& client, Request const& request) override;
   std::string leftOutLine(ChangeForm form, std::size_t count) override;
   void closed(ControlClient& client) override;
   std::vector<Client> followers() const;
   std::string frameOf(Change const& change, ChangeForm form, WallTime time) const;

   Agent const& agent_;
   Settings settings_;
   Respond respond_;
   ControlSocket socket_;
   asio::local::stream_protocol::acceptor acceptor_;
   asio::steady_timer pause_;
   std::map<ControlClient*, Client> clients_;
   ChangeFeed feed_;
   Counters counters_;
   std::shared_ptr<int> alive_ = std::make_shared<int>(); // until this goes, before the last handler may have
};

} // namespace L3TunnelAgent
