#include "agent/control/ControlService.h"

#include <asio/buffer.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

using Kind = ControlFrame::Kind;

Answer
refusal(std::string const& why) {
   return {.text = {}, .exitCode = exitFault, .complaint = why};
}

/// The answer to one that is sent away at once: a new connection has room for it.
void
sendAway(ControlClient::Socket& socket, std::string const& why) {
   auto const bytes = textFrames(Kind::complaint, why) + bytesOf(Kind::end, std::string(1, char(exitFault)));
   asio::error_code ignored;
   socket.non_blocking(true, ignored);
   socket.write_some(asio::buffer(bytes), ignored);
}

} // namespace

ControlService::ControlService(asio::io_context& loop, Agent const& agent, Settings settings, Respond respond)
    : agent_(agent)
    , settings_(std::move(settings))
    , respond_(std::move(respond))
    , socket_(settings_.path, settings_.mode)
    , acceptor_(loop, asio::local::stream_protocol(), socket_.release())
    , pause_(loop)
    , feed_(agent) {
   accept();
}

ControlService::~ControlService() {
   stop();
}

void
ControlService::stop() {
   asio::error_code ignored;
   acceptor_.close(ignored);
   pause_.cancel();
   for (auto clients = clients_; auto const& [address, client] : clients) {
      client->close();
   }
}

void
ControlService::accept() {
   acceptor_.async_accept(
         [this, alive = std::weak_ptr(alive_)](asio::error_code const& error, ControlClient::Socket socket) {
            if (alive.expired() || !acceptor_.is_open()) {
               return;
            }
            if (error) {
               return pause();
            }
            accepted(std::move(socket));
            accept();
         });
}

/// The process has no descriptor left, or the like: to try again at once would turn the loop in circles.
void
ControlService::pause() {
   pause_.expires_after(std::chrono::milliseconds(100));
   pause_.async_wait([this, alive = std::weak_ptr(alive_)](asio::error_code const& error) {
      if (!error && !alive.expired() && acceptor_.is_open()) {
         accept();
      }
   });
}

void
ControlService::accepted(ControlClient::Socket socket) {
   ++counters_.accepted;
   if (clients_.size() >= settings_.mostClients) {
      ++counters_.refused;
      return sendAway(socket, "the agent has too many clients");
   }
   ControlClient::Owner& owner = *this;
   auto const client = std::make_shared<ControlClient>(std::move(socket), settings_.limits, owner);
   clients_.emplace(client.get(), client);
   counters_.clients = clients_.size();
   client->start();
}

std::size_t
ControlService::waiting() const {
   std::size_t sum = 0;
   for (auto const& [address, client] : clients_) {
      sum += client->waiting();
   }
   return sum;
}

Answer
ControlService::answer(Request const& request) {
   if (waiting() > settings_.mostWaiting) {
      ++counters_.refused;
      return refusal("the agent has too much to say to others: ask again later");
   }
   try {
      auto result = respond_(request);
      if (result.following && counters_.monitors >= settings_.mostMonitors) {
         ++counters_.refused;
         return refusal("the agent has too many clients that follow its changes");
      }
      return result;
   } catch (std::exception const& error) {
      return refusal(error.what());
   }
}

void
ControlService::requested(ControlClient& client, Request const& request) {
   ++counters_.requests;
   auto const result = answer(request);
   if (result.following) {
      ++counters_.monitors;
      feed_.start();
   }
   client.answerIs(result);
}

void
ControlService::closed(ControlClient& client) {
   if (client.following() && --counters_.monitors == 0) {
      feed_.stop();
   }
   clients_.erase(&client);
   counters_.clients = clients_.size();
}

std::string
ControlService::leftOutLine(ChangeForm form, std::size_t count) {
   counters_.changesLeftOut += count;
   auto const time = timeText(std::chrono::system_clock::now());
   if (form == ChangeForm::json) {
      return lineText(Json{{"time", time}, {"change", "leftOut"}, {"count", count}});
   }
   return fmt::format("{} {} left out here: they were read too slowly\n", time,
                      counted(count, "change was", "changes were"));
}

std::vector<ControlService::Client>
ControlService::followers() const {
   std::vector<Client> all;
   for (auto const& [address, client] : clients_) {
      if (client->following()) {
         all.push_back(client);
      }
   }
   return all;
}

std::string
ControlService::frameOf(Change const& change, ChangeForm form, WallTime time) const {
   auto const line = form == ChangeForm::json
                           ? lineText(json(change, time, agent_))
                           : text(change, time, Paint(form == ChangeForm::colouredText)) + "\n";
   return bytesOf(Kind::output, line);
}

void
ControlService::changedAre(std::vector<IpAddress> const& addresses) {
   auto const time = std::chrono::system_clock::now();
   auto const clients = followers();
   for (auto const& change : feed_.changes(addresses)) {
      std::map<ChangeForm, std::string> frames;
      for (auto const& client : clients) {
         auto const form = *client->following();
         auto const [frame, isNew] = frames.try_emplace(form);
         if (isNew) {
            frame->second = frameOf(change, form, time);
         }
         client->changeIs(frame->second);
      }
   }
}

} // namespace L3TunnelAgent
