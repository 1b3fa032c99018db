#include "agent/control/MetricsServer.h"

#include "agent/control/HttpRequest.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>
#include <stdexcept>
#include <utility>

namespace L3TunnelAgent {

using asio::ip::tcp;

/// Reads one request, answers it and reads on until the other end has closed: to close first would take an
/// answer away that is not read yet, when more has come than was asked for.
class MetricsServer::Client : public std::enable_shared_from_this<Client> {
 public:
   Client(tcp::socket socket, MetricsServer& server)
       : socket_(std::move(socket)), server_(server), deadline_(socket_.get_executor()) {}

   void start() {
      deadline_.in(server_.settings_.patience, shared_from_this(), &Client::close);
      read();
   }

   void close() {
      if (std::exchange(isClosed_, true)) {
         return;
      }
      auto const self = shared_from_this();
      deadline_.off();
      asio::error_code ignored;
      socket_.close(ignored);
      server_.clients_.erase(self);
   }

 private:
   void read() {
      socket_.async_read_some(asio::buffer(buffer_),
                              [self = shared_from_this()](asio::error_code const& error, std::size_t count) {
                                 if (error) {
                                    self->close();
                                 } else if (!self->isClosed_) {
                                    self->bytesAre(count);
                                 }
                              });
   }

   void bytesAre(std::size_t count) {
      if (isAnswered_) {
         return read();
      }
      head_.append(buffer_.data(), count);
      auto const end = httpHeadEnd(head_);
      auto const largest = server_.settings_.largestHead;
      if (!end && head_.size() <= largest) {
         return read();
      }
      isAnswered_ = true;
      if (!end || *end > largest) {
         answer_ = httpAnswer({.status = 431, .isHeadOnly = false}, "");
      } else {
         answer_ = server_.answer(head_.substr(0, *end));
      }
      write();
   }

   void write() {
      deadline_.in(server_.settings_.patience, shared_from_this(), &Client::close);
      asio::async_write(socket_, asio::buffer(answer_),
                        [self = shared_from_this()](asio::error_code const& error, std::size_t) {
                           if (error) {
                              return self->close();
                           }
                           asio::error_code ignored;
                           self->socket_.shutdown(tcp::socket::shutdown_send, ignored);
                           self->read();
                        });
   }

   tcp::socket socket_;
   MetricsServer& server_;
   Deadline deadline_;
   std::array<char, 2048> buffer_{};
   std::string head_;
   std::string answer_;
   bool isAnswered_{};
   bool isClosed_{};
};

MetricsServer::MetricsServer(asio::io_context& loop, Settings settings, std::function<std::string()> content)
    : settings_(settings), content_(std::move(content)), acceptor_(loop), pause_(loop) {
   try {
      acceptor_.open(tcp::v4());
      acceptor_.set_option(tcp::acceptor::reuse_address(true));
      acceptor_.bind({asio::ip::address_v4::loopback(), settings_.port});
      acceptor_.listen();
   } catch (std::system_error const& error) {
      throw std::runtime_error(fmt::format("metrics port {}: {}", settings_.port, error.code().message()));
   }
   accept();
}

MetricsServer::~MetricsServer() {
   stop();
}

void
MetricsServer::stop() {
   asio::error_code ignored;
   acceptor_.close(ignored);
   pause_.cancel();
   for (auto clients = clients_; auto const& client : clients) {
      client->close();
   }
}

void
MetricsServer::accept() {
   acceptor_.async_accept(
         [this, alive = std::weak_ptr(alive_)](asio::error_code const& error, tcp::socket socket) {
            if (alive.expired() || !acceptor_.is_open()) {
               return;
            }
            if (!error) {
               accepted(std::move(socket));
               return accept();
            }
            // No descriptor is left, or the like: to try again at once would turn the loop in circles.
            pause_.expires_after(std::chrono::milliseconds(100));
            pause_.async_wait([this, alive](asio::error_code const& ended) {
               if (!ended && !alive.expired() && acceptor_.is_open()) {
                  accept();
               }
            });
         });
}

void
MetricsServer::accepted(tcp::socket socket) {
   if (clients_.size() >= settings_.mostClients) {
      return;
   }
   auto const client = std::make_shared<Client>(std::move(socket), *this);
   clients_.insert(client);
   client->start();
}

/// Any user of this machine may ask, and to make metrics holds the loop up.
std::string const&
MetricsServer::content() {
   auto const now = std::chrono::steady_clock::now();
   if (!madeAt_ || now >= *madeAt_ + settings_.freshness) {
      made_ = content_();
      madeAt_ = now;
   }
   return made_;
}

std::string
MetricsServer::answer(std::string const& head) {
   auto const outcome = httpOutcome(head, "/metrics");
   try {
      return httpAnswer(outcome, outcome.status == 200 ? content() : std::string());
   } catch (std::exception const&) {
      return httpAnswer({.status = 503, .isHeadOnly = outcome.isHeadOnly}, "");
   }
}

} // namespace L3TunnelAgent
