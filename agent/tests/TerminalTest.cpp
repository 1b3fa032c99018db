#include "agent/commands/Progress.h"
#include "agent/tests/AgentProcess.h"
#include "agent/tests/Expected.h"
#include "agent/tests/RecordingBuilder.h"

#include <array>
#include <gmock/gmock.h>
#include <pty.h>
#include <unistd.h>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// What the shell's command line writes to a terminal of its own.
std::string
onTerminal(std::string const& line, int exitCode = 0) {
   int terminal = -1;
   pid_t const child = forkpty(&terminal, nullptr, nullptr, nullptr);
   if (child == 0) {
      execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
      _exit(127);
   }
   std::string written;
   std::array<char, 4096> buffer;
   // Reading fails once the last writer has gone.
   for (ssize_t got = 0; (got = read(terminal, buffer.data(), buffer.size())) > 0;) {
      written.append(buffer.data(), static_cast<std::size_t>(got));
   }
   close(terminal);
   int status = 0;
   waitpid(child, &status, 0);
   EXPECT_EQ(WEXITSTATUS(status), exitCode) << written;
   return written;
}

std::string
show() {
   return AGENT_BINARY " show destinations " + recordedFile("mixed", "dump.rnl.gz").string();
}

TEST(TerminalTest, ColourIsThereOnlyAndNotWithNoColor) {
   EXPECT_THAT(onTerminal("unset NO_COLOR; " + show()), HasSubstr("\x1b[32msuccess\x1b[0m"));
   EXPECT_THAT(onTerminal("NO_COLOR= " + show()), HasSubstr("\x1b[32m"));
   // Without the line of progress, which a slow machine shows.
   EXPECT_THAT(onTerminal("NO_COLOR=1 " + show() + " 2>/dev/null"), Not(HasSubstr("\x1b")));
   EXPECT_THAT(onTerminal("unset NO_COLOR; " + show() + " | cat"), Not(HasSubstr("\x1b[32m")));
}

TEST(TerminalTest, ErrorBeginsALineOfItsOwnAlsoWhileProgressIsShown) {
   auto const whole = rebuilt(recordedEvents("mixed")).bytes();
   TemporaryFile const cut;
   cut.write(whole.substr(0, whole.size() - 3));
   auto const half = std::to_string(whole.size() / 2);
   auto const file = cut.path().string();
   // The pause is longer than what is shown nothing of.
   auto const written = onTerminal("{ head -c " + half + " " + file + "; sleep 0.8; tail -c +$((" + half +
                                         " + 1)) " + file + "; } | " AGENT_BINARY " program -",
                                   3);
   EXPECT_THAT(written, AllOf(HasSubstr("standard input: "), HasSubstr(" rounds, ")));
   EXPECT_THAT(written, HasSubstr("\r\x1b[Kl3tunnel-agent: standard input: frame "));
}

/// A clock that stands until it is moved.
class ProgressTest : public testing::Test {
 protected:
   Progress::Time now{};
   std::vector<std::string> printed;
   Progress progress{[this](std::string const& text) { printed.push_back(text); }, [this] { return now; }};
};

TEST_F(ProgressTest, ShortWorkShowsNothing) {
   progress.at([] { return "started"; });
   now = Progress::first - Progress::Time(1);
   progress.at([]() -> std::string { throw std::logic_error("asked too early"); });
   progress.done();
   EXPECT_THAT(printed, IsEmpty());
}

TEST_F(ProgressTest, LongWorkShowsALineNowAndThenAndTakesItAway) {
   now = Progress::first;
   progress.at([] { return "one"; });
   now += Progress::between - Progress::Time(1);
   progress.at([] { return "too soon"; });
   now += Progress::Time(1);
   progress.at([] { return "two"; });
   progress.done();
   progress.done();
   EXPECT_THAT(printed, ElementsAre("\r\x1b[Kone", "\r\x1b[Ktwo", "\r\x1b[K"));
}

TEST_F(ProgressTest, WithoutATerminalItShowsNothing) {
   Progress nowhere;
   nowhere.at([]() -> std::string { throw std::logic_error("asked for nothing"); });
   nowhere.done();
   EXPECT_THAT(printed, IsEmpty());
}

} // namespace
} // namespace L3TunnelAgent
