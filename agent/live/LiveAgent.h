#pragma once

#include "agent/Agent.h"
#include "agent/MessageReader.h"
#include "agent/live/KernelReader.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace L3TunnelAgent {

/// An agent that follows a running kernel: what the kernel tells is taken in and programmed bit by bit from
/// an event loop, so that others are served there meanwhile.
class LiveAgent final : private KernelListener {
 public:
   struct Settings {
      KernelReader::Settings kernel{};
      Fabric::Settings fabric{};
   };

   /// What is called from the loop, each if it is there. None may end the agent.
   struct Hooks {
      /// Something changed, or may have: the addresses of destinations whose programmed state may differ from
      /// what it was at the last call, ascending.
      std::function<void(std::vector<IpAddress> const& addresses)> changed{};

      /// All that the kernel told is programmed, and no dump is under way: called each time that comes about.
      /// Also called, once, when what start() or reread() asked for is programmed, though a kernel that never
      /// rests may have to be read again; isCaughtUp() tells.
      std::function<void()> caughtUp{};

      /// Something that a person should know, in one line without its end.
      std::function<void(LogLevel level, std::string const& text)> log{};
   };

   /// Nothing is read before start().
   /// @param loop must outlive this; all is done on the thread that runs it.
   /// @throws Nuv::RangeException for sizes that the chip cannot have.
   LiveAgent(asio::io_context& loop, Settings const& settings);
   ~LiveAgent() override;

   /// Hears the kernel's announcements from here on, and asks for its state.
   /// @throws NetlinkError when the kernel cannot be asked or the namespace cannot be entered.
   void start();

   /// Asks for the kernel's whole state again, and writes what differs; behind a dump that is under way.
   void reread();

   /// Reads and programs nothing any more, so that the loop runs out of work. The chip stays as it is.
   void stop();

   /// @param took how long the kernel's state was read last.
   /// @return how long it is left alone then, whatever the kernel may have dropped silently.
   static std::chrono::nanoseconds restAfter(std::chrono::nanoseconds took);

   /// Whether everything that the kernel told so far is programmed, and no dump is under way.
   bool isCaughtUp() const;

   Hooks& hooks() { return hooks_; }
   Agent const& agent() const { return agent_; }
   Agent& agent() { return agent_; }
   Counters const& counters() const { return counters_; }

 private:
   using Clock = std::chrono::steady_clock;

   /// How much of the kernel's state is to be read anew.
   enum class Scope : std::uint8_t { nothing, routes, whole };

   /// How far the reading has come that somebody asked for.
   enum class Asked : std::uint8_t { nothing, due, underWay, reconciled };

   void announced(std::span<std::byte const> datagram) override;
   void burstRead() override;
   void lost() override;
   void replied(DumpKind const& kind, std::span<std::byte const> datagram) override;
   void dumped(bool fitsTogether) override;
   void told(LogLevel level, std::string const& text) override;

   void watchName();
   bool isNamed();
   void startAnew();
   void unreadable(MessageError const& error);
   void takeBehind(std::span<std::byte const> datagram);
   void readAgain();
   void readIn(Scope scope, Clock::duration pause);
   void read();
   void reconcile();
   void confirmDoubts();
   Clock::duration restLeft() const;
   void schedule();
   void step();
   void tellChanged();
   void settled();
   template <typename Take>
   void takeMessages(std::span<std::byte const> datagram, Take const& take);
   template <typename Call>
   auto guarded(Call call);

   asio::io_context& loop_;
   Counters counters_;
   Agent agent_;
   Hooks hooks_;
   KernelReader kernel_;

   // What is being read anew, and what was announced since that was begun.
   Scope reading_{};
   KernelState fresh_;
   std::vector<std::vector<std::byte>> behind_;
   std::size_t behindBytes_{};
   bool isKnown_{}; // the kernel's state was read once

   // What is to be read next, and when.
   Scope due_{};
   Asked asked_{};
   bool isArmed_{};
   bool hasGap_{}; // announcements were lost that no reading has made up for
   asio::steady_timer timer_;
   asio::steady_timer nameTimer_;
   bool isGone_{};         // the namespace's name, as was told
   Clock::duration pause_; // after announcements were lost
   Clock::time_point readingSince_{};
   Clock::time_point lastRead_{};
   Clock::duration rest_{}; // from then on
   std::uint64_t doubts_{}; // of the state, that were seen to

   bool isScheduled_{};
   std::optional<Clock::time_point> firstHeard_; // of what the chip has not answered yet
   std::shared_ptr<int> alive_ = std::make_shared<int>();
};

} // namespace L3TunnelAgent
