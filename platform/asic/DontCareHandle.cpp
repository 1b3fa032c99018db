#include "platform/asic/DontCareHandle.h"

#include <map>

namespace SwTableWorkaround {

namespace {

class DontCareHandle final : public Asic::SwTableBase::EntryHandle {};

} // namespace

Nuv::Ptr<Asic::SwTableBase::EntryHandle const>
dontCareHandle(Asic::Index index) {
   // Never destroyed: entries that name one may end during the process's own static destruction.
   static auto* handles = new std::map<Asic::Index, Nuv::Ptr<Asic::SwTableBase::EntryHandle const>>;
   auto& handle = (*handles)[index];
   if (!handle) {
      auto fresh = Nuv::make<DontCareHandle>();
      fresh->hwEntryIndexIs(index);
      fresh->hwIndexValidIs(true);
      fresh->entryStateIs(Asic::SwTableBase::success());
      handle = fresh;
   }
   return handle;
}

} // namespace SwTableWorkaround
