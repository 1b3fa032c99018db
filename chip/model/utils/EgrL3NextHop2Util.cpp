#include "chip/model/UtilPlugin.h"
#include "tables/EgrL3NextHop2.h"

namespace {

class Util final : public ZandorL3Tunnel::EgrL3NextHop2::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::EgrL3NextHop2::Entry const& entry,
              std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::EgrL3NextHop2;
      Row::valid.pack(words, 1);
      Row::strengthProfile.pack(words, entry.strengthProfileIndex);
      Row::l3Oif.pack(words, entry.l3Oif2.value());
      Row::dstMac.pack(words, entry.dstMacAddress.value());
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::EgrL3NextHop2, Util> const plugin(ModelChip::EgrL3NextHop2::layout);

} // namespace
