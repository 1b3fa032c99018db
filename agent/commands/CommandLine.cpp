#include "agent/commands/CommandLine.h"

#include "agent/commands/Ask.h"
#include "agent/commands/Commands.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <unistd.h>

namespace L3TunnelAgent {

namespace {

/// File names are repeated as they are, but for what could command a terminal.
void
complain(std::string const& what) {
   std::string shown;
   for (char const character : what) {
      bool const isControl = (character >= 0 && character < ' ' && character != '\n') || character == 0x7f;
      shown += isControl ? '?' : character;
   }
   fmt::print(stderr, "{}: {}\n", programName, shown);
}

bool
isColoured(int descriptor) {
   char const* const noColour = std::getenv("NO_COLOR");
   return isatty(descriptor) && !(noColour && *noColour);
}

Context
contextOf(GlobalOptions const& options) {
   Context context;
   context.settings = settingsOf(options);
   context.paint = Paint(isColoured(STDOUT_FILENO));
   context.warn = complain;
   // Trace goes there too, line by line.
   if (isatty(STDERR_FILENO) && options.traces.empty()) {
      context.progress = Progress([](std::string const& text) { fmt::print(stderr, "{}", text); },
                                  [] { return std::chrono::steady_clock::now().time_since_epoch(); });
   }
   return context;
}

void
print(std::string const& text) {
   bool const isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
   if (!isWritten || std::fflush(stdout) != 0) {
      throw std::runtime_error(fmt::format("standard output: {}", std::strerror(errno)));
   }
}

ExitCode
printed(Answer const& answer) {
   print(answer.text);
   if (!answer.complaint.empty()) {
      complain(answer.complaint);
   }
   return answer.exitCode;
}

ExitCode
run(std::vector<std::string> const& words) {
   Commands commands;
   Command const* command = nullptr;
   try {
      command = &commands.read(words);
   } catch (CLI::ParseError const& end) {
      return printed(commands.end(end));
   }
   if (command->asked && command->asked->isAsked) {
      return ask(*command->asked, {.words = words, .isColoured = isColoured(STDOUT_FILENO)},
                 {.output = print, .complaint = complain});
   }
   return printed(guarded([&] {
      auto context = contextOf(commands.options());
      processIs(commands.options());
      return command->run(context);
   }));
}

} // namespace

int
runCommandLine(int argc, char const* const* argv) noexcept {
   try {
      return run({argv + std::min(argc, 1), argv + argc});
   } catch (std::exception const& error) {
      complain(error.what());
      return exitFault;
   }
}

} // namespace L3TunnelAgent
