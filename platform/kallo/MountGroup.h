#pragma once

#include "platform/kallo/EntityManager.h"
#include "platform/nuv/Export.h"

namespace Kallo {

/// Mounts of the state database that are asked for together. Whoever needs all of their entities waits for
/// the group to be complete.
class ZANDOR_EXPORT MountGroup final : public Nuv::Object {
 public:
   enum class State : std::uint8_t {
      unmounted, ///< mounts are collected
      waiting,   ///< mounted, but some path does not hold an entity of its type
      complete   ///< every path does, also when there is none
   };

   /// Observer of one group.
   class Notifiee : public Nuv::Notifiee {
    public:
      /// The state changed: also from complete back to waiting, when an entity goes. May do anything, the
      /// group's last reference included.
      virtual void handleState() = 0;
   };

   MountGroup() = default;

   /// Adds a mount, or gives that of `path` another type. In a group that is mounted already it is mounted at
   /// once.
   void mountIs(Pelm::String const& path, Pelm::String const& typeName);

   /// The mounts' types by path.
   std::map<Pelm::String, Pelm::String> const& mounts() const { return mounts_; }

   /// Mounts everything in `entityManager`, which the group holds from now on; the state is announced once,
   /// when all is mounted. A second call mounts anew, and follows the other entity manager if it is one.
   void doMount(Nuv::Ptr<EntityManager const> const& entityManager);

   State state() const { return state_; }
   bool isComplete() const { return state_ == State::complete; }

   /// Registers an observer; it hears changes until it leaves or the group ends.
   void notifieeIs(Notifiee& notifiee) const { notifieeList_.notifieeIs(notifiee); }

 private:
   class Watch final : public EntityManager::Notifiee {
    public:
      explicit Watch(MountGroup& group) : group_(group) {}

    private:
      void handleEntity(Pelm::String const&) override { group_.update(); }

      MountGroup& group_;
   };

   bool isPresent(Pelm::String const& path, Pelm::String const& typeName) const;
   void update();

   std::map<Pelm::String, Pelm::String> mounts_;
   Nuv::Ptr<EntityManager const> entityManager_;
   State state_{State::unmounted};
   mutable Nuv::NotifieeList<Notifiee> notifieeList_;
   Watch watch_{*this};
};

} // namespace Kallo
