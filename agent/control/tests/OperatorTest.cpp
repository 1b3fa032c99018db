#include "agent/control/tests/TemporaryFolder.h"
#include "agent/control/tests/TestClient.h"
#include "agent/tests/AgentProcess.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/un.h>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

/// The real agent following the kernel of this machine, started as a service manager would.
class RunningProcess {
 public:
   RunningProcess(TemporaryFolder const& folder, std::vector<std::string> arguments)
       : log_(folder / "log"), child_(fork()) {
      if (child_ != 0) {
         return;
      }
      int const log = open(log_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dup2(log, STDERR_FILENO);
      std::vector<char*> words{const_cast<char*>(AGENT_BINARY), const_cast<char*>("run")};
      for (auto& argument : arguments) {
         words.push_back(argument.data());
      }
      words.push_back(nullptr);
      execv(AGENT_BINARY, words.data());
      _exit(127);
   }
   RunningProcess(RunningProcess const&) = delete;
   RunningProcess& operator=(RunningProcess const&) = delete;
   ~RunningProcess() {
      if (child_ > 0) {
         signal(SIGKILL);
         ended();
      }
   }

   void signal(int number) const { kill(child_, number); }

   /// Waits for the end; the exit code, or the number of the signal below zero.
   int ended() {
      int status = 0;
      waitpid(std::exchange(child_, -1), &status, 0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
   }

   std::string log() const { return contentOf(log_); }

 private:
   std::string log_;
   pid_t child_;
};

/// Also what the service manager hears.
class OperatorTest : public testing::Test {
 protected:
   OperatorTest() : manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
      timeval const patience{.tv_sec = 30, .tv_usec = 0};
      setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      auto const name = folder / "notify";
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      name.copy(address.sun_path, sizeof address.sun_path - 1);
      EXPECT_EQ(bind(manager, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
      setenv("NOTIFY_SOCKET", name.c_str(), 1);
   }
   ~OperatorTest() override {
      unsetenv("NOTIFY_SOCKET");
      close(manager);
   }

   /// The next that the manager hears, but for the watchdog.
   std::string heard() const {
      std::array<char, 1024> buffer;
      while (true) {
         auto const got = recv(manager, buffer.data(), buffer.size(), 0);
         std::string const text(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
         if (text != "WATCHDOG=1") {
            return text;
         }
      }
   }

   Outcome asked(std::string const& command) const { return runAgent(command + " --control " + control); }

   TemporaryFolder folder;
   std::string control = folder / "control";
   int manager;
};

TEST_F(OperatorTest, ServiceLivesAsItsManagerExpects) {
   RunningProcess agent(folder, {"--control", control});
   EXPECT_THAT(heard(), MatchesRegex("READY=1\nSTATUS=[0-9]+ tunnel destinations? programmed from .*"));
   auto const audit = asked("audit");
   EXPECT_EQ(audit.exitCode, 0) << audit.error;
   EXPECT_EQ(asked("show --json").exitCode, 0);
   EXPECT_THAT(asked("metrics").out, HasSubstr("\nl3tunnel_reconciliations_total "));
   agent.signal(SIGHUP);
   EXPECT_THAT(heard(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
   EXPECT_THAT(heard(), StartsWith("READY=1\n"));
   agent.signal(SIGTERM);
   EXPECT_EQ(heard(), "STOPPING=1");
   EXPECT_EQ(agent.ended(), 0) << agent.log();
   EXPECT_FALSE(std::filesystem::exists(control));
   EXPECT_THAT(agent.log(), HasSubstr("l3tunnel-agent: "));
}

TEST_F(OperatorTest, InterruptEndsItAlsoWithClients) {
   RunningProcess agent(folder, {"--control", control});
   heard();
   TestClient monitor(control);
   monitor.ask({"monitor"});
   monitor.textTo("changes follow");
   TestClient const silent(control);
   agent.signal(SIGINT);
   EXPECT_EQ(agent.ended(), 0);
   EXPECT_EQ(monitor.some(), "");
}

TEST_F(OperatorTest, SuccessorOfAKilledAgentTakesItsPlaceAndALiveOneKeepsIt) {
   {
      RunningProcess agent(folder, {"--control", control});
      heard();
      agent.signal(SIGKILL);
      EXPECT_EQ(agent.ended(), -SIGKILL);
   }
   EXPECT_TRUE(std::filesystem::exists(control));
   EXPECT_EQ(asked("audit").exitCode, 4);
   RunningProcess agent(folder, {"--control", control});
   heard();
   EXPECT_EQ(asked("audit").exitCode, 0);
   RunningProcess other(folder, {"--control", control});
   EXPECT_EQ(other.ended(), 4);
   EXPECT_THAT(other.log(), HasSubstr(control + ": another agent listens there"));
   EXPECT_EQ(asked("audit").exitCode, 0);
}

TEST_F(OperatorTest, WatchdogHearsOfTheLoop) {
   setenv("WATCHDOG_USEC", "100000", 1);
   RunningProcess const agent(folder, {"--control", "none"});
   unsetenv("WATCHDOG_USEC");
   heard();
   std::array<char, 1024> buffer;
   for (int count = 0; count < 3; ++count) {
      auto const got = recv(manager, buffer.data(), buffer.size(), 0);
      EXPECT_EQ(std::string(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0), "WATCHDOG=1");
   }
}

TEST_F(OperatorTest, SocketModeAndWrongOptions) {
   {
      RunningProcess const agent(folder, {"--control", control, "--control-mode", "0660"});
      heard();
      EXPECT_EQ(std::filesystem::status(control).permissions(), std::filesystem::perms(0660));
   }
   for (auto const& [options, reason] : std::vector<std::pair<std::string, std::string>>{
              {"--control-mode 1777", "--control-mode 1777: is no octal number"},
              {"--control-mode 8", "--control-mode 8: is no octal number"},
              {"--metrics-port 0", "--metrics-port"},
              {"--metrics-port 65536", "--metrics-port"}}) {
      auto const outcome = runAgent("run --control " + control + " " + options);
      EXPECT_EQ(outcome.exitCode, 2) << options;
      EXPECT_THAT(outcome.error, HasSubstr(reason));
   }
   EXPECT_EQ(runAgent("run --control " + (folder / "missing/control")).exitCode, 4);
}

} // namespace
} // namespace L3TunnelAgent
