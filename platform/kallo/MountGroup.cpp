#include "platform/kallo/MountGroup.h"

#include "platform/nuv/AllSteps.h"

#include <algorithm>

namespace Kallo {

void
MountGroup::mountIs(Pelm::String const& path, Pelm::String const& typeName) {
   mounts_[path] = typeName;
   if (!entityManager_) {
      return;
   }
   Nuv::Ptr<MountGroup> alive(this);
   Nuv::Ptr<EntityManager const> entityManager(entityManager_);
   Nuv::AllSteps steps;
   steps([&] { entityManager->doMount(path, typeName); });
   steps([this] { update(); });
   steps.finish();
}

void
MountGroup::doMount(Nuv::Ptr<EntityManager const> const& entityManager) {
   Nuv::Ptr<MountGroup> alive(this);
   entityManager_ = entityManager;
   // It hears nothing before all is mounted, so that it tells of itself once.
   watch_.leave();
   Nuv::AllSteps steps;
   for (auto const& mount : mounts_) {
      steps([&] { entityManager_->doMount(mount.first, mount.second); });
   }
   watch_.leave();
   entityManager_->notifieeIs(watch_);
   steps([this] { update(); });
   steps.finish();
}

// Somebody else may have mounted the path as another type meanwhile: that one's entity does not count.
bool
MountGroup::isPresent(Pelm::String const& path, Pelm::String const& typeName) const {
   return entityManager_->isMounted(path, typeName) && entityManager_->getEntity(path);
}

void
MountGroup::update() {
   bool isAllPresent = std::all_of(mounts_.begin(), mounts_.end(), [this](auto const& mount) {
      return isPresent(mount.first, mount.second);
   });
   auto now = isAllPresent ? State::complete : State::waiting;
   if (now != state_) {
      state_ = now;
      notifieeList_.announce([](Notifiee& notifiee) { notifiee.handleState(); });
   }
}

} // namespace Kallo
