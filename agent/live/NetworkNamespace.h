#pragma once

#include "agent/live/Descriptor.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace L3TunnelAgent {

/// A network namespace in which sockets are made, while the process itself stays where it is.
class NetworkNamespace {
 public:
   /// @param name as `ip netns` names it; the process's own namespace without one.
   /// @throws NetlinkError when there is none of that name, or it cannot be opened.
   explicit NetworkNamespace(std::optional<std::string> const& name);

   enum class Standing : std::uint8_t {
      same,    // the name is that of the namespace that was opened, or there is no name
      another, // the name is another one's by now
      gone,    // nothing has the name
   };

   /// What became of the name since the namespace was opened.
   Standing standing() const;

   /// Calls make() with the thread in the namespace, and brings it back.
   /// @throws NetlinkError when the namespace cannot be entered or left.
   void within(std::function<void()> const& make) const;

 private:
   std::string name_;
   Descriptor own_;
   Descriptor other_; // none: the process's own is meant
};

} // namespace L3TunnelAgent
