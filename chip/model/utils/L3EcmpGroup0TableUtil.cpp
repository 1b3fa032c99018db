#include "chip/model/UtilPlugin.h"
#include "tables/L3EcmpGroup0Table.h"

namespace {

class Util final : public ZandorL3Tunnel::L3EcmpGroup0Table::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::L3EcmpGroup0Table::Entry const& entry,
              std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::L3EcmpGroup0Table;
      Row::valid.pack(words, 1);
      Row::ecmpBlock.pack(words, entry.ecmpBlockPtr);
      Row::numPaths.pack(words, entry.numPaths);
      Row::lbMode.pack(words, entry.lbMode);
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::L3EcmpGroup0Table, Util> const
      plugin(ModelChip::L3EcmpGroup0Table::layout);

} // namespace
