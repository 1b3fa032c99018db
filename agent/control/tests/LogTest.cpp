#include "agent/control/Log.h"
#include "agent/tests/TemporaryFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>

namespace L3TunnelAgent {
namespace {

class LogTest : public testing::Test {
 protected:
   std::string written;

   Log log(Log::Form form) {
      return Log(form, [this](std::string const& text) { written += text; });
   }
};

TEST_F(LogTest, PlainLinesNameTheProgram) {
   log(Log::Form::plain)(LogLevel::warning, "one\ntwo");
   EXPECT_EQ(written, "l3tunnel-agent: one\nl3tunnel-agent: two\n");
}

TEST_F(LogTest, JournalsLinesSayTheirLevel) {
   auto const journal = log(Log::Form::journal);
   journal(LogLevel::error, "one\ntwo");
   journal(LogLevel::warning, "three");
   journal(LogLevel::notice, "four");
   journal(LogLevel::info, "five");
   EXPECT_EQ(written, "<3>one\n<3>two\n<4>three\n<5>four\n<6>five\n");
}

TEST_F(LogTest, NamesCannotForgeLinesOrCommandATerminal) {
   log(Log::Form::journal)(LogLevel::info, "a\x1b[31m\r\xff");
   EXPECT_EQ(written, "<6>a\\x1b[31m\\x0d\\xff\n");
}

TEST_F(LogTest, JournalIsKnownByItsFile) {
   TemporaryFile const file;
   int const descriptor = open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
   struct stat status {};
   ASSERT_EQ(fstat(descriptor, &status), 0);
   auto const device = std::to_string(status.st_dev);
   auto const number = std::to_string(status.st_ino);
   auto const formWith = [&](std::string const& stream) {
      setenv("JOURNAL_STREAM", stream.c_str(), 1);
      auto const form = logFormOf(descriptor);
      unsetenv("JOURNAL_STREAM");
      return form;
   };
   EXPECT_EQ(formWith(device + ":" + number), Log::Form::journal);
   EXPECT_EQ(formWith(device + ":" + std::to_string(status.st_ino + 1)), Log::Form::plain);
   EXPECT_EQ(formWith(std::to_string(status.st_dev + 1) + ":" + number), Log::Form::plain);
   for (auto const& wrong : {std::string(), std::string(":"), device, device + ":", ":" + number,
                             device + ":" + number + "x", device + " :" + number}) {
      EXPECT_EQ(formWith(wrong), Log::Form::plain) << wrong;
   }
   EXPECT_EQ(logFormOf(descriptor), Log::Form::plain);
   EXPECT_EQ(logFormOf(-1), Log::Form::plain);
   close(descriptor);
}

} // namespace
} // namespace L3TunnelAgent
