#include "chip/model/UtilPlugin.h"
#include "tables/IngL3NextHop2Table.h"

namespace {

class Util final : public ZandorL3Tunnel::IngL3NextHop2Table::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::IngL3NextHop2Table::Entry const& entry,
              std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::IngL3NextHop2Table;
      Row::valid.pack(words, 1);
      Row::destinationType.pack(words, entry.destinationType);
      Row::destinationId.pack(words, entry.destinationId);
      Row::strengthProfile.pack(words, entry.strengthProfileIndex);
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::IngL3NextHop2Table, Util> const
      plugin(ModelChip::IngL3NextHop2Table::layout);

} // namespace
