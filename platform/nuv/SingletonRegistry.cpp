#include "platform/nuv/SingletonRegistry.h"

namespace Nuv {

SingletonRegistry&
SingletonRegistry::instance() {
   static SingletonRegistry registry;
   return registry;
}

bool
SingletonRegistry::singletonExists(Pelm::String const& name) const {
   std::lock_guard lock(mutex_);
   return singletons_.contains(name);
}

void
SingletonRegistry::singletonIs(Pelm::String const& name, Ptr<Object> const& object) {
   std::lock_guard lock(mutex_);
   singletons_.try_emplace(name, object);
}

Ptr<Object>
SingletonRegistry::singleton(Pelm::String const& name) const {
   std::lock_guard lock(mutex_);
   auto found = singletons_.find(name);
   return found == singletons_.end() ? Ptr<Object>() : found->second;
}

} // namespace Nuv
