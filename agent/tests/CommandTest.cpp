#include "agent/control/tests/TemporaryFolder.h"
#include "agent/tests/AgentProcess.h"
#include "agent/tests/Expected.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::string
dump(std::string const& fabric = "mixed") {
   return recordedFile(fabric, "dump.rnl.gz").string();
}

std::string
events() {
   return recordedEvents("mixed").string();
}

void
expectUsageError(std::string const& arguments, std::string const& text) {
   auto const outcome = runAgent(arguments);
   EXPECT_EQ(outcome.exitCode, 2) << arguments;
   EXPECT_THAT(outcome.error, AllOf(StartsWith("l3tunnel-agent: "), HasSubstr(text))) << arguments;
   EXPECT_EQ(outcome.out, "") << arguments;
}

TEST(CommandTest, ProgramSumsUp) {
   auto const outcome = runAgent("program " + dump());
   EXPECT_EQ(outcome.exitCode, 0);
   EXPECT_EQ(outcome.error, "");
   EXPECT_THAT(outcome.out, AllOf(HasSubstr("54 tunnel destinations over 198 vias"), HasSubstr("success")));
}

TEST(CommandTest, ProcessesWithOneSeedPrintTheSame) {
   auto const first = runAgent("show --hash-seed 5 " + dump());
   EXPECT_EQ(first.exitCode, 0) << first.error;
   EXPECT_EQ(runAgent("show --hash-seed 5 " + dump()).out, first.out);
   bool anyDiffers = false;
   for (int seed = 6; seed < 12; ++seed) {
      anyDiffers = anyDiffers ||
                   runAgent("show --hash-seed " + std::to_string(seed) + " " + dump()).out != first.out;
   }
   EXPECT_TRUE(anyDiffers) << "the seed decides nothing";
}

TEST(CommandTest, RecordingMayComeByStandardInput) {
   auto const byName = runAgent("program --json --hash-seed 1 " + dump());
   auto const plain = runShell("gzip -cd " + dump() + " | " AGENT_BINARY " program --json --hash-seed 1 -");
   auto const packed = runShell("cat " + dump() + " | " AGENT_BINARY " program --json --hash-seed 1 -");
   EXPECT_EQ(plain.exitCode, 0) << plain.error;
   EXPECT_EQ(plain.out, packed.out);
   auto expected = nlohmann::json::parse(byName.out);
   expected["recording"] = "-";
   EXPECT_EQ(nlohmann::json::parse(plain.out), expected);
   EXPECT_EQ(runShell("cat " + dump() + " | " AGENT_BINARY " show groups -").exitCode, 0);
}

TEST(CommandTest, WhatCannotBeReadIsBadInputThatIsNamed) {
   TemporaryFile const file;
   file.write("no recording");
   for (auto const* command : {"program", "show groups", "audit"}) {
      auto const outcome = runAgent(std::string(command) + " " + file.path().string());
      EXPECT_EQ(outcome.exitCode, 3) << command;
      EXPECT_THAT(outcome.error, HasSubstr(file.path().string())) << command;
      EXPECT_EQ(outcome.out, "") << command;
   }
   auto const missing = runAgent("program /nonexistent/recording");
   EXPECT_EQ(missing.exitCode, 3);
   EXPECT_THAT(missing.error, StartsWith("l3tunnel-agent: /nonexistent/recording"));
   EXPECT_EQ(runAgent("program - </dev/null").exitCode, 3);
   EXPECT_EQ(runAgent("lookup /nonexistent 10.0.0.1").exitCode, 3);
   EXPECT_EQ(runAgent("explain /nonexistent 10.0.0.1").exitCode, 3);
   EXPECT_EQ(runAgent("diff /nonexistent --from a --to b").exitCode, 3);
}

TEST(CommandTest, RecordingThatEndsWithinAFrameIsBadInput) {
   auto const outcome = runShell("gzip -cd " + dump() + " | head -c 5000 | " AGENT_BINARY " program -");
   EXPECT_EQ(outcome.exitCode, 3);
   EXPECT_THAT(outcome.error, HasSubstr("frame"));
}

TEST(CommandTest, WrongUseIsRefused) {
   expectUsageError("", "subcommand");
   expectUsageError("program", "RECORDING");
   expectUsageError("nonsense", "nonsense: is no command");
   expectUsageError("program --no-such-option x", "--no-such-option");
   expectUsageError("program a b", "b");
   expectUsageError("program --until", "--until");
   expectUsageError("diff " + events() + " --from 00-initial", "--to");
   expectUsageError("lookup " + dump(), "DESTINATION");
}

TEST(CommandTest, WrongValuesAreNamed) {
   expectUsageError("program --hash-seed one x", "one");
   expectUsageError("program --hash-seed 4294967296 x", "4294967296");
   expectUsageError("program --unresolved maybe x", "maybe");
   expectUsageError("program --to-cpu maybe x", "maybe");
   expectUsageError("--chip-size 7 program x", "--chip-size 7: is not of the form TABLE=ROWS");
   expectUsageError("--chip-size Nothing=7 program x",
                    "--chip-size Nothing=7: the chip has no such table; it has");
   expectUsageError("--chip-size EgrL3Oif2=many program x", "rows is a number from 0 to 1048576");
   expectUsageError("--chip-size EgrL3Oif2=1048577 program x", "rows is a number from 0 to 1048576");
   expectUsageError("--chip-size EgrL3Oif2=-1 program x", "rows is a number from 0 to 1048576");
   expectUsageError("--trace L3UnderlayTunnel program " + dump(), "is not of the form HANDLE/LEVELS");
   expectUsageError("--trace Other/5 program " + dump(), "there is L3UnderlayTunnel");
   for (auto const* levels : {"", "32", "7-5", "5,", "x", "5-", "all,5"}) {
      expectUsageError(std::string("--trace L3UnderlayTunnel/") + levels + " program " + dump(),
                       "levels are");
   }
   expectUsageError("show gruops " + dump(), "show gruops: is none of destinations, groups");
   expectUsageError("show " + dump() + " groups", "is none of");
   expectUsageError("explain " + dump() + " 10.0.0.256", "DESTINATION 10.0.0.256");
   expectUsageError("lookup " + dump() + " nowhere", "DESTINATION nowhere");
   expectUsageError("lookup " + dump() + " 10.255.1.2 --spread 0", "--spread");
   expectUsageError("lookup " + dump() + " 10.255.1.2 --spread 1000001", "--spread");
}

TEST(CommandTest, ValueThatIsMissingOrGivenTwiceIsNamed) {
   expectUsageError("program x --to-cpu", "--to-cpu: needs a value: punt|drop");
   expectUsageError("program x --hash-seed", "--hash-seed: needs a value: NUMBER");
   expectUsageError("program x --chip-size", "--chip-size: needs a value: TABLE=ROWS");
   expectUsageError("program --hash-seed abc x", "--hash-seed: Value abc not in range 0 to 4294967295");
   expectUsageError("program --hash-seed 4294967296 x", "not in range 0 to 4294967295");
   expectUsageError("--chip-size EgrL3Oif2=5 --chip-size EgrL3Oif2=6 program x",
                    "--chip-size EgrL3Oif2=6: EgrL3Oif2 has its rows already");
}

TEST(CommandTest, SectionsWithoutARecordingAreNoRecording) {
   TemporaryFolder const folder;
   auto const show = "cd " + folder / "" + "; " AGENT_BINARY " show ";
   for (auto const* sections : {"destinations", "groups destinations"}) {
      auto const outcome = runShell(show + sections);
      EXPECT_EQ(outcome.exitCode, 2) << sections;
      EXPECT_THAT(outcome.error, HasSubstr("RECORDING is required, or --running")) << sections;
   }
   std::filesystem::copy_file(dump(), folder / "destinations");
   EXPECT_EQ(runShell(show + "destinations").exitCode, 0) << "a file of that name";
   EXPECT_EQ(runShell(show + "groups destinations").exitCode, 0);
}

TEST(CommandTest, WrongFlowsAreNamed) {
   auto const lookup = "lookup " + dump() + " 10.255.1.2 --flow ";
   expectUsageError(lookup + "src", "'src' is not of the form KEY=VALUE");
   expectUsageError(lookup + "src=10.0.0.1,", "is not of the form KEY=VALUE");
   expectUsageError(lookup + "src=here", "'src=here': src is an IP address");
   expectUsageError(lookup + "sport=65536", "'sport=65536': sport is a number from 0 to 65535");
   expectUsageError(lookup + "proto=256", "proto is a number from 0 to 255");
   expectUsageError(lookup + "ttl=1", "'ttl' is none of src, dst, proto, sport, dport");
   expectUsageError(lookup + "src=fe80::1", "not of one family");
}

TEST(CommandTest, SnapshotThatIsNotThereIsAnErrorThatListsThose) {
   expectUsageError("program " + events() + " --until 99-nothing",
                    "--until 99-nothing: " + events() + " has no such snapshot; it has\n  00-initial\n");
   expectUsageError("program " + events() + " --until 00", "has no such snapshot");
   expectUsageError("diff " + events() + " --from nothing --to 01-swp1-down", "--from nothing: ");
   expectUsageError("diff " + events() + " --from 01-swp1-down --to nothing", "--to nothing: ");
   expectUsageError("diff " + events() + " --from 01-swp1-down --to 00-initial", "has that snapshot earlier");
   expectUsageError("program " + dump() + " --until 00-initial", "has no snapshots");
}

TEST(CommandTest, UntilStopsAtTheSnapshot) {
   for (auto const* command : {"program", "show", "audit"}) {
      auto const outcome = runAgent(std::string(command) + " --until 00-initial " + events());
      EXPECT_EQ(outcome.exitCode, 0) << command << outcome.error;
   }
   auto const early = nlohmann::json::parse(runAgent("program --json --until 00-initial " + events()).out);
   auto const late = nlohmann::json::parse(runAgent("program --json " + events()).out);
   EXPECT_LT(early.at("summary").at("rounds"), late.at("summary").at("rounds"));
   EXPECT_EQ(runAgent("explain --until 00-initial " + events() + " 10.255.1.2").exitCode, 0);
   EXPECT_EQ(runAgent("lookup --until 00-initial " + events() + " 10.255.1.2").exitCode, 0);
}

TEST(CommandTest, LookupAndExplainSayNoByTheirExitCode) {
   auto const unknown = runAgent("explain " + dump() + " 192.0.2.1");
   EXPECT_EQ(unknown.exitCode, 1);
   EXPECT_EQ(unknown.out, "192.0.2.1 is no tunnel destination.\n");
   EXPECT_EQ(runAgent("explain " + dump() + " 10.255.99.8").exitCode, 0);
   auto const lookup = runAgent("lookup " + dump() + " 192.0.2.1");
   EXPECT_EQ(lookup.exitCode, 1);
   EXPECT_THAT(lookup.out, HasSubstr("not forwarded: it is no tunnel destination"));
   EXPECT_THAT(runAgent("lookup " + dump() + " 10.255.99.8").out, HasSubstr("it has no group: no route"));
   EXPECT_EQ(runAgent("lookup " + dump() + " 10.255.99.8").exitCode, 1);
}

TEST(CommandTest, AuditOfWhatWasJustProgrammedFindsNothing) {
   for (auto const* fabric : {"small", "mixed", "mixed-inline"}) {
      auto const outcome = runAgent("audit " + dump(fabric));
      EXPECT_EQ(outcome.exitCode, 0) << fabric;
      EXPECT_THAT(outcome.out, HasSubstr("rows compared: none differs")) << fabric;
   }
   EXPECT_EQ(runAgent("audit " + events()).exitCode, 0);
}

TEST(CommandTest, GlobalOptionsStandBeforeAndBehindTheCommand) {
   auto const before = runAgent("--hash-seed 3 --to-cpu drop show next-hops " + dump());
   auto const behind = runAgent("show next-hops " + dump() + " --to-cpu drop --hash-seed 3");
   EXPECT_EQ(before.exitCode, 0) << before.error;
   EXPECT_EQ(before.out, behind.out);
}

TEST(CommandTest, PacketsForTheCpuGoThereOrAreDropped) {
   EXPECT_THAT(runAgent("show next-hops " + dump()).out, HasSubstr(" cpu "));
   EXPECT_THAT(runAgent("--to-cpu drop show next-hops " + dump()).out, Not(HasSubstr(" cpu ")));
   EXPECT_THAT(runAgent("lookup --to-cpu drop " + dump() + " 10.255.1.1").out,
               HasSubstr("The packet is dropped"));
   EXPECT_THAT(runAgent("lookup " + dump() + " 10.255.1.1").out, HasSubstr("The packet goes to the CPU"));
}

TEST(CommandTest, UnresolvedViasAreLeftOutOrNot) {
   auto const paths = [](std::string const& option) {
      auto const json = nlohmann::json::parse(runAgent("program --json " + option + " " + dump()).out);
      for (auto const& destination : json.at("destinations")) {
         if (destination.at("vtep") == "10.255.99.7") {
            return destination.at("block").at("size").get<int>();
         }
      }
      return 0;
   };
   EXPECT_EQ(paths(""), 1);
   EXPECT_EQ(paths("--unresolved=exclude"), 1);
   EXPECT_EQ(paths("--unresolved=include"), 2);
}

TEST(CommandTest, ChipSizesLeaveDestinationsOutAndSayWhy) {
   auto const outcome =
         runAgent("--chip-size L3EcmpGroup0Table=8 --chip-size EgrL3Oif2=100 program " + dump());
   EXPECT_EQ(outcome.exitCode, 0);
   EXPECT_THAT(outcome.out,
               AllOf(HasSubstr("8 of       8"), HasSubstr("0 of     100"), HasSubstr("FAILED DESTINATIONS"),
                     HasSubstr("no group index is free"), HasSubstr("  and 37 more\n")));
   for (auto const* table : {"EgrL3Oif2", "IngL3NextHop2Table", "EgrL3NextHop2", "L3EcmpMember0Table",
                             "L3UnderlayEcmpMember1Table", "L3EcmpGroup0Table"}) {
      for (auto const* rows : {"0", "1", "2"}) {
         auto const size = std::string(table) + "=" + rows;
         auto const audit = runAgent("--chip-size " + size + " audit " + dump());
         EXPECT_EQ(audit.exitCode, 0) << size << "\n" << audit.out << audit.error;
      }
   }
}

TEST(CommandTest, TraceGoesToStandardErrorByLevel) {
   auto const plain = runAgent("show groups --hash-seed 1 " + dump());
   auto const traced = runAgent("show groups --hash-seed 1 --trace L3UnderlayTunnel/4,6-7 " + dump());
   EXPECT_EQ(traced.out, plain.out);
   EXPECT_THAT(traced.error, AllOf(HasSubstr("L3UnderlayTunnel/4 "), HasSubstr("L3UnderlayTunnel/7 "),
                                   Not(HasSubstr("L3UnderlayTunnel/5 "))));
   EXPECT_THAT(runAgent("show groups --trace L3UnderlayTunnel/all " + dump()).error,
               HasSubstr("L3UnderlayTunnel/5 "));
   EXPECT_EQ(plain.error, "");
}

TEST(CommandTest, HostileArgumentsAreErrorsThatDoNotReachTheTerminal) {
   auto const escape = std::string("\"$(printf '\\033[31m\\007')\"");
   for (auto const& arguments :
        {"show " + escape + " x", "--chip-size " + escape + " program x", "--trace " + escape + " program x",
         "explain x " + escape, "program " + events() + " --until " + escape,
         "lookup x 10.0.0.1 --flow " + escape, "program --" + escape}) {
      auto const outcome = runAgent(arguments);
      EXPECT_EQ(outcome.exitCode, 2) << arguments;
      EXPECT_THAT(outcome.error, Not(HasSubstr("\x1b"))) << arguments;
   }
   EXPECT_EQ(runAgent("program " + std::string(5000, 'x')).exitCode, 3);
   EXPECT_EQ(runAgent("program --until " + std::string(100000, 'x') + " " + events()).exitCode, 2);
   EXPECT_EQ(runAgent("program ''").exitCode, 3);
   EXPECT_EQ(runAgent("program /").exitCode, 3);
}

TEST(CommandTest, OutputThatCannotBeWrittenIsAFault) {
   auto const outcome = runAgent("show " + dump() + " >/dev/full");
   EXPECT_EQ(outcome.exitCode, 4);
   EXPECT_THAT(outcome.error, HasSubstr("standard output"));
}

TEST(CommandTest, VersionAndHelpAreAnswers) {
   auto const version = runAgent("--version");
   EXPECT_EQ(version.exitCode, 0);
   EXPECT_THAT(version.out, StartsWith("l3tunnel-agent "));
   for (auto const* help : {"--help", "-h", "program --help", "show -h", "diff --help"}) {
      auto const outcome = runAgent(help);
      EXPECT_EQ(outcome.exitCode, 0) << help;
      EXPECT_THAT(outcome.out, HasSubstr("Usage: l3tunnel-agent")) << help;
      EXPECT_EQ(outcome.error, "") << help;
   }
}

TEST(CommandTest, NoColourWithoutATerminal) {
   for (auto const* command : {"program ", "show ", "audit "}) {
      EXPECT_THAT(runAgent(command + dump()).out, Not(HasSubstr("\x1b"))) << command;
   }
}

} // namespace
} // namespace L3TunnelAgent
