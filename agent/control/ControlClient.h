#pragma once

#include "agent/control/Answer.h"
#include "agent/control/Deadline.h"
#include "agent/control/Request.h"

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <chrono>
#include <memory>
#include <string>

namespace L3TunnelAgent {

/// A client of the control socket: says one request, is answered, and is done; or follows the changes until
/// it goes. It costs no more than its limits, whatever it does.
class ControlClient : public std::enable_shared_from_this<ControlClient> {
 public:
   using Socket = asio::local::stream_protocol::socket;

   struct Limits {
      std::chrono::milliseconds requestTime{5000}; ///< until the request is there
      std::chrono::milliseconds readTime{30000};   ///< of an answer; each MiB of it has a second more
      std::size_t mostChanges{1 << 20};            ///< bytes of changes that wait to be read
   };

   /// Hears of its clients.
   class Owner {
    public:
      virtual ~Owner() = default;

      /// The request is there; answerIs() is to follow, now or later.
      virtual void requested(ControlClient& client, Request const& request) = 0;

      /// The line that says so many changes were left out.
      virtual std::string leftOutLine(ChangeForm form, std::size_t count) = 0;

      /// The client has gone, or was sent away.
      virtual void closed(ControlClient& client) = 0;
   };

   /// The owner and the limits must live until the client is closed.
   ControlClient(Socket socket, Limits const& limits, Owner& owner);

   /// Waits for the request.
   void start();

   void answerIs(Answer const& answer);

   /// How changes are told to it; nothing for one that does not follow them.
   std::optional<ChangeForm> following() const { return following_; }

   /// Tells a client that follows; `frame` is a change in its form. It is left out, and counted, when the
   /// client has too much to read already.
   void changeIs(std::string const& frame);

   /// Bytes that wait to be read by the client.
   std::size_t waiting() const { return writing_.size() - written_ + next_.size(); }

   void close();

 private:
   void read();
   void bytesAre(std::size_t count);
   void refused(std::string const& why);
   void awaitLeaving();
   void write();
   void wrote(std::size_t count);
   void drained();

   Socket socket_;
   Limits const& limits_;
   Owner& owner_;
   Deadline deadline_;
   FrameReader reader_{Request::largest};
   std::array<char, 4096> buffer_{};
   std::string writing_;
   std::size_t written_{};
   std::string next_;
   std::optional<ChangeForm> following_;
   std::size_t leftOut_{};
   bool isWriting_{};
   bool isClosed_{};
};

} // namespace L3TunnelAgent
