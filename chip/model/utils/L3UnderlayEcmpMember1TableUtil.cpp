#include "chip/model/UtilPlugin.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace {

class Util final : public ZandorL3Tunnel::L3UnderlayEcmpMember1Table::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::L3UnderlayEcmpMember1Table::Entry const& entry,
              std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::L3UnderlayEcmpMember1Table;
      // A hole in a block is an empty member: its row says that nothing is there.
      Row::valid.pack(words, bool(entry.underlayEcmpNextHopIndexHandle));
      Row::strengthProfile.pack(words, entry.strengthProfile);
      Row::nextHop.pack(words, entry.underlayEcmpNextHopIndex);
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::L3UnderlayEcmpMember1Table, Util> const
      plugin(ModelChip::L3UnderlayEcmpMember1Table::layout);

} // namespace
