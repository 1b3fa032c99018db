#include "agent/views/Sections.h"
#include "agent/views/TextTable.h"

#include <nlohmann/json.hpp>

namespace L3TunnelAgent {

namespace {

struct NamedAllocator {
   char const* what;
   Asic::GenericIndexAllocator const* allocator;
};

std::vector<NamedAllocator>
allocators(Fabric const& fabric) {
   auto const& programmer = fabric.programmer();
   return {{"interfaces", &fabric.interfaces().indices()},
           {"next hops", programmer.l3EcmpNextHopTable()->indexAllocator().get()},
           {"members", programmer.l3EcmpMemberTable()->indexAllocator().get()},
           {"groups", fabric.groups().indexAllocator().get()}};
}

std::string
allocatorsText(View const& view, Paint const& paint) {
   TextTable table("ALLOCATORS: who gives out the indices of rows",
                   {"of", "used", "free", "kept back", "keys", "longest free run", "most ever used", "name"});
   for (auto const& [what, allocator] : allocators(view.agent.fabric())) {
      table.rowIs({what, std::to_string(allocator->used()), std::to_string(allocator->free()),
                   std::to_string(allocator->reserved()), std::to_string(allocator->holders()),
                   std::to_string(allocator->largestFreeRun()), std::to_string(allocator->highWaterMark()),
                   allocator->name()});
   }
   return table.text(paint);
}

Json
allocatorsJson(View const& view) {
   Json all = Json::array();
   for (auto const& [what, allocator] : allocators(view.agent.fabric())) {
      all.push_back({{"of", what},
                     {"name", allocator->name()},
                     {"size", allocator->numEntries()},
                     {"used", allocator->used()},
                     {"free", allocator->free()},
                     {"reserved", allocator->reserved()},
                     {"keys", allocator->holders()},
                     {"freeRuns", allocator->freeRuns()},
                     {"largestFreeRun", allocator->largestFreeRun()},
                     {"highWaterMark", allocator->highWaterMark()}});
   }
   return all;
}

} // namespace

Section
allocatorsSection() {
   return {"allocators", "allocators", allocatorsText, allocatorsJson, {}};
}

} // namespace L3TunnelAgent
