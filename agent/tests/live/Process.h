#pragma once

#include "agent/tests/AgentProcess.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace L3TunnelAgent::Live {

using Words = std::vector<std::string>;
using Seconds = std::chrono::duration<double>;

/// A program that runs as long as this object, in a network namespace if one is named, without a shell.
class Process {
 public:
   struct Settings {
      std::string netNamespace{};             ///< as in /run/netns; empty: this process's own
      std::filesystem::path in{"/dev/null"};  ///< read as standard input
      std::filesystem::path out{"/dev/null"}; ///< takes standard output, emptied before
      std::filesystem::path error{};          ///< takes standard error; empty: this process's own
   };

   /// Throws std::runtime_error when it cannot be started. That there is no such program shows as exit code
   /// 127.
   Process(Words const& command, Settings const& settings);
   Process(Process const&) = delete;
   Process& operator=(Process const&) = delete;
   /// Kills what still runs.
   ~Process();

   pid_t pid() const { return pid_; }
   bool isRunning() { return !ended(Seconds(0)); }

   /// Sends it a signal, when it still runs.
   void signal(int number);

   /// Waits until it has ended.
   /// @return its exit code, 128 and the signal's number when one ended it, or nothing when it still runs
   /// then.
   std::optional<int> ended(Seconds within);

   /// Kills it, and waits until it has ended.
   void kill();

 private:
   pid_t pid_{-1};
   std::optional<int> exitCode_{};
};

/// Runs a program to its end, and kills it after a minute.
Outcome finished(Words const& command, std::string const& netNamespace = {}, std::string const& input = {});

/// The same.
/// @return what it printed. Throws std::runtime_error, with its error output, when its exit code is not 0.
std::string outputOf(Words const& command, std::string const& netNamespace = {},
                     std::string const& input = {});

/// Asks every few milliseconds until the answer is yes.
/// @return whether it was, in time.
template <typename Question>
bool isWithin(Seconds limit, Question const& question);

void sleepFor(Seconds time);

template <typename Question>
bool
isWithin(Seconds limit, Question const& question) {
   auto const end = std::chrono::steady_clock::now() + limit;
   while (!question()) {
      if (std::chrono::steady_clock::now() > end) {
         return false;
      }
      sleepFor(Seconds(0.1));
   }
   return true;
}

} // namespace L3TunnelAgent::Live
