#include "platform/loader/Singleton.h"

namespace Ancillary::Core::Loader {

bool
Singleton::loadFor(Pelm::String const& prefix, Pelm::String const& suffix) {
   static Plugin::Loader<void> loader;
   return loader.loadPlugins(prefix + "/" + suffix, "Plugin") > 0;
}

} // namespace Ancillary::Core::Loader
