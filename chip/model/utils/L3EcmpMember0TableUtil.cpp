#include "chip/model/UtilPlugin.h"
#include "tables/L3EcmpMember0Table.h"

namespace {

class Util final : public ZandorL3Tunnel::L3EcmpMember0Table::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::L3EcmpMember0Table::Entry const& entry,
              std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::L3EcmpMember0Table;
      bool hasNextHop(entry.nextHopEntryHandle);
      bool hasDestination(entry.underlayDestinationHandle);
      // A hole in a block is an empty member: its row says that nothing is there.
      Row::valid.pack(words, hasNextHop || hasDestination);
      Row::hasNextHop.pack(words, hasNextHop);
      Row::hasDestination.pack(words, hasDestination);
      Row::nextHop.pack(words, entry.nextHopEntry);
      Row::destination.pack(words, entry.underlayDestination);
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::L3EcmpMember0Table, Util> const
      plugin(ModelChip::L3EcmpMember0Table::layout);

} // namespace
