#include "agent/live/KernelReader.h"

#include "agent/MessageReader.h"

#include <algorithm>
#include <asio/post.hpp>
#include <cstring>
#include <linux/rtnetlink.h>

namespace L3TunnelAgent {

namespace {

using namespace std::chrono_literals;

constexpr unsigned groups[] = {RTNLGRP_LINK,         RTNLGRP_NEIGH,       RTNLGRP_IPV4_IFADDR,
                               RTNLGRP_IPV6_IFADDR,  RTNLGRP_IPV4_ROUTE,  RTNLGRP_IPV6_ROUTE,
                               RTNLGRP_IPV4_RULE,    RTNLGRP_IPV6_RULE,   RTNLGRP_NEXTHOP,
                               RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF};

// Others get their turn after so many datagrams.
constexpr std::size_t datagramsPerTurn = 512;
// And when so many replies are handed on, of thousands of messages.
constexpr std::size_t repliesPerTurn = 8;
// While a dump is brought to its end, as many as a large buffer holds.
constexpr std::size_t datagramsAtOnce = 1U << 16U;

// A request that was interrupted is repeated at once, so often; then after pauses, each twice as long as the
// one before; and then what came is taken for the time being.
constexpr unsigned triesAtOnce = 4;
constexpr unsigned triesInAll = 8;
constexpr auto firstPause = 50ms;
constexpr auto longestPause = 2000ms;

} // namespace

KernelReader::KernelReader(asio::io_context& loop, Settings const& settings, KernelListener& listener,
                           Counters& counters)
    : loop_(loop), settings_(settings), listener_(listener), counters_(counters), pause_(loop) {}

KernelReader::~KernelReader() {
   stop();
}

/// A handler that does nothing once this has stopped.
template <typename Call>
auto
KernelReader::guarded(Call call) {
   return [call, alive = std::weak_ptr<int>(alive_)](asio::error_code const& error = {}) {
      if (!error && !alive.expired()) {
         call();
      }
   };
}

std::unique_ptr<KernelReader::Watched>
KernelReader::watched(NetworkNamespace const& where) {
   auto result = std::make_unique<Watched>(
         Watched{NetlinkSocket(where), asio::posix::stream_descriptor(loop_), DatagramReader()});
   auto duplicate = result->socket.duplicate();
   result->descriptor.assign(duplicate.value());
   duplicate.release();
   return result;
}

void
KernelReader::start() {
   NetworkNamespace where(settings_.netns);
   auto announcements = watched(where);
   announcements->socket.receiveBufferIs(settings_.receiveBuffer);
   for (unsigned const group : groups) {
      if (!announcements->socket.join(group)) {
         listener_.told(LogLevel::notice, "the kernel has no announcements of group " +
                                                std::to_string(group) + " of rtnetlink");
      }
   }
   auto replies = watched(where);
   stop();
   alive_ = std::make_shared<int>();
   where_ = std::move(where);
   announcements_ = std::move(announcements);
   replies_ = std::move(replies);
   watchAnnouncements();
}

void
KernelReader::stop() {
   alive_.reset();
   pause_.cancel();
   announcements_.reset();
   replies_.reset();
   dump_.reset();
   kinds_ = {};
}

void
KernelReader::watchAnnouncements() {
   announcements_->descriptor.async_wait(asio::posix::descriptor_base::wait_read, guarded([this] {
                                            readAnnouncements(datagramsPerTurn);
                                            if (announcements_) {
                                               watchAnnouncements();
                                            }
                                         }));
}

void
KernelReader::readAnnouncements(std::size_t most) {
   for (; most != 0 && announcements_; --most) {
      auto const got = announcements_->reader.receive(announcements_->socket.descriptor());
      if (got.kind == Received::Kind::nothing) {
         break;
      }
      if (got.kind == Received::Kind::datagram) {
         ++counters_.messages;
         listener_.announced(got.bytes);
      } else if (got.kind == Received::Kind::foreign) {
         ++counters_.foreign;
      } else {
         ++counters_.overruns;
         listener_.lost();
      }
   }
   if (announcements_) {
      listener_.burstRead();
   }
}

void
KernelReader::readAnnounced() {
   readAnnouncements(datagramsAtOnce);
}

bool
KernelReader::passOverAnnounced() {
   for (std::size_t count = 0; count < datagramsAtOnce; ++count) {
      auto const got = announcements_->reader.receive(announcements_->socket.descriptor());
      if (got.kind == Received::Kind::nothing) {
         return true;
      }
      counters_.messages += got.kind == Received::Kind::datagram ? 1 : 0;
      counters_.foreign += got.kind == Received::Kind::foreign ? 1 : 0;
      counters_.overruns += got.kind == Received::Kind::overrun ? 1 : 0;
   }
   return false;
}

void
KernelReader::read(std::span<DumpKind const> kinds) {
   kinds_ = kinds;
   tries_ = 0;
   fitsTogether_ = true;
   ask();
}

void
KernelReader::ask() {
   ++tries_;
   dump_.emplace(++sequence_);
   try {
      replies_->socket.send(request(kinds_.front(), sequence_));
   } catch (NetlinkError const& error) { // such as for want of memory, which may not last
      return tryAgain(error.what());
   }
   watchReplies();
}

void
KernelReader::watchReplies() {
   replies_->descriptor.async_wait(asio::posix::descriptor_base::wait_read,
                                   guarded([this] { readReplies(); }));
}

void
KernelReader::readReplies() {
   for (std::size_t count = 0; count < datagramsPerTurn; ++count) {
      auto const got = replies_->reader.receive(replies_->socket.descriptor());
      auto state = DumpReader::State::more;
      switch (got.kind) {
      case Received::Kind::nothing:
         return watchReplies();
      case Received::Kind::datagram:
         state = dump_->take(got.bytes);
         break;
      case Received::Kind::foreign:
         ++counters_.foreign;
         break;
      case Received::Kind::overrun:
         return repliesLost("replies were lost for want of room");
      case Received::Kind::truncated:
         return repliesLost("a reply was too long");
      }
      if (state != DumpReader::State::more) {
         return finished(state);
      }
   }
   watchReplies();
}

/// The end may be among what was lost, so that it would be waited for in vain.
void
KernelReader::repliesLost(std::string const& why) {
   auto reader = std::move(replies_->reader);
   replies_ = watched(*where_);
   replies_->reader = std::move(reader);
   tryAgain(why);
}

void
KernelReader::finished(DumpReader::State state) {
   if (state == DumpReader::State::failed) {
      return refused(dump_->error());
   }
   if (state == DumpReader::State::interrupted) {
      ++counters_.interruptedDumps;
      if (tries_ < triesInAll) {
         return tryAgain("they changed while they were read");
      }
      fitsTogether_ = false;
   }
   ++counters_.dumps;
   answered();
}

void
KernelReader::refused(int error) {
   if (!meansNone(error)) {
      return tryAgain(std::strerror(error));
   }
   listener_.told(LogLevel::notice, std::string("the kernel has no ") + kinds_.front().name);
   dump_.emplace(sequence_);
   answered();
}

void
KernelReader::tryAgain(std::string const& why) {
   if (tries_ < triesAtOnce) {
      return ask();
   }
   ++counters_.failedDumps;
   auto const what = std::string("the kernel's ") + kinds_.front().name + " cannot be read";
   if (!hasAnswers_ && tries_ >= triesInAll) {
      throw NetlinkError("rtnetlink: " + what + ": " + why);
   }
   if (!std::exchange(isTold_, true)) {
      listener_.told(LogLevel::warning, what + ", which is tried again: " + why);
   }
   auto const doublings = std::min(tries_ - triesAtOnce, 16U);
   pause_.expires_after(std::min<std::chrono::milliseconds>(firstPause * (1U << doublings), longestPause));
   pause_.async_wait(guarded([this] { ask(); }));
}

void
KernelReader::recovered() {
   if (std::exchange(isTold_, false)) {
      listener_.told(LogLevel::notice, std::string("the kernel's ") + kinds_.front().name +
                                             " are read after all, at attempt " + std::to_string(tries_));
   }
}

void
KernelReader::answered() {
   recovered();
   handedOn_ = 0;
   handOn();
}

/// A few at a time, since some kinds are long and others wait for the loop.
void
KernelReader::handOn() {
   for (std::size_t count = 0; count < repliesPerTurn && handedOn_ < dump_->replies().size(); ++count) {
      listener_.replied(kinds_.front(), dump_->replies()[handedOn_++]);
      if (!isReading()) {
         return;
      }
   }
   if (handedOn_ < dump_->replies().size()) {
      asio::post(loop_, guarded([this] { handOn(); }));
      return;
   }
   dump_.reset();
   if (kinds_.size() > 1) {
      kinds_ = kinds_.subspan(1);
      tries_ = 0;
      return ask();
   }
   readAnnouncements(datagramsAtOnce);
   if (isReading()) {
      kinds_ = {};
      hasAnswers_ = true;
      listener_.dumped(fitsTogether_);
   }
}

} // namespace L3TunnelAgent
