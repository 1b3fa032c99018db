#include "platform/nuv/Module.h"

#include <algorithm>
#include <mutex>

namespace Nuv {

namespace {

struct Registry {
   std::mutex mutex;
   std::vector<Module const*> modules;
};

// Never destroyed: modules of libraries leave it during the process's own static destruction.
Registry&
registry() {
   static auto* instance = new Registry;
   return *instance;
}

} // namespace

Module::Module(Pelm::String name) : name_(std::move(name)) {
   std::lock_guard lock(registry().mutex);
   registry().modules.push_back(this);
}

Module::~Module() {
   std::lock_guard lock(registry().mutex);
   std::erase(registry().modules, this);
}

std::vector<Module const*>
Module::registered() {
   std::lock_guard lock(registry().mutex);
   return registry().modules;
}

Module const*
Module::find(Pelm::StringView name) {
   std::lock_guard lock(registry().mutex);
   auto const& modules = registry().modules;
   auto found = std::find_if(modules.begin(), modules.end(),
                             [name](Module const* module) { return module->name() == name; });
   return found == modules.end() ? nullptr : *found;
}

Module const&
platformModule() {
   static Module const module("ZandorPlatform");
   return module;
}

} // namespace Nuv
