#include "agent/control/ServiceManager.h"
#include "agent/control/tests/TemporaryFolder.h"

#include <array>
#include <cstddef>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace L3TunnelAgent {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::MatchesRegex;
using testing::SizeIs;

/// A service manager's end of the conversation.
class ServiceManagerTest : public testing::Test {
 protected:
   ServiceManagerTest() {
      for (auto const* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
         unsetenv(name);
      }
   }
   ~ServiceManagerTest() override {
      if (descriptor >= 0) {
         close(descriptor);
      }
      for (auto const* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
         unsetenv(name);
      }
   }

   /// Listens at the name, which is abstract where it begins with @, and says so to services.
   void listenAt(std::string const& name) {
      descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      name.copy(address.sun_path, sizeof address.sun_path - 1);
      auto length = offsetof(sockaddr_un, sun_path) + name.size() + 1;
      if (name[0] == '@') {
         address.sun_path[0] = '\0';
         --length;
      }
      ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr const*>(&address), static_cast<socklen_t>(length)),
                0);
      setenv("NOTIFY_SOCKET", name.c_str(), 1);
   }

   std::vector<std::string> heard() const {
      std::vector<std::string> all;
      std::array<char, 1024> buffer;
      for (ssize_t got = 0; (got = recv(descriptor, buffer.data(), buffer.size(), 0)) >= 0;) {
         all.emplace_back(buffer.data(), static_cast<std::size_t>(got));
      }
      return all;
   }

   TemporaryFolder folder;
   asio::io_context loop;
   int descriptor{-1};
};

TEST_F(ServiceManagerTest, LifeIsToldInOrder) {
   for (auto const& name : {folder / "notify", "@agent-test-" + std::to_string(getpid())}) {
      listenAt(name);
      ServiceManager manager(loop);
      EXPECT_TRUE(manager.isThere());
      EXPECT_FALSE(manager.watchdogInterval());
      manager.readyIs("54 destinations");
      manager.reloadingIs();
      manager.readyIs("54 destinations");
      manager.stoppingIs();
      auto const all = heard();
      ASSERT_EQ(all.size(), 4U) << name;
      EXPECT_EQ(all[0], "READY=1\nSTATUS=54 destinations");
      EXPECT_THAT(all[1], MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[1-9][0-9]*"));
      EXPECT_EQ(all[2], all[0]);
      EXPECT_EQ(all[3], "STOPPING=1");
      close(descriptor);
   }
}

TEST_F(ServiceManagerTest, WatchdogIsToldTwiceInItsTimeByTheLoop) {
   listenAt(folder / "notify");
   setenv("WATCHDOG_USEC", "40000", 1);
   ServiceManager manager(loop);
   EXPECT_EQ(manager.watchdogInterval(), 20ms);
   EXPECT_THAT(heard(), SizeIs(1));
   loop.run_for(210ms);
   auto const all = heard();
   EXPECT_GE(all.size(), 5U);
   EXPECT_LE(all.size(), 11U);
   EXPECT_THAT(all, Each("WATCHDOG=1"));
   // A loop that does not turn says nothing, and one that has stopped runs out of work.
   usleep(60000);
   EXPECT_THAT(heard(), SizeIs(0));
   manager.stoppingIs();
   loop.run();
   EXPECT_EQ(heard(), std::vector<std::string>{"STOPPING=1"});
}

TEST_F(ServiceManagerTest, WatchdogOfAnotherProcessIsNotOurs) {
   listenAt(folder / "notify");
   setenv("WATCHDOG_USEC", "40000", 1);
   setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
   EXPECT_TRUE(ServiceManager(loop).watchdogInterval());
   setenv("WATCHDOG_PID", "1", 1);
   EXPECT_FALSE(ServiceManager(loop).watchdogInterval());
   unsetenv("WATCHDOG_PID");
   for (auto const* time : {"", "0", "1", "x", "-5", "40000x", "99999999999999999999"}) {
      setenv("WATCHDOG_USEC", time, 1);
      EXPECT_FALSE(ServiceManager(loop).watchdogInterval()) << time;
   }
}

TEST_F(ServiceManagerTest, NobodyIsToldWithoutAManager) {
   for (auto const& name : {std::string(), std::string("relative"), std::string("@"), folder / "nobody",
                            "/" + std::string(200, 'x')}) {
      setenv("NOTIFY_SOCKET", name.c_str(), 1);
      setenv("WATCHDOG_USEC", "40000", 1);
      ServiceManager manager(loop);
      EXPECT_FALSE(manager.isThere()) << name;
      EXPECT_FALSE(manager.watchdogInterval());
      manager.readyIs("x");
      manager.stoppingIs();
   }
}

TEST_F(ServiceManagerTest, ManagerThatGoesAwayIsNoMatter) {
   listenAt(folder / "notify");
   ServiceManager manager(loop);
   close(std::exchange(descriptor, -1));
   manager.readyIs("x");
   manager.stoppingIs();
}

} // namespace
} // namespace L3TunnelAgent
