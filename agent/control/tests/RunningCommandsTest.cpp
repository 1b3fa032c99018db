#include "agent/control/tests/ServedAgent.h"
#include "agent/control/tests/TestClient.h"
#include "agent/tests/AgentProcess.h"
#include "platform/nuv/Hash.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The agent that is served here, asked by the real program, and the same of its recording.
class RunningCommandsTest : public testing::Test {
 protected:
   static std::string events() { return recordedEvents("mixed").string(); }

   Outcome running(std::string const& arguments) const {
      return runAgent(arguments + " --control " + served.path());
   }

   /// What a process with this one's hash seed says of the recording up to the snapshot that was played to.
   static Outcome recorded(std::string const& arguments) {
      return runAgent("--hash-seed " + std::to_string(Nuv::hashSeed()) + " " + arguments);
   }

   void expectSame(std::string const& command, std::string const& behind = "",
                   std::string const& options = "") const {
      auto const asked = running(command + " " + behind + " " + options);
      auto const played =
            recorded(command + " --until " + firstSnapshot + " " + events() + " " + behind + " " + options);
      EXPECT_EQ(asked.exitCode, played.exitCode) << command << asked.error;
      EXPECT_EQ(asked.out, played.out) << command;
      EXPECT_EQ(asked.error, "") << command;
      EXPECT_FALSE(asked.out.empty()) << command;
   }

   void expectUsageError(std::string const& arguments, std::string const& text) const {
      auto const outcome = running(arguments);
      EXPECT_EQ(outcome.exitCode, 2) << arguments;
      EXPECT_THAT(outcome.error, AllOf(StartsWith("l3tunnel-agent: "), HasSubstr(text))) << arguments;
      EXPECT_EQ(outcome.out, "") << arguments;
   }

   ServedAgent served;
};

TEST(RunningCommands, ReaderThatPausesGetsTheWholeAnswer) {
   ControlService::Settings settings;
   settings.limits.readTime = std::chrono::milliseconds(1000);
   ServedAgent served("big", settings);
   auto const command = std::string(AGENT_BINARY) +
                        " show --json --rows destinations groups handles --control " + served.path();
   auto const expected = runShell(command);
   EXPECT_GT(expected.out.size(), 1U << 19U) << "a pipe and a socket could hold it";
   auto const paused = runShell("{ " + command + " || echo failed; } | { sleep 4; cat; }");
   EXPECT_TRUE(paused.out == expected.out) << paused.out.size() << " bytes of " << expected.out.size();
}

TEST_F(RunningCommandsTest, ShowSaysTheSameAsOfTheRecording) {
   expectSame("show");
   expectSame("show --rows");
   for (auto const* section :
        {"destinations", "groups", "blocks", "next-hops", "interfaces", "tables", "allocators", "handles"}) {
      expectSame("show " + std::string(section));
   }
   expectSame("show groups blocks");
}

TEST_F(RunningCommandsTest, JsonIsTheSameButForTheRecording) {
   for (auto const* what : {"", "destinations", "handles tables"}) {
      auto const options = std::string(" --json --rows ");
      auto const asked = running("show " + std::string(what) + options);
      auto const played =
            recorded("show " + std::string(what) + options + events() + " --until " + firstSnapshot);
      auto expected = nlohmann::ordered_json::parse(played.out);
      EXPECT_EQ(expected.at("recording"), events());
      expected["recording"] = nullptr;
      EXPECT_EQ(asked.out, expected.dump(1) + "\n") << what;
   }
}

TEST_F(RunningCommandsTest, ExplainLookupAndAuditSayTheSame) {
   for (auto const* destination : {"10.255.1.2", "10.255.99.7", "10.255.99.8", "192.0.2.1"}) {
      expectSame("explain", destination);
      expectSame("lookup", destination);
   }
   expectSame("lookup", "10.255.1.2", "--flow sport=50000 --spread 1000");
   expectSame("audit");
}

TEST_F(RunningCommandsTest, DiffOfMarksIsThatOfSnapshots) {
   EXPECT_EQ(running("mark before").exitCode, 0);
   served.playTo("01-swp1-down");
   EXPECT_EQ(running("mark after").exitCode, 0);
   auto const played = recorded("diff " + events() + " --from " + firstSnapshot + " --to 01-swp1-down");
   EXPECT_EQ(played.exitCode, 0);
   EXPECT_EQ(running("diff --from before --to after").out, played.out);
   EXPECT_EQ(running("diff --from before").out, played.out);
   // What comes behind the second mark does not show.
   served.playTo("02-swp1-up");
   EXPECT_EQ(running("diff --from before --to after").out, played.out);
   EXPECT_NE(running("diff --from before").out, played.out);
   EXPECT_THAT(running("diff --from after --to after").out, HasSubstr("DESTINATIONS that differ: 0"));
   expectUsageError("diff --from after --to before", "--to before: that mark was set before after");
   expectUsageError("diff --from nothing",
                    "--from nothing: the running agent has no such mark; it has\n  before");
   expectUsageError("diff", "--from");
}

TEST_F(RunningCommandsTest, MarksAreShownMovedAndDeleted) {
   EXPECT_THAT(running("mark").out, HasSubstr("(none)"));
   EXPECT_EQ(running("mark one").out, "");
   EXPECT_THAT(running("mark").out, AllOf(HasSubstr("  one   20"), HasSubstr("Z  54 ")));
   EXPECT_EQ(running("mark --delete one").exitCode, 0);
   auto const gone = running("mark --delete one");
   EXPECT_EQ(gone.exitCode, 1);
   EXPECT_EQ(gone.out, "There is no mark one.\n");
   expectUsageError("mark --delete", "NAME is required");
   expectUsageError("mark ''", "printable characters");
   expectUsageError("mark " + std::string(65, 'x'), "printable characters");
   for (std::size_t count = 0; count < Marks::most; ++count) {
      EXPECT_EQ(running("mark m" + std::to_string(count)).exitCode, 0);
   }
   expectUsageError("mark more", "mark more: there are 8 marks already");
   EXPECT_EQ(running("mark m3").exitCode, 0) << "one that is there moves";
}

TEST_F(RunningCommandsTest, ExitCodesAndErrorsComeThrough) {
   EXPECT_EQ(running("explain 192.0.2.1").exitCode, 1);
   expectUsageError("show gruops", "show gruops: is none of destinations");
   expectUsageError("explain nowhere", "DESTINATION nowhere: is no IP address");
   expectUsageError("explain", "DESTINATION is required");
   expectUsageError("lookup 10.255.1.2 --flow src", "--flow src");
   expectUsageError("lookup 10.255.1.2 --spread 0", "--spread");
   EXPECT_EQ(running("lookup 10.255.1.2 --spread 10000").exitCode, 0);
   expectUsageError("lookup 10.255.1.2 --spread 10001", "--spread 10001: is 1 to 10000 of the running agent");
}

TEST_F(RunningCommandsTest, NothingIsReadForARequest) {
   expectUsageError("audit " + events(), events() + ": the running agent is asked, which reads no RECORDING");
   expectUsageError("audit -", "-: the running agent is asked, which reads no RECORDING");
   expectUsageError("explain " + events() + " 10.255.1.2", "reads no RECORDING");
   expectUsageError("diff " + events() + " --from a", "reads no RECORDING");
   expectUsageError("show " + events(), "is none of");
   expectUsageError("audit --until 00-initial", "--until: the running agent has no snapshots");
   // The program itself would not send these.
   auto const answer = answerTo(served.path(), {"program", events()});
   EXPECT_EQ(answer.exitCode, 2);
   EXPECT_EQ(answer.complaint, "that command is not for the running agent");
   EXPECT_EQ(answerTo(served.path(), {"audit"}).exitCode, 0)
         << "whoever asks over the socket means the agent";
}

TEST_F(RunningCommandsTest, TheProcessIsNotChanged) {
   for (auto const* option : {"--trace L3UnderlayTunnel/all", "--hash-seed 7", "--chip-size EgrL3Oif2=7",
                              "--unresolved include", "--to-cpu drop"}) {
      expectUsageError(std::string("audit ") + option, "is for an agent that starts, and this one runs");
      expectUsageError(std::string(option) + " audit", "is for an agent that starts, and this one runs");
   }
}

TEST_F(RunningCommandsTest, HelpAndVersionAreAnsweredByTheProgramItself) {
   EXPECT_EQ(running("show --help").exitCode, 0);
   // And by an agent that is asked all the same, without touching its own output.
   auto const help = answerTo(served.path(), {"--help"});
   EXPECT_EQ(help.exitCode, 0);
   EXPECT_THAT(help.output, HasSubstr("Usage: l3tunnel-agent"));
}

TEST_F(RunningCommandsTest, HostileWordsDoNotReachTheTerminal) {
   for (auto const& words : std::vector<std::vector<std::string>>{{"\x1b[31m"},
                                                                  {"show", "\x1b[31m"},
                                                                  {"mark", "\x1b[31m"},
                                                                  {"--\x1b[31m"},
                                                                  {"explain", "\x1b"},
                                                                  {"diff", "--from", "\x1b"},
                                                                  {},
                                                                  {""},
                                                                  {"show", "audit", "--"}}) {
      auto const answer = answerTo(served.path(), words);
      EXPECT_EQ(answer.exitCode, 2);
      EXPECT_THAT(answer.complaint + answer.output, Not(HasSubstr("\x1b")));
   }
}

TEST_F(RunningCommandsTest, ColourIsTheClients) {
   TestClient const client(served.path());
   client.send(bytesOf(Request{.words = {"show", "destinations"}, .isColoured = true}));
   EXPECT_THAT(saidAnswer(client.all()).output, HasSubstr("\x1b[32msuccess\x1b[0m"));
   EXPECT_THAT(answerTo(served.path(), {"show", "destinations"}).output, Not(HasSubstr("\x1b")));
}

TEST(AbsentAgentTest, NobodyToAskIsAFaultThatNamesTheSocket) {
   TemporaryFolder const folder;
   auto const outcome = runAgent("show --control " + (folder / "control"));
   EXPECT_EQ(outcome.exitCode, 4);
   EXPECT_THAT(outcome.error, AllOf(HasSubstr(folder / "control"), HasSubstr("no agent runs there")));
   auto const byFolder =
         runShell("RUNTIME_DIRECTORY=" + (folder / "x") + " " AGENT_BINARY " audit --running");
   EXPECT_EQ(byFolder.exitCode, 4);
   EXPECT_THAT(byFolder.error, HasSubstr(folder / "x/control"));
}

} // namespace
} // namespace L3TunnelAgent
