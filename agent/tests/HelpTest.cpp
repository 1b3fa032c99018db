#include "agent/tests/AgentProcess.h"

#include <gmock/gmock.h>
#include <regex>
#include <set>

namespace L3TunnelAgent {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::IsSupersetOf;

std::filesystem::path const docs = AGENT_DOCS;

std::set<std::string>
matches(std::string const& text, std::string const& pattern) {
   std::set<std::string> all;
   std::regex const expression(pattern);
   for (std::sregex_iterator at(text.begin(), text.end(), expression); at != std::sregex_iterator(); ++at) {
      all.insert(at->str(1));
   }
   return all;
}

std::set<std::string>
commands() {
   return matches(runAgent("--help").out, "(?:^|\n)([a-z]+)\n  [a-z]");
}

std::set<std::string>
optionsOf(std::string const& help) {
   return matches(help, "(--[a-z][a-z-]*)");
}

/// What completion offers behind these words.
std::set<std::string>
completions(std::string const& words) {
   TemporaryFile const script;
   script.write("source " + (docs / "l3tunnel-agent.bash").string() +
                "\n"
                "COMP_WORDS=(" +
                words +
                ")\n"
                "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                "COMP_LINE=\"${COMP_WORDS[*]}\"\n"
                "COMP_POINT=${#COMP_LINE}\n"
                "_l3tunnel_agent l3tunnel-agent \"${COMP_WORDS[COMP_CWORD]}\"\n"
                "printf '%s\\n' \"${COMPREPLY[@]}\"\n");
   auto const outcome = runShell("bash --norc " + script.path().string());
   EXPECT_EQ(outcome.error, "") << words;
   return matches(outcome.out, "([^\n]+)");
}

TEST(HelpTest, NamesEveryCommandAndAllItsOptions) {
   auto const all = runAgent("--help").out;
   EXPECT_EQ(commands(), (std::set<std::string>{"audit", "diff", "explain", "lookup", "mark", "metrics",
                                                "monitor", "program", "record", "run", "show"}));
   for (auto const& command : commands()) {
      auto const help = runAgent(command + " --help");
      EXPECT_EQ(help.exitCode, 0);
      EXPECT_THAT(optionsOf(all), IsSupersetOf(optionsOf(help.out))) << command;
   }
   EXPECT_THAT(optionsOf(all),
               IsSupersetOf({"--chip-size", "--hash-seed", "--trace", "--unresolved", "--to-cpu", "--help",
                             "--version", "--until", "--json", "--rows", "--flow", "--spread", "--from",
                             "--to", "--running", "--control", "--delete"}));
}

TEST(HelpTest, ManPageNamesEveryCommandAndOption) {
   auto page = contentOf(docs / "l3tunnel-agent.1");
   for (std::size_t at = 0; (at = page.find("\\-", at)) != std::string::npos; ++at) {
      page.replace(at, 2, "-");
   }
   auto const all = runAgent("--help").out;
   EXPECT_EQ(optionsOf(page), optionsOf(all));
   EXPECT_EQ(matches(page, "\n\\.SS ([a-z]+)"), commands());
   for (auto const* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "EXIT STATUS",
                               "ENVIRONMENT", "EXAMPLES"}) {
      EXPECT_NE(page.find("\n.SH " + std::string(section) + "\n"), std::string::npos) << section;
   }
}

TEST(HelpTest, ManPageIsReadWithoutComplaint) {
   auto const outcome = runShell("groff -man -Tascii -ww -z " + (docs / "l3tunnel-agent.1").string());
   EXPECT_EQ(outcome.exitCode, 0);
   EXPECT_EQ(outcome.error, "");
}

TEST(HelpTest, CompletionOffersEveryCommandAndOption) {
   EXPECT_THAT(completions("l3tunnel-agent ''"), IsSupersetOf(commands()));
   auto const general = runAgent("--help").out;
   auto const globals = optionsOf(general.substr(0, general.find("\nSubcommands:")));
   EXPECT_EQ(completions("l3tunnel-agent --"), globals);
   for (auto const& command : commands()) {
      auto options = optionsOf(runAgent(command + " --help").out);
      options.insert(globals.begin(), globals.end());
      EXPECT_EQ(completions("l3tunnel-agent " + command + " --"), options) << command;
   }
}

TEST(HelpTest, CompletionKnowsValues) {
   EXPECT_THAT(completions("l3tunnel-agent show next"), Contains("next-hops"));
   EXPECT_EQ(completions("l3tunnel-agent --to-cpu p"), std::set<std::string>{"punt"});
   EXPECT_EQ(completions("l3tunnel-agent show --unresolved = in"), std::set<std::string>{"include"});
   EXPECT_EQ(completions("l3tunnel-agent --chip-size EgrL3O"), std::set<std::string>{"EgrL3Oif2="});
   EXPECT_EQ(completions("l3tunnel-agent --trace L"), std::set<std::string>{"L3UnderlayTunnel/"});
   EXPECT_THAT(completions("l3tunnel-agent program /de"), Contains("/dev"));
   EXPECT_THAT(completions("l3tunnel-agent --hash-seed ''"), IsEmpty());
   // The word behind an option's value is not taken for the command.
   EXPECT_THAT(completions("l3tunnel-agent --to-cpu drop sh"), Contains("show"));
}

/// The commands of a text's blocks of code, "$ l3tunnel-agent ...", each with the lines that it shows of the
/// command's output.
std::vector<std::pair<std::string, std::vector<std::string>>>
shownCommands(std::filesystem::path const& file) {
   std::vector<std::pair<std::string, std::vector<std::string>>> all;
   std::ifstream text(file);
   bool isShown = false;
   for (std::string line; std::getline(text, line);) {
      std::string const prompt = "$ l3tunnel-agent ";
      if (line.starts_with("```")) {
         isShown = false;
      } else if (line.starts_with(prompt)) {
         isShown = true;
         all.emplace_back(line.substr(prompt.size()), std::vector<std::string>());
      } else if (isShown && !line.empty() && line.find("...") == std::string::npos) {
         all.back().second.push_back(line);
      }
   }
   return all;
}

TEST(HelpTest, ReadmeShowsWhatTheAgentPrints) {
   auto const root = docs / "..";
   auto const all = shownCommands(root / "README.md");
   EXPECT_GE(all.size(), 4U);
   for (auto const& [command, lines] : all) {
      auto const outcome = runShell("cd " + root.string() + " && " AGENT_BINARY " --hash-seed 1 " + command);
      EXPECT_EQ(outcome.exitCode, 0) << command;
      EXPECT_GE(lines.size(), 5U) << command;
      std::size_t at = 0;
      for (auto const& line : lines) {
         auto const found = outcome.out.find(line + "\n", at);
         ASSERT_NE(found, std::string::npos) << "not there, or not in this order: " << line;
         at = found + line.size();
      }
   }
}

} // namespace
} // namespace L3TunnelAgent
