#include "platform/local/EntityManager.h"

namespace Local {

void
EntityManager::entityIs(Pelm::String const& path, Pelm::String const& typeName,
                        Nuv::Ptr<Nuv::Object> const& entity) {
   entities_[path] = {typeName, entity};
}

void
EntityManager::entityDel(Pelm::String const& path) {
   entities_.erase(path);
}

void
EntityManager::doMount(Pelm::String const& path, Pelm::String const& typeName) const {
   mounts_[path] = typeName;
}

Nuv::Ptr<Nuv::Object>
EntityManager::getEntity(Pelm::String const& path) const {
   auto mount = mounts_.find(path);
   auto found = entities_.find(path);
   if (mount == mounts_.end() || found == entities_.end() || found->second.typeName != mount->second) {
      return {};
   }
   return found->second.object;
}

} // namespace Local
