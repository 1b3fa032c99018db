#include "agent/tests/live/Sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace L3TunnelAgent::Live {

namespace {

std::string&
failure() {
   static std::string text = "nobody tried";
   return text;
}

std::string
whatFailed(char const* call) {
   return std::string(call) + ": " + std::strerror(errno);
}

/// Ends this process as the child ends. Children of others that come here are forgotten.
[[noreturn]] void
endAs(pid_t child) {
   for (;;) {
      int status = 0;
      pid_t const ended = wait(&status);
      if (ended == child) {
         _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
      }
      if (ended < 0 && errno != EINTR) {
         _exit(125);
      }
   }
}

/// Goes on in a child that does not outlive this process, and ends this process as that one ends.
void
goOnInChild() {
   pid_t const child = fork();
   if (child > 0) {
      endAs(child);
   }
   if (child < 0) {
      _exit(125);
   }
   prctl(PR_SET_PDEATHSIG, SIGKILL);
}

} // namespace

void
enterSandbox() {
   failure().clear();
   if (unshare(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET) != 0) {
      failure() = whatFailed("unshare");
   } else if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      failure() = whatFailed("mount /");
   } else if (mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
      failure() = whatFailed("mount /run");
   }
   if (!failure().empty()) {
      return;
   }
   // The first child is the namespace's init: when it ends, the kernel ends everything in there.
   goOnInChild();
   if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
      failure() = whatFailed("mount /proc");
   }
   goOnInChild();
}

std::string const&
whyNoSandbox() {
   return failure();
}

} // namespace L3TunnelAgent::Live
