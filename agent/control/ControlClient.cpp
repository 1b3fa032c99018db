#include "agent/control/ControlClient.h"

#include <algorithm>
#include <asio/buffer.hpp>
#include <utility>

namespace L3TunnelAgent {

namespace {

using Kind = ControlFrame::Kind;

/// Bytes of an answer that a client has to read.
constexpr std::uint64_t leastPerSecond = 1 << 20;

/// Of one write, so that others have their turn between two.
constexpr std::size_t mostWritten = 256 * 1024;

} // namespace

ControlClient::ControlClient(Socket socket, Limits const& limits, Owner& owner)
    : socket_(std::move(socket)), limits_(limits), owner_(owner), deadline_(socket_.get_executor()) {}

void
ControlClient::start() {
   deadline_.in(limits_.requestTime, shared_from_this(), &ControlClient::close);
   read();
}

void
ControlClient::read() {
   socket_.async_read_some(asio::buffer(buffer_),
                           [self = shared_from_this()](asio::error_code const& error, std::size_t count) {
                              if (error) {
                                 self->close();
                              } else {
                                 self->bytesAre(count);
                              }
                           });
}

void
ControlClient::bytesAre(std::size_t count) {
   if (isClosed_) {
      return;
   }
   std::optional<Request> request;
   try {
      reader_.bytesAre({buffer_.data(), count});
      if (auto const frame = reader_.next()) {
         request = requestOf(*frame);
      }
   } catch (ProtocolError const& error) {
      return refused(error.what());
   }
   if (!request) {
      return read();
   }
   deadline_.off();
   owner_.requested(*this, *request);
}

void
ControlClient::refused(std::string const& why) {
   answerIs({.text = {}, .exitCode = exitFault, .complaint = why});
}

void
ControlClient::answerIs(Answer const& answer) {
   if (isClosed_) {
      return;
   }
   next_ += textFrames(Kind::output, answer.text) + textFrames(Kind::complaint, answer.complaint);
   following_ = answer.following;
   if (following_) {
      awaitLeaving();
   } else {
      next_ += bytesOf(Kind::end, std::string(1, static_cast<char>(answer.exitCode)));
      // For the whole: whoever reads on byte by byte must not be waited for without end.
      std::chrono::milliseconds const forItsLength(1000 * std::uint64_t{next_.size()} / leastPerSecond);
      deadline_.in(limits_.readTime + forItsLength, shared_from_this(), &ControlClient::close);
   }
   write();
}

/// Whoever follows has nothing more to say: what comes is its end, or as good as that.
void
ControlClient::awaitLeaving() {
   socket_.async_read_some(
         asio::buffer(buffer_),
         [self = shared_from_this()](asio::error_code const&, std::size_t) { self->close(); });
}

void
ControlClient::changeIs(std::string const& frame) {
   if (isClosed_) {
      return;
   }
   if (leftOut_ || waiting() + frame.size() > limits_.mostChanges) {
      ++leftOut_;
   } else {
      next_ += frame;
      write();
   }
}

void
ControlClient::write() {
   if (isWriting_ || isClosed_) {
      return;
   }
   if (written_ == writing_.size()) {
      writing_ = std::exchange(next_, {});
      written_ = 0;
   }
   if (writing_.empty()) {
      return drained();
   }
   isWriting_ = true;
   auto const count = std::min(writing_.size() - written_, mostWritten);
   socket_.async_write_some(asio::buffer(writing_.data() + written_, count),
                            [self = shared_from_this()](asio::error_code const& error, std::size_t done) {
                               self->isWriting_ = false;
                               if (error) {
                                  self->close();
                               } else if (!self->isClosed_) {
                                  self->wrote(done);
                               }
                            });
}

void
ControlClient::wrote(std::size_t count) {
   written_ += count;
   // Those who were too slow are told so as soon as there is room for more.
   if (leftOut_ && waiting() <= limits_.mostChanges / 2) {
      next_ += bytesOf(Kind::output, owner_.leftOutLine(*following_, std::exchange(leftOut_, 0)));
   }
   write();
}

void
ControlClient::drained() {
   if (!following_) {
      close();
   }
}

void
ControlClient::close() {
   if (std::exchange(isClosed_, true)) {
      return;
   }
   auto const self = shared_from_this();
   deadline_.off();
   asio::error_code ignored;
   socket_.close(ignored);
   owner_.closed(*this);
}

} // namespace L3TunnelAgent
