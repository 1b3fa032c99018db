#pragma once

#include <array>
#include <chrono>
#include <cstdint>

namespace L3TunnelAgent {

enum class LogLevel : std::uint8_t { error, warning, notice, info };

/// How long it took from the first message read of a burst until the chip had answered everything.
class ReactionTimes {
 public:
   using Time = std::chrono::nanoseconds;

   /// Upper ends of the buckets in seconds, each counting what took at most so long and longer than the one
   /// before it; what took longer than the last is only in count().
   static constexpr std::array<double, 12> bounds{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025,
                                                  0.05,   0.1,   0.25,   0.5,   1,    2.5};

   void add(Time time);

   std::array<std::uint64_t, bounds.size()> const& buckets() const { return buckets_; }
   std::uint64_t count() const { return count_; }
   Time sum() const { return sum_; }
   Time longest() const { return longest_; }
   Time last() const { return last_; }

 private:
   std::array<std::uint64_t, bounds.size()> buckets_{};
   std::uint64_t count_{};
   Time sum_{};
   Time longest_{};
   Time last_{};
};

/// What a live agent met, each counted from its start.
struct Counters {
   std::uint64_t messages{};         ///< datagrams that the kernel announced something with
   std::uint64_t foreign{};          ///< datagrams that did not come from the kernel, passed over
   std::uint64_t unreadable{};       ///< messages that could not be read, passed over; one may count twice
   std::uint64_t overruns{};         ///< times that announcements were lost
   std::uint64_t dumps{};            ///< requests for one kind of the kernel's state, answered in full
   std::uint64_t interruptedDumps{}; ///< those whose answer may not fit together, asked again
   std::uint64_t failedDumps{}; ///< attempts to read the kernel's state given up, each followed by another
   std::uint64_t reconciliations{};        ///< times that what was dumped took the place of what was known
   std::uint64_t differing{};              ///< of these, those that differed; the first one does not count
   std::uint64_t confirmations{};          ///< reconciliations of what the kernel drops silently
   std::uint64_t confirmationsDiffering{}; ///< of these, those that differed
   std::uint64_t rounds{};                 ///< times that messages were taken together
   ReactionTimes reactions{};
};

} // namespace L3TunnelAgent
