#include "agent/tests/live/Router.h"

#include <fstream>

namespace L3TunnelAgent::Live {

namespace {

std::filesystem::path const binaries = "/usr/lib/frr";

/// The daemons give up root's rights for these.
char const* const owner = "frr:frr";

} // namespace

Router::Router(std::string name, std::filesystem::path const& folder)
    : space_(std::move(name)), folder_(folder / space_.name()) {
   auto const sockets = "/run/frr/" + space_.name();
   std::filesystem::create_directories(folder_);
   std::filesystem::create_directories(sockets);
   outputOf({"chown", owner, "/run/frr", sockets, folder_.string()});
   space_.sysctl("net.ipv4.ip_forward", "1");
   space_.sysctl("net.ipv6.conf.all.forwarding", "1");
   space_.sysctl("net.ipv4.conf.all.rp_filter", "0");
   space_.sysctl("net.ipv4.conf.default.rp_filter", "0");
   space_.sysctl("net.ipv6.conf.default.accept_dad", "0");
   space_.sysctl("net.ipv4.fib_multipath_hash_policy", "1");
}

void
Router::configurationIs(std::string const& daemon, std::string const& text) {
   auto const file = folder_ / (daemon + ".conf");
   std::ofstream(file) << "hostname " << name() << "\nlog file " << (folder_ / (daemon + ".log")).string()
                       << "\n"
                       << text;
   outputOf({"chown", owner, file.string()});
}

void
Router::start(std::string const& daemon) {
   Words const command{(binaries / daemon).string(),
                       "-N",
                       name(),
                       "-f",
                       (folder_ / (daemon + ".conf")).string(),
                       "-i",
                       (folder_ / (daemon + ".pid")).string(),
                       "-A",
                       "127.0.0.1"};
   daemons_[daemon] = std::make_unique<Process>(
         command, Process::Settings{.netNamespace = name(), .error = folder_ / (daemon + ".err")});
}

void
Router::kill(std::string const& daemon) {
   daemons_.at(daemon)->kill();
   daemons_.erase(daemon);
}

std::string
Router::show(std::string const& command) const {
   auto const outcome = finished({"vtysh", "-N", name(), "-c", command}, name());
   return outcome.exitCode == 0 ? outcome.out : outcome.error;
}

std::string
Router::endedDaemons() {
   std::string result;
   for (auto const& [daemon, process] : daemons_) {
      if (!process->isRunning()) {
         result += " " + name() + "/" + daemon;
      }
   }
   return result;
}

bool
hasRouters() {
   return std::filesystem::exists(binaries / "bgpd") && std::filesystem::exists(binaries / "zebra");
}

} // namespace L3TunnelAgent::Live
