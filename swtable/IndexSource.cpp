#include "swtable/IndexSource.h"

#include "platform/asic/GenericIndexAllocatorStub.h"

namespace ZandorL3Tunnel {

Nuv::Ptr<Asic::GenericIndexAllocator>
AllocatorUse::initAllocator(Nuv::FwkType allocatorType, Asic::SwTable const* table, Make makeOwn) {
   using Asic::GenericIndexAllocatorStub;
   DUOLOG(_defaultTraceHandle(), TraceLevel::resolve, "Creating shared allocator");
   ACCESSOR_ASSERT(table, "table", "");
   auto allocator =
         makeOwn ? makeOwn(table->tblName())
                 : GenericIndexAllocatorStub::createSharedAllocator(allocatorType, table->fwkType(), table);
   ACCESSOR_ASSERT(allocator, "shalloc", table->tblName());
   allocator->setTableAttr(table, "indexAllocator");
   // A table without hardware has no bounds of its own to give the allocator, and one over fewer rows leaves
   // the others' where they are.
   if (Asic::Index rows = table->numEntries(); rows != Asic::invalidIndex && rows > allocator->numEntries()) {
      allocator->numEntriesIs(rows);
   }
   return allocator;
}

void
AllocatorUse::freeAllocator(Asic::GenericIndexAllocator& allocator, Nuv::FwkType allocatorType,
                            Asic::SwTable const& table) {
   DUOLOG(_defaultTraceHandle(), TraceLevel::resolve,
          "Trying to delete shared allocator for table:", table.tblName());
   if (allocatorType.module) {
      Asic::GenericIndexAllocatorStub::freeSharedAllocator(allocatorType, table.fwkType(), &table);
   }
   allocator.tableDel(&table);
}

} // namespace ZandorL3Tunnel
