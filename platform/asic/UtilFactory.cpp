#include "platform/asic/UtilFactory.h"

#include <algorithm>
#include <mutex>

namespace Asic {

namespace {

struct Registry {
   std::mutex mutex;
   std::vector<UtilFactory const*> factories;
};

// Never destroyed: plug-ins leave it during the process's own static destruction.
Registry&
registry() {
   static auto* instance = new Registry;
   return *instance;
}

} // namespace

UtilFactory::UtilFactory(Pelm::String tableType, Pelm::String layout, Make make)
    : tableType_(std::move(tableType)), layout_(std::move(layout)), make_(std::move(make)) {
   std::lock_guard lock(registry().mutex);
   registry().factories.push_back(this);
}

UtilFactory::~UtilFactory() {
   std::lock_guard lock(registry().mutex);
   std::erase(registry().factories, this);
}

Nuv::Ptr<SwTable::Util>
UtilFactory::utilFor(Pelm::StringView tableType, Nuv::Ptr<HwTable> const& table) {
   Make make;
   {
      std::lock_guard lock(registry().mutex);
      auto const& factories = registry().factories;
      auto found = std::find_if(factories.begin(), factories.end(), [&](UtilFactory const* factory) {
         return factory->tableType_ == tableType && factory->layout_ == table->shape().layout;
      });
      if (found != factories.end()) {
         make = (*found)->make_;
      }
   }
   return make ? make(table) : nullptr;
}

} // namespace Asic
