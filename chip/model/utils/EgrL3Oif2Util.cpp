#include "chip/model/UtilPlugin.h"
#include "tables/EgrL3Oif2.h"

namespace {

class Util final : public ZandorL3Tunnel::EgrL3Oif2::Util {
 public:
   explicit Util(Nuv::Ptr<Asic::HwTable> const& table) : EntryUtil(table) {}

   void rowOf(ZandorL3Tunnel::EgrL3Oif2::Entry const& entry, std::span<std::uint32_t> words) const override {
      namespace Row = ModelChip::EgrL3Oif2;
      Row::valid.pack(words, 1);
      Row::tagged.pack(words, entry.isUnderlayL2HdrTagged);
      Row::vlanTag.pack(words, entry.tnlVlanTag);
      Row::srcMac.pack(words, entry.srcMacAddress.value());
   }
};

ModelChip::UtilPlugin<ZandorL3Tunnel::EgrL3Oif2, Util> const plugin(ModelChip::EgrL3Oif2::layout);

} // namespace
