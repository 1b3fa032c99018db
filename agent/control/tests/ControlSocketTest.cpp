#include "agent/control/ControlSocket.h"
#include "agent/control/tests/TemporaryFolder.h"

#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace L3TunnelAgent {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

mode_t
modeOf(std::string const& path) {
   struct stat status {};
   EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
   return status.st_mode & 07777;
}

/// A socket file behind which nobody listens.
void
deadSocket(std::string const& path) {
   int const descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy(address.sun_path, sizeof address.sun_path - 1);
   ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
   close(descriptor);
}

class ControlSocketTest : public testing::Test {
 protected:
   TemporaryFolder folder;
   std::string path = folder / "control";

   auto faultOf(std::string const& at) {
      return [at] { ControlSocket const socket(at, 0600); };
   }
};

TEST_F(ControlSocketTest, FileHasItsModeWhateverTheProcessMasks) {
   for (mode_t const mask : {0000, 0022, 0777}) {
      for (mode_t const mode : {0600, 0660, 0666}) {
         auto const before = umask(mask);
         {
            ControlSocket const socket(path, mode);
            EXPECT_EQ(modeOf(path), mode);
         }
         EXPECT_EQ(umask(before), mask) << "the process's mask is another one now";
      }
   }
}

TEST_F(ControlSocketTest, FileGoesWithTheSocket) {
   {
      ControlSocket const socket(path, 0600);
      close(connectedControl(path));
   }
   EXPECT_FALSE(std::filesystem::exists(path));
   EXPECT_THAT([&] { connectedControl(path); },
               ThrowsMessage<std::runtime_error>(AllOf(HasSubstr(path), HasSubstr("no agent runs there"))));
}

TEST_F(ControlSocketTest, DeadAgentsFileIsReplaced) {
   deadSocket(path);
   EXPECT_THAT([&] { connectedControl(path); },
               ThrowsMessage<std::runtime_error>(HasSubstr("no agent runs there")));
   ControlSocket const socket(path, 0600);
   close(connectedControl(path));
}

TEST_F(ControlSocketTest, LiveAgentsFileIsAnErrorAndStays) {
   ControlSocket const socket(path, 0600);
   EXPECT_THAT(faultOf(path), ThrowsMessage<std::runtime_error>(
                                    AllOf(HasSubstr(path), HasSubstr("another agent listens there"))));
   close(connectedControl(path));
}

TEST_F(ControlSocketTest, FullQueueIsALiveAgentsToo) {
   ControlSocket const socket(path, 0600);
   std::vector<int> waiting;
   for (int count = 0; count < 200; ++count) {
      int const descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, sizeof address.sun_path - 1);
      waiting.push_back(descriptor);
      if (connect(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
         break;
      }
   }
   EXPECT_LT(waiting.size(), 200U) << "the queue never filled";
   EXPECT_THAT(faultOf(path), ThrowsMessage<std::runtime_error>(HasSubstr("another agent listens there")));
   for (int const descriptor : waiting) {
      close(descriptor);
   }
}

TEST_F(ControlSocketTest, OtherFilesAreLeftAlone) {
   std::ofstream(path) << "mine";
   EXPECT_THAT(faultOf(path), ThrowsMessage<std::runtime_error>(HasSubstr("is no socket")));
   EXPECT_EQ(std::filesystem::file_size(path), 4U);
   EXPECT_THAT(faultOf(folder / "."), ThrowsMessage<std::runtime_error>(HasSubstr("is no socket")));
   // A link to a socket is not the socket.
   std::filesystem::remove(path);
   std::filesystem::create_symlink(folder / "other", path);
   EXPECT_THAT(faultOf(path), ThrowsMessage<std::runtime_error>(HasSubstr("is no socket")));
}

TEST_F(ControlSocketTest, FolderThatSomebodyKeepsLockedIsAnErrorAndNoWaitForEver) {
   Descriptor const somebody(open((folder / ".").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
   ASSERT_EQ(flock(somebody.value(), LOCK_EX | LOCK_NB), 0);
   EXPECT_THAT([&] { ControlSocket(path, 0600); },
               ThrowsMessage<std::runtime_error>(HasSubstr("another process keeps its folder locked")));
   ASSERT_EQ(flock(somebody.value(), LOCK_UN), 0);
   EXPECT_NO_THROW(ControlSocket(path, 0600));
}

TEST_F(ControlSocketTest, PathsThatCannotBeAreNamed) {
   EXPECT_THAT(faultOf(""), ThrowsMessage<std::runtime_error>(HasSubstr("1 to 107 bytes")));
   EXPECT_THAT(faultOf(folder / std::string(120, 'x')),
               ThrowsMessage<std::runtime_error>(HasSubstr("1 to 107 bytes")));
   EXPECT_THAT(faultOf(folder / "missing/control"),
               ThrowsMessage<std::runtime_error>(HasSubstr("No such file or directory")));
}

TEST_F(ControlSocketTest, SuccessorsFileOutlivesAnAgentThatEndsLate) {
   auto first = std::make_unique<ControlSocket>(path, 0600);
   std::filesystem::remove(path);
   ControlSocket const second(path, 0600);
   first.reset();
   close(connectedControl(path));
}

TEST(ControlPathTest, DefaultFollowsTheServiceManager) {
   unsetenv("RUNTIME_DIRECTORY");
   EXPECT_EQ(defaultControlPath(), "/run/l3tunnel-agent/control");
   setenv("RUNTIME_DIRECTORY", "/run/one:/run/two", 1);
   EXPECT_EQ(defaultControlPath(), "/run/one/control");
   setenv("RUNTIME_DIRECTORY", "", 1);
   EXPECT_EQ(defaultControlPath(), "/run/l3tunnel-agent/control");
   unsetenv("RUNTIME_DIRECTORY");
}

} // namespace
} // namespace L3TunnelAgent
