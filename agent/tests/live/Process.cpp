#include "agent/tests/live/Process.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace L3TunnelAgent::Live {

namespace {

constexpr int exitNotStarted = 127;

/// Only what may be called between fork and exec.
[[noreturn]] void
become(char* const* arguments, char const* netNamespace, Process::Settings const& settings) {
   auto const redirect = [](int to, char const* path, int flags) {
      int const file = open(path, flags | O_CLOEXEC, 0600);
      if (file < 0 || dup2(file, to) < 0) {
         _exit(exitNotStarted);
      }
   };
   prctl(PR_SET_PDEATHSIG, SIGKILL);
   if (*netNamespace) {
      int const space = open(netNamespace, O_RDONLY | O_CLOEXEC);
      if (space < 0 || setns(space, CLONE_NEWNET) != 0) {
         _exit(exitNotStarted);
      }
   }
   redirect(STDIN_FILENO, settings.in.c_str(), O_RDONLY);
   redirect(STDOUT_FILENO, settings.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
   if (!settings.error.empty()) {
      redirect(STDERR_FILENO, settings.error.c_str(), O_WRONLY | O_CREAT | O_APPEND);
   }
   execvp(arguments[0], arguments);
   _exit(exitNotStarted);
}

std::string
inOneLine(Words const& command) {
   return fmt::format("{}", fmt::join(command, " "));
}

} // namespace

Process::Process(Words const& command, Settings const& settings) {
   std::vector<char*> arguments;
   for (auto const& word : command) {
      arguments.push_back(const_cast<char*>(word.c_str()));
   }
   arguments.push_back(nullptr);
   auto const space = settings.netNamespace.empty() ? std::string() : "/run/netns/" + settings.netNamespace;
   pid_ = fork();
   if (pid_ == 0) {
      become(arguments.data(), space.c_str(), settings);
   }
   if (pid_ < 0) {
      throw std::runtime_error(inOneLine(command) + ": " + std::strerror(errno));
   }
}

Process::~Process() {
   kill();
}

void
Process::signal(int number) {
   if (isRunning()) {
      ::kill(pid_, number);
   }
}

std::optional<int>
Process::ended(Seconds within) {
   auto const end = std::chrono::steady_clock::now() + within;
   while (!exitCode_) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
         exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      } else if (std::chrono::steady_clock::now() >= end) {
         break;
      } else {
         sleepFor(Seconds(0.001));
      }
   }
   return exitCode_;
}

void
Process::kill() {
   signal(SIGKILL);
   ended(Seconds(10));
}

Outcome
finished(Words const& command, std::string const& netNamespace, std::string const& input) {
   TemporaryFile const in;
   TemporaryFile const out;
   TemporaryFile const error;
   in.write(input);
   Process process(command,
                   {.netNamespace = netNamespace, .in = in.path(), .out = out.path(), .error = error.path()});
   auto const exitCode = process.ended(Seconds(60));
   return {exitCode.value_or(-1), contentOf(out.path()), contentOf(error.path())};
}

std::string
outputOf(Words const& command, std::string const& netNamespace, std::string const& input) {
   auto const outcome = finished(command, netNamespace, input);
   if (outcome.exitCode != 0) {
      throw std::runtime_error(fmt::format("{}: exit code {}: {}{}", inOneLine(command), outcome.exitCode,
                                           outcome.out, outcome.error));
   }
   return outcome.out;
}

void
sleepFor(Seconds time) {
   std::this_thread::sleep_for(time);
}

} // namespace L3TunnelAgent::Live
