#include "swtable/IndexSource.h"

#include "platform/asic/GenericIndexAllocatorStub.h"

namespace ZandorL3Tunnel {

namespace {

constexpr Asic::Index indicesWithoutHardware = 65536;

} // namespace

Nuv::Ptr<Asic::GenericIndexAllocator>
AllocatorUse::initAllocator(Nuv::FwkType allocatorType, Asic::SwTable const* table, Make makeOwn) {
   using Asic::GenericIndexAllocatorStub;
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve, "Creating shared allocator");
   ACCESSOR_ASSERT(table, "table", "");
   auto allocator =
         makeOwn ? makeOwn(table->tblName())
                 : GenericIndexAllocatorStub::createSharedAllocator(allocatorType, table->fwkType(), table);
   ACCESSOR_ASSERT(allocator, "shalloc", table->tblName());
   allocator->setTableAttr(table, "indexAllocator");
   // A table without hardware has no bounds of its own to give the allocator, and works all the same; one
   // over fewer rows than others have leaves those where they are.
   Asic::Index rows = table->numEntries();
   rows = rows == Asic::invalidIndex ? indicesWithoutHardware : rows;
   if (rows > allocator->numEntries()) {
      allocator->numEntriesIs(rows);
   }
   return allocator;
}

void
AllocatorUse::freeAllocator(Asic::GenericIndexAllocator& allocator, Nuv::FwkType allocatorType,
                            Asic::SwTable const& table) {
   DUOLOG(defaultTraceHandle(), TraceLevel::resolve,
          "Trying to delete shared allocator for table:", table.tblName());
   if (allocatorType.module) {
      Asic::GenericIndexAllocatorStub::freeSharedAllocator(allocatorType, table.fwkType(), &table);
   }
   allocator.tableDel(&table);
}

} // namespace ZandorL3Tunnel
