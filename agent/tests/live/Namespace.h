#pragma once

#include <string>

namespace L3TunnelAgent::Live {

/// A network namespace that lasts as long as this object, with its loopback device up.
class Namespace {
 public:
   /// Throws std::runtime_error when it cannot be made.
   explicit Namespace(std::string name);
   Namespace(Namespace const&) = delete;
   Namespace& operator=(Namespace const&) = delete;
   ~Namespace();

   std::string const& name() const { return name_; }

   /// Runs lines of `ip` in it, each without the word "ip". Throws std::runtime_error when one fails.
   void ip(std::string const& lines) const;

   /// The same with lines of `bridge`.
   void bridge(std::string const& lines) const;

   /// Sets one of the kernel's values there: "net.ipv4.ip_forward", "1".
   void sysctl(std::string const& key, std::string const& value) const;

   /// @return the number of a device there. Throws std::runtime_error when there is none of that name.
   int deviceIndex(std::string const& device) const;

   /// Opens a socket there, and returns its descriptor, which the caller closes. Throws std::runtime_error
   /// when it cannot be had.
   int openSocket(int family, int type, int protocol) const;

   /// The same with a netlink socket of the route family.
   int openRouteSocket() const;

 private:
   std::string name_;
};

/// @return whether a kernel does these lines of `ip` and then those of `bridge`, in a namespace with a device
/// "port".
bool isSupported(std::string const& ipLines, std::string const& bridgeLines = {});

} // namespace L3TunnelAgent::Live
