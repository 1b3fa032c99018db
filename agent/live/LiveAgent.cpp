#include "agent/live/LiveAgent.h"

#include "agent/Attributes.h"

#include <algorithm>
#include <asio/post.hpp>
#include <cstring>
#include <linux/netconf.h>
#include <linux/rtnetlink.h>

namespace L3TunnelAgent {

namespace {

using namespace std::chrono_literals;

// What the kernel may have dropped silently is read anew after that long, in which its own doings and those
// of routing daemons come to rest; and not more often than the other, nor for more than a part of the time.
constexpr auto confirmationPause = 250ms;
constexpr auto betweenReadings = 1000ms;
constexpr int restPerReading = 4;
constexpr auto longestRest = 60s; // a reading that was long refused took no work

// Between two readings when announcements are lost again and again: doubled each time.
constexpr auto firstPause = 20ms;
constexpr auto longestPause = 1000ms;

/// Whether a message tells that routes are left out, or are no more, while their device has no carrier. What
/// it says is followed; that of devices made later is also that of those that never had an address, of which
/// the kernel says nothing. When a device is made, all its settings are told.
bool
tellsOfSettings(std::span<std::byte const> message) {
   if (message.size() < NLMSG_HDRLEN || read<nlmsghdr>(message).nlmsg_type != RTM_NEWNETCONF) {
      return false;
   }
   std::vector<std::uint32_t> aligned((message.size() + 3) / 4);
   std::memcpy(aligned.data(), message.data(), message.size());
   Attributes const settings("RTM_NEWNETCONF", reinterpret_cast<nlmsghdr const*>(aligned.data()),
                             sizeof(netconfmsg));
   return settings.has(NETCONFA_IGNORE_ROUTES_WITH_LINKDOWN) && !settings.has(NETCONFA_FORWARDING);
}

/// Whether a message tells of something with which the kernel may have dropped more, which it does not tell:
/// where its first half was read already, the message says nothing new, and nobody concludes the rest.
bool
maySayTooLittle(std::span<std::byte const> message) {
   if (message.size() < NLMSG_HDRLEN) {
      return false;
   }
   switch (read<nlmsghdr>(message).nlmsg_type) {
   case RTM_DELLINK:
   case RTM_DELNEXTHOP:
   case RTM_DELADDR:
      return true;
   case RTM_NEWLINK: {
      auto const fixed = message.subspan(NLMSG_HDRLEN);
      auto const flags = fixed.size() < sizeof(ifinfomsg) ? 0U : read<ifinfomsg>(fixed).ifi_flags;
      Link const told{.flags = flags};
      return !told.isUp() || !told.hasCarrier();
   }
   default:
      return false;
   }
}

// Whether a namespace's name became another's is looked after that often.
constexpr auto betweenNames = 5s;

// After so many messages that cannot be read, no more of them are named.
constexpr std::uint64_t mostUnreadableTold = 10;

} // namespace

LiveAgent::LiveAgent(asio::io_context& loop, Settings const& settings)
    : loop_(loop)
    , agent_(settings.fabric)
    , kernel_(loop, settings.kernel, *this, counters_)
    , timer_(loop)
    , nameTimer_(loop)
    , pause_(firstPause) {}

LiveAgent::~LiveAgent() {
   stop();
}

template <typename Call>
auto
LiveAgent::guarded(Call call) {
   return [call, alive = std::weak_ptr<int>(alive_)](asio::error_code const& error = {}) {
      if (!error && !alive.expired()) {
         call();
      }
   };
}

void
LiveAgent::start() {
   kernel_.start();
   asked_ = Asked::due;
   due_ = Scope::whole;
   read();
   watchName();
}

/// A name may become another namespace's: whoever makes one anew means the new one.
void
LiveAgent::watchName() {
   if (!kernel_.settings().netns) {
      return;
   }
   nameTimer_.expires_after(betweenNames);
   nameTimer_.async_wait(guarded([this] {
      if (!isNamed()) {
         readIn(Scope::whole, 0ms);
      }
      watchName();
   }));
}

/// @return whether the kernel is the one of that name; otherwise it is another one from here on.
bool
LiveAgent::isNamed() {
   auto const& name = kernel_.settings().netns;
   auto const standing = kernel_.standing();
   bool const wasGone = std::exchange(isGone_, standing == NetworkNamespace::Standing::gone);
   if (isGone_ && !wasGone) {
      told(LogLevel::error,
           "network namespace " + *name + " has lost its name, and is followed until another one has it");
   }
   if (standing != NetworkNamespace::Standing::another) {
      return true;
   }
   try {
      startAnew();
   } catch (NetlinkError const& error) { // made, but not to its end
      told(LogLevel::warning, error.what());
      return true;
   }
   told(LogLevel::warning, "network namespace " + *name + " is another one now, which is followed instead");
   return false;
}

/// What is known is another kernel's, to which nothing is added that the new one tells.
void
LiveAgent::startAnew() {
   kernel_.start();
   isKnown_ = false;
   reading_ = Scope::nothing;
   hasGap_ = false;
   asked_ = asked_ == Asked::underWay ? Asked::due : asked_;
}

void
LiveAgent::stop() {
   alive_.reset();
   timer_.cancel();
   nameTimer_.cancel();
   kernel_.stop();
}

void
LiveAgent::reread() {
   asked_ = Asked::due;
   readIn(Scope::whole, 0ms);
}

std::chrono::nanoseconds
LiveAgent::restAfter(std::chrono::nanoseconds took) {
   return std::clamp<std::chrono::nanoseconds>(took * restPerReading, betweenReadings, longestRest);
}

bool
LiveAgent::isCaughtUp() const {
   return isKnown_ && !isScheduled_ && reading_ == Scope::nothing && due_ != Scope::whole;
}

/// Calls take(message) for each message; one that cannot be read is passed over.
template <typename Take>
void
LiveAgent::takeMessages(std::span<std::byte const> datagram, Take const& take) {
   eachMessage(datagram, [&](std::span<std::byte const> message) {
      try {
         take(message);
      } catch (MessageError const& error) {
         unreadable(error);
      }
   });
}

void
LiveAgent::unreadable(MessageError const& error) {
   if (++counters_.unreadable <= mostUnreadableTold) {
      told(LogLevel::warning, std::string("a message is passed over: ") + error.what());
   }
}

void
LiveAgent::announced(std::span<std::byte const> datagram) {
   if (reading_ != Scope::nothing) {
      takeBehind(datagram);
   }
   if (isKnown_ && !firstHeard_) {
      firstHeard_ = Clock::now();
   }
   takeMessages(datagram, [&](auto message) {
      if (isKnown_) {
         agent_.messageIs(message);
      }
      if (tellsOfSettings(message)) {
         readIn(Scope::whole, confirmationPause);
      }
   });
}

void
LiveAgent::takeBehind(std::span<std::byte const> datagram) {
   behindBytes_ += datagram.size();
   if (behindBytes_ <= kernel_.settings().mostBehind) {
      behind_.emplace_back(datagram.begin(), datagram.end());
      return;
   }
   if (due_ != Scope::whole) {
      told(LogLevel::warning, "too much is announced while the kernel's state is read, which is read again");
      readAgain();
   }
}

void
LiveAgent::burstRead() {
   confirmDoubts();
   if (agent_.kernel().hasChanges()) {
      schedule();
   } else if (!isScheduled_) {
      firstHeard_.reset();
   }
}

/// What is announced from here on stays of use: the state is read anew behind what is being read.
void
LiveAgent::lost() {
   hasGap_ = true;
   if (due_ != Scope::whole) {
      told(LogLevel::warning, "announcements of the kernel were lost, so its state is read again");
      readAgain();
   }
}

/// The more often in a row, the later.
void
LiveAgent::readAgain() {
   bool const isInARow = reading_ != Scope::nothing || Clock::now() < lastRead_ + betweenReadings;
   pause_ = isInARow ? std::min<Clock::duration>(pause_ * 2, longestPause) : firstPause;
   readIn(Scope::whole, pause_);
}

void
LiveAgent::told(LogLevel level, std::string const& text) {
   if (hooks_.log) {
      hooks_.log(level, text);
   }
}

/// A scope that is larger, or due earlier, counts.
void
LiveAgent::readIn(Scope scope, Clock::duration pause) {
   auto const at = Clock::now() + pause;
   bool const isSooner = scope >= due_ && (!isArmed_ || at < timer_.expiry());
   due_ = std::max(due_, scope);
   if (!isSooner) {
      return;
   }
   isArmed_ = true;
   timer_.expires_at(at);
   timer_.async_wait(guarded([this] {
      isArmed_ = false;
      if (reading_ == Scope::nothing) {
         read();
      }
   }));
}

void
LiveAgent::read() {
   if (due_ == Scope::whole) {
      isNamed();
   }
   if (due_ == Scope::whole && hasGap_) {
      if (!kernel_.passOverAnnounced()) {
         return readIn(Scope::whole, 0ms);
      }
      hasGap_ = false;
   }
   reading_ = std::exchange(due_, Scope::nothing);
   if (reading_ == Scope::whole && asked_ == Asked::due) {
      asked_ = Asked::underWay;
   }
   readingSince_ = Clock::now();
   fresh_ = reading_ == Scope::whole ? KernelState() : agent_.kernel().withoutRoutes();
   behind_.clear();
   behindBytes_ = 0;
   kernel_.read(reading_ == Scope::whole ? allDumps() : routeDumps());
}

void
LiveAgent::replied(DumpKind const& kind, std::span<std::byte const> datagram) {
   takeMessages(datagram, [&](auto message) { applyReply(fresh_, kind.tag, message); });
}

void
LiveAgent::dumped(bool fitsTogether) {
   bool const isFirst = !isKnown_;
   bool isDoubtful = false;
   for (auto const& datagram : behind_) {
      eachMessage(datagram, [&](auto message) { isDoubtful |= maySayTooLittle(message); });
   }
   reconcile();
   if (isDoubtful) {
      readIn(Scope::routes, isFirst ? confirmationPause : restLeft());
   }
   confirmDoubts();
   if (!fitsTogether) {
      told(LogLevel::warning, "the kernel's state changed while it was read, and is read again");
      if (due_ != Scope::whole) {
         readAgain();
      }
   }
   if (due_ != Scope::nothing && !isArmed_) {
      readIn(due_, due_ == Scope::whole ? pause_ : restLeft());
   }
   schedule();
}

void
LiveAgent::reconcile() {
   // What was announced may be older than a reply, but nothing that came later is missing: each thing ends as
   // it was told of last.
   for (auto const& datagram : behind_) {
      takeMessages(datagram, [&](auto message) { applyDatagram(fresh_, message); });
   }
   behind_.clear();
   bool const differs = agent_.stateIs(std::exchange(fresh_, {}));
   ++counters_.reconciliations;
   if (reading_ == Scope::routes) {
      ++counters_.confirmations;
      counters_.confirmationsDiffering += differs ? 1 : 0;
   }
   counters_.differing += isKnown_ && differs ? 1 : 0;
   isKnown_ = true;
   if (asked_ == Asked::underWay) {
      asked_ = hasGap_ ? Asked::due : Asked::reconciled;
   }
   reading_ = Scope::nothing;
   lastRead_ = Clock::now();
   rest_ = restAfter(lastRead_ - readingSince_);
}

void
LiveAgent::confirmDoubts() {
   if (std::exchange(doubts_, agent_.kernel().doubts()) != agent_.kernel().doubts() && isKnown_) {
      if (reading_ == Scope::nothing) {
         readIn(Scope::routes, restLeft());
      } else { // the rest begins behind what is being read
         due_ = std::max(due_, Scope::routes);
      }
   }
}

LiveAgent::Clock::duration
LiveAgent::restLeft() const {
   return std::max<Clock::duration>(confirmationPause, lastRead_ + rest_ - Clock::now());
}

void
LiveAgent::schedule() {
   if (isKnown_ && !std::exchange(isScheduled_, true)) {
      asio::post(loop_, guarded([this] { step(); }));
   }
}

void
LiveAgent::step() {
   isScheduled_ = false;
   bool const hasMore = agent_.step();
   tellChanged();
   if (hasMore) {
      schedule();
   } else {
      settled();
   }
}

void
LiveAgent::tellChanged() {
   auto const addresses = agent_.takeChanged();
   if (!addresses.empty() && hooks_.changed) {
      hooks_.changed(addresses);
   }
}

void
LiveAgent::settled() {
   if (auto const since = std::exchange(firstHeard_, std::nullopt)) {
      counters_.reactions.add(Clock::now() - *since);
   }
   bool const isAnswered = asked_ == Asked::reconciled;
   if (isAnswered) {
      asked_ = Asked::nothing;
   }
   if ((isAnswered || isCaughtUp()) && hooks_.caughtUp) {
      hooks_.caughtUp();
   }
}

} // namespace L3TunnelAgent
