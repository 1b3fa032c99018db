#include "platform/loader/Loader.h"
#include "tables/EgrL3Oif2.h"
#include "types/L3Via.h"

#include <cstdio>

int
main() {
   auto vias = ZandorL3Tunnel::L3Via::L3ViaIs();
   vias->viaIs({}, 7);
   if (vias->via().size() != 1) {
      std::fputs("the via is not in the set\n", stderr);
      return 1;
   }
   for (auto const& [via, number] : vias->via()) {
      std::printf("%s %u\n", Nuv::text(via).c_str(), number);
   }

   Plugin::LoaderBase loader;
   if (loader.loadPlugins("AsicFeature/" + ZandorL3Tunnel::EgrL3Oif2::typeName(), "Plugin") != 1) {
      std::fputs("the table's plug-in is not beside the platform library\n", stderr);
      return 1;
   }
   return 0;
}
