#include "platform/chipstate/L3AdjIdKey.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3EcmpMember0Table.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "types/SwFieldTypes.h"

#include <cstdlib>

namespace {

using namespace ZandorL3Tunnel;

// Whatever can be read must print as text that reads back as the same value.
template <class V>
void
readText(Pelm::StringView text) {
   try {
      auto value = Nuv::valueFromText<V>(text);
      auto again = Nuv::valueFromText<V>(Nuv::text(value));
      if (!(again == value)) {
         std::abort();
      }
   } catch (Nuv::RangeException const&) {
      return;
   }
}

using Reader = void (*)(Pelm::StringView);

constexpr Reader readers[] = {readText<L3ViaEntry>,
                              readText<L3UnderlayNextHopKey>,
                              readText<ZandorL3Common::L3AdjIdKey>,
                              readText<EgrL3Oif2::Entry>,
                              readText<IngL3NextHop2Table::Entry>,
                              readText<EgrL3NextHop2::Entry>,
                              readText<L3EcmpGroup0Table::Entry>,
                              readText<L3EcmpMember0Table::Entry>,
                              readText<L3UnderlayEcmpMember1Table::Entry>,
                              readText<U13>,
                              readText<DestinationType>,
                              readText<L3UnderlayIngNextHopStrengthProfileIndex>,
                              readText<L3UnderlayEgrNextHopStrengthProfileIndex>,
                              readText<Brix::NextHopEntryType>,
                              readText<Fendo::EthAddr>,
                              readText<BrixL3Intf::L3Id>,
                              readText<ZandorCentral::VirtualPort>,
                              readText<bool>,
                              readText<unsigned long long>};

} // namespace

/// The first byte chooses the type, from 'A' on; the rest is its text.
extern "C" int
LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   if (size == 0) {
      return 0;
   }
   Pelm::StringView text(reinterpret_cast<char const*>(data) + 1, size - 1);
   readers[std::uint8_t(data[0] - 'A') % std::size(readers)](text);
   return 0;
}
