#include "agent/tests/Expected.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <sys/wait.h>

namespace L3TunnelAgent {
namespace {

using testing::HasSubstr;

struct Outcome {
   int exitCode;
   std::string output; // both streams
};

Outcome
run(std::string const& arguments) {
   std::string command = std::string(AGENT_BINARY) + " " + arguments + " 2>&1";
   FILE* pipe = popen(command.c_str(), "r");
   std::string output;
   char buffer[4096];
   while (auto count = std::fread(buffer, 1, sizeof buffer, pipe)) {
      output.append(buffer, count);
   }
   int status = pclose(pipe);
   return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(CommandTest, ProcessesWithOneSeedPrintTheSame) {
   auto recording = recordedFile("mixed", "dump.rnl.gz").string();
   auto first = run("program --hash-seed 5 " + recording);
   auto second = run("program --hash-seed 5 " + recording);
   EXPECT_EQ(first.exitCode, 0) << first.output;
   EXPECT_THAT(first.output, HasSubstr("54 tunnel destinations"));
   EXPECT_EQ(first.output, second.output);
   bool anyDiffers = false;
   for (int seed = 6; seed < 12; ++seed) {
      anyDiffers =
            anyDiffers ||
            run("program --hash-seed " + std::to_string(seed) + " " + recording).output != first.output;
   }
   EXPECT_TRUE(anyDiffers) << "the seed decides nothing";
}

TEST(CommandTest, FileThatIsNoRecordingIsAnErrorThatNamesIt) {
   auto outcome = run("program /nonexistent/recording");
   EXPECT_EQ(outcome.exitCode, 1);
   EXPECT_THAT(outcome.output, HasSubstr("l3tunnel-agent: /nonexistent/recording"));
}

TEST(CommandTest, WrongUseIsRefused) {
   EXPECT_NE(run("").exitCode, 0);
   EXPECT_NE(run("program").exitCode, 0);
   EXPECT_NE(run("program --hash-seed one x").exitCode, 0);
   auto help = run("--help");
   EXPECT_EQ(help.exitCode, 0);
   EXPECT_THAT(help.output, HasSubstr("program"));
}

} // namespace
} // namespace L3TunnelAgent
