#include "platform/nuv/EntityDirectory.h"

namespace Nuv {

EntityDirectory::Place
EntityDirectory::place(Pelm::String const& path) const {
   auto found = places_.find(path);
   return found == places_.end() ? Place() : found->second;
}

void
EntityDirectory::placeIs(Pelm::String const& path, Place const& place) const {
   // An entity that goes lives until everybody has been told. Who is told may let go of the path's text.
   auto const before = this->place(path);
   auto const toldPath = path;
   if (place.entity || place.mountedAs) {
      places_[path] = place;
   } else {
      places_.erase(path);
   }
   if (place.visible() != before.visible()) {
      notifieeList_.announce([&](Notifiee& notifiee) { notifiee.handleEntity(toldPath); });
   }
}

void
EntityDirectory::entityIs(Pelm::String const& path, Pelm::String const& typeName, Ptr<Object> const& entity) {
   placeIs(path, {entity ? typeName : Pelm::String(), entity, place(path).mountedAs});
}

void
EntityDirectory::entityDel(Pelm::String const& path) {
   entityIs(path, {}, nullptr);
}

void
EntityDirectory::doMount(Pelm::String const& path, Pelm::String const& typeName) const {
   auto mounted = place(path);
   mounted.mountedAs = typeName;
   placeIs(path, mounted);
}

bool
EntityDirectory::isMounted(Pelm::String const& path, Pelm::String const& typeName) const {
   auto found = places_.find(path);
   return found != places_.end() && found->second.mountedAs == typeName;
}

Ptr<Object>
EntityDirectory::getEntity(Pelm::String const& path) const {
   auto found = places_.find(path);
   return found == places_.end() ? nullptr : found->second.visible();
}

} // namespace Nuv
