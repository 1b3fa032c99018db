#include "platform/asic/DontCareHandle.h"

#include <map>

namespace SwTableWorkaround {

namespace {

class DontCareHandle final : public Asic::SwTableBase::EntryHandle {};

using Handles = std::map<Asic::Index, Nuv::Ptr<Asic::SwTableBase::EntryHandle const>>;

// Never destroyed: entries that name one may end during the process's own static destruction.
Handles&
handles() {
   static auto* instance = new Handles;
   return *instance;
}

} // namespace

Nuv::Ptr<Asic::SwTableBase::EntryHandle const>
dontCareHandle(Asic::Index index) {
   auto& handle = handles()[index];
   if (!handle) {
      auto fresh = Nuv::make<DontCareHandle>();
      fresh->hwEntryIndexIs(index);
      fresh->hwIndexValidIs(true);
      fresh->entryStateIs(Asic::SwTableBase::success());
      handle = fresh;
   }
   return handle;
}

Nuv::Ptr<Asic::SwTableBase::EntryHandle const>
dontCareHandleAt(std::uintptr_t address) {
   for (auto const& [index, handle] : handles()) {
      if (reinterpret_cast<std::uintptr_t>(handle.get()) == address) {
         return handle;
      }
   }
   return nullptr;
}

} // namespace SwTableWorkaround
