#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <vector>

namespace Nuv {

/// One source file's part of the type system. A module registers itself when its file's static initialiser
/// runs and leaves when its library is unloaded.
class ZANDOR_EXPORT Module {
 public:
   explicit Module(Pelm::String name);
   ~Module();
   Module(Module const&) = delete;
   Module& operator=(Module const&) = delete;

   Pelm::String const& name() const { return name_; }

   /// Every module that is registered now, in the order of registration.
   static std::vector<Module const*> registered();

   /// The registered module of that name, or null.
   static Module const* find(Pelm::StringView name);

 private:
   Pelm::String name_;
};

/// What a class answers when it is asked for its framework type: its module, and the kind of thing it is.
struct ZANDOR_EXPORT FwkType {
   static constexpr unsigned classKind = 4;

   Module const* module{};
   unsigned kind{classKind};

   friend bool operator==(FwkType const&, FwkType const&) = default;
};

/// The module of the platform's own classes.
ZANDOR_EXPORT Module const& platformModule();

} // namespace Nuv
