#include "platform/nuv/TypeInfo.h"

#include <algorithm>
#include <mutex>

namespace Nuv {

namespace {

struct Registry {
   std::mutex mutex;
   std::vector<TypeInfo const*> types;
};

// Never destroyed: types of libraries leave it during the process's own static destruction.
Registry&
registry() {
   static auto* instance = new Registry;
   return *instance;
}

} // namespace

TypeInfo::TypeInfo(Pelm::String name, Module const& module, Kind kind)
    : name_(std::move(name)), module_(module), kind_(kind) {
   std::lock_guard lock(registry().mutex);
   registry().types.push_back(this);
}

TypeInfo::~TypeInfo() {
   std::lock_guard lock(registry().mutex);
   std::erase(registry().types, this);
}

AttributeInfo const*
TypeInfo::attribute(Pelm::StringView name) const {
   auto found = std::find_if(attributes_.begin(), attributes_.end(),
                             [name](AttributeInfo const& attribute) { return attribute.name == name; });
   return found == attributes_.end() ? nullptr : &*found;
}

TypeInfo const*
TypeInfo::find(Pelm::StringView name) {
   std::lock_guard lock(registry().mutex);
   auto const& types = registry().types;
   auto found = std::find_if(types.begin(), types.end(),
                             [name](TypeInfo const* type) { return type->name() == name; });
   return found == types.end() ? nullptr : *found;
}

std::vector<TypeInfo const*>
TypeInfo::registered() {
   std::lock_guard lock(registry().mutex);
   return registry().types;
}

} // namespace Nuv
