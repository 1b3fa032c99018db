#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace L3TunnelAgent {

/// A line that says how far long work has come, at a terminal: it comes after half a second, changes ten
/// times in a second at the most, and is gone in the end.
class Progress {
 public:
   using Time = std::chrono::nanoseconds;
   using Clock = std::function<Time()>;
   using Print = std::function<void(std::string const&)>;

   static constexpr Time first = std::chrono::milliseconds(500);
   static constexpr Time between = std::chrono::milliseconds(100);

   /// Shows nothing.
   Progress() = default;
   /// `print` takes what goes to the terminal as it is. The work begins now.
   Progress(Print print, Clock clock)
       : print_(std::move(print)), clock_(std::move(clock)), due_(clock_() + first) {}

   /// The work has come as far as `text()` says, which is asked only when a line is due.
   template <class Text>
   void at(Text const& text) {
      if (print_ && clock_() >= due_) {
         due_ = clock_() + between;
         isShown_ = true;
         print_(clear + text());
      }
   }

   /// The line goes. Whoever shows one takes it away, also when the work fails.
   void done() {
      if (isShown_) {
         isShown_ = false;
         print_(clear);
      }
   }

 private:
   inline static std::string const clear = "\r\x1b[K";

   Print print_;
   Clock clock_;
   Time due_{};
   bool isShown_{};
};

} // namespace L3TunnelAgent
