#pragma once

#include "agent/control/ControlSocket.h"
#include "agent/control/Request.h"

#include <array>
#include <chrono>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace L3TunnelAgent {

/// A connection whose every byte is the test's. Nothing waits longer than `patience`.
class TestClient {
 public:
   static constexpr std::chrono::seconds patience{20};

   explicit TestClient(std::string const& path) : TestClient(connectedControl(path)) {}
   explicit TestClient(int descriptor) : descriptor_(descriptor) {
      timeval const time{.tv_sec = patience.count(), .tv_usec = 0};
      setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
      setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
   }
   TestClient(TestClient&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
   TestClient& operator=(TestClient&&) = delete;
   ~TestClient() { close(); }

   void close() {
      if (descriptor_ >= 0) {
         ::close(std::exchange(descriptor_, -1));
      }
   }

   /// Returns whether all went.
   bool send(std::string_view bytes) const {
      while (!bytes.empty()) {
         auto const sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
         if (sent <= 0) {
            return false;
         }
         bytes.remove_prefix(static_cast<std::size_t>(sent));
      }
      return true;
   }

   bool ask(std::vector<std::string> words) const {
      return send(bytesOf(Request{.words = std::move(words)}));
   }

   void shutdownSend() const { shutdown(descriptor_, SHUT_WR); }

   /// What comes next, of at most `most` bytes; empty at the end.
   std::string some(std::size_t most = 65536) const {
      std::string bytes(most, '\0');
      auto const got = recv(descriptor_, bytes.data(), bytes.size(), 0);
      bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
      return bytes;
   }

   /// Everything up to the end of the connection.
   std::string all() const {
      std::string bytes;
      for (auto part = some(); !part.empty(); part = some()) {
         bytes += part;
      }
      return bytes;
   }

   /// Text up to and with the line in which `last` is, of the frames that come.
   std::string textTo(std::string const& last) {
      for (std::size_t end = 0;;) {
         if (auto const at = text_.find(last); at != std::string::npos) {
            end = text_.find('\n', at);
         }
         if (end != 0 && end != std::string::npos) {
            auto const result = text_.substr(0, end + 1);
            text_.erase(0, end + 1);
            return result;
         }
         auto const bytes = some();
         if (bytes.empty()) {
            return std::exchange(text_, {}) + "(the end)";
         }
         reader_.bytesAre(bytes);
         while (auto const frame = reader_.next()) {
            text_ += frame->payload;
         }
      }
   }

   /// Whether the other end closes within the time.
   bool isClosedWithin(std::chrono::milliseconds time) const {
      pollfd poll{.fd = descriptor_, .events = POLLIN | POLLRDHUP, .revents = 0};
      return ::poll(&poll, 1, static_cast<int>(time.count())) == 1 &&
             (poll.revents & (POLLRDHUP | POLLHUP)) != 0;
   }

   int descriptor() const { return descriptor_; }

 private:
   int descriptor_;
   FrameReader reader_{largestText};
   std::string text_;
};

/// An answer as its bytes say it.
struct SaidAnswer {
   std::string output;
   std::string complaint;
   int exitCode{-1}; // -1: it has no end
};

inline SaidAnswer
saidAnswer(std::string const& bytes) {
   FrameReader reader(largestText);
   reader.bytesAre(bytes);
   SaidAnswer answer;
   while (auto const frame = reader.next()) {
      switch (frame->kind) {
      case ControlFrame::Kind::output:
         answer.output += frame->payload;
         break;
      case ControlFrame::Kind::complaint:
         answer.complaint += frame->payload;
         break;
      case ControlFrame::Kind::end:
         answer.exitCode = frame->payload.at(0);
         break;
      case ControlFrame::Kind::request:
         break;
      }
   }
   return answer;
}

/// Asks on a connection of its own.
inline SaidAnswer
answerTo(std::string const& path, std::vector<std::string> const& words) {
   TestClient const client(path);
   client.ask(words);
   return saidAnswer(client.all());
}

} // namespace L3TunnelAgent
