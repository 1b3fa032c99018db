#pragma once

#include "programmer/testing/RandomScript.h"
#include "programmer/testing/Shorten.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace ZandorL3Tunnel {

/// What came of a script.
struct Outcome {
   std::string problem;  ///< empty when nothing went wrong
   std::uint64_t rows{}; ///< that the chip applied

   /// What kind of problem it is: its text without where it came and without numbers.
   std::string kind() const {
      auto text = problem;
      std::erase_if(text, [](char each) { return each >= '0' && each <= '9'; });
      auto last = text.rfind(": ");
      return last == std::string::npos ? text : text.substr(last);
   }
};

/// Plays a script in a system of its own.
inline Outcome
play(Script const& script, World::Spoiler const& spoiler = {}) {
   World world(spoiler);
   for (std::size_t at = 0; at < script.size() && world.problem().empty(); ++at) {
      world.step(script[at]);
      if (!world.problem().empty()) {
         return {Nuv::text("step ", at + 1, ", ", stepText(script[at]), ": ", world.problem()),
                 world.rowsApplied()};
      }
   }
   world.finish();
   return {world.problem(), world.rowsApplied()};
}

/// The same in a process of its own: what stops that one is a problem like any other, and what handles were
/// made before does not show. With `isQuiet` that process says nothing.
inline Outcome
playApart(Script const& script, World::Spoiler const& spoiler = {}, bool isQuiet = false) {
   int ends[2];
   if (pipe(ends) != 0) {
      return {"no pipe", 0};
   }
   std::cout.flush();
   auto child = fork();
   if (child == 0) {
      // A loop that never ends is a problem, too.
      alarm(120);
      if (isQuiet) {
         [[maybe_unused]] auto* quiet = std::freopen("/dev/null", "w", stderr);
      }
      Outcome outcome;
      try {
         outcome = play(script, spoiler);
      } catch (std::exception const& error) {
         outcome.problem = std::string("it threw: ") + error.what();
      }
      auto text = Nuv::text(outcome.rows, " ", outcome.problem);
      auto written = write(ends[1], text.data(), text.size());
      _exit(written == ssize_t(text.size()) ? 0 : 1);
   }
   close(ends[1]);
   std::string text;
   char some[512];
   for (ssize_t count; (count = read(ends[0], some, sizeof some)) > 0;) {
      text.append(some, std::size_t(count));
   }
   close(ends[0]);
   int status = 0;
   waitpid(child, &status, 0);
   if (child < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      return {Nuv::text("its process ended by signal ", WIFSIGNALED(status) ? WTERMSIG(status) : 0), 0};
   }
   auto blank = text.find(' ');
   return {text.substr(blank + 1), std::strtoull(text.c_str(), nullptr, 10)};
}

/// The script made short: it still fails in the same way.
inline Script
shortened(Script const& script, World::Spoiler const& spoiler = {}) {
   auto const kind = playApart(script, spoiler, true).kind();
   Shortener<Step> shortener(
         [&](Script const& fewer) {
            auto outcome = playApart(fewer, spoiler, true);
            return !outcome.problem.empty() && outcome.kind() == kind;
         },
         simplerSteps);
   return shortener.shortened(script);
}

} // namespace ZandorL3Tunnel
