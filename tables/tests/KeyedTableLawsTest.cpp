#include "platform/asic/DontCareHandle.h"
#include "swtable/testing/TableLaws.h"
#include "swtable/testing/WaitingLaws.h"
#include "tables/EgrL3NextHop2.h"
#include "tables/EgrL3Oif2.h"
#include "tables/IngL3NextHop2Table.h"
#include "tables/L3EcmpGroup0Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"

namespace ZandorL3Tunnel {
namespace {

/// Traits of a table whose key is the index and whose entries need nothing that a test has to bring along.
template <class Table>
struct IndexTraits {
   using T = Table;
   void init(ModelChip::Chip&, Nuv::Ptr<Kallo::EntityManager> const&) {}
   static Asic::Index key(unsigned number) { return number + 1; }
   static Pelm::String hwTableName() { return Table::Sheet::hwTableName(); }
   static Nuv::Ptr<T> make() { return Nuv::make<T>(Pelm::String(Table::Sheet::hwTableName())); }
};

struct InterfaceTraits : IndexTraits<EgrL3Oif2> {
   static EgrL3Oif2::Entry entry(unsigned number) {
      EgrL3Oif2::Entry entry;
      entry.tnlVlanTag = std::uint16_t(number);
      return entry;
   }
};

struct IngressTraits : IndexTraits<IngL3NextHop2Table> {
   static IngL3NextHop2Table::Entry entry(unsigned number) {
      IngL3NextHop2Table::Entry entry;
      entry.destinationId = std::uint16_t(number);
      return entry;
   }
};

struct EgressTraits : IndexTraits<EgrL3NextHop2> {
   EgrL3NextHop2::Entry entry(unsigned number) const {
      EgrL3NextHop2::Entry entry;
      entry.l3Oif2Handle = needed;
      entry.dstMacAddress = {{2, 0, 0, 0, 0, std::uint8_t(number)}};
      return entry;
   }

   Asic::NeededHandle needed = SwTableWorkaround::dontCareHandle(0);
};

struct GroupTraits {
   using T = L3EcmpGroup0Table;

   void init(ModelChip::Chip& chip, Nuv::Ptr<Kallo::EntityManager> const& stateDatabase) {
      members->doInit(0, stateDatabase, chip.chipInfo());
      needed = members->entryBlockRef({});
   }
   static ZandorL3Common::L3AdjIdKey key(unsigned number) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = number;
      return key;
   }
   L3EcmpGroup0Table::Entry entry(unsigned number) const {
      L3EcmpGroup0Table::Entry entry;
      entry.ecmpBlockPtrHandle = needed;
      entry.lbMode = number;
      return entry;
   }
   static Pelm::String hwTableName() { return "L3EcmpGroup0Table"; }
   static Nuv::Ptr<T> make() { return l3EcmpGroup0TableFactory("L3EcmpGroup0Table"); }

   Nuv::Ptr<L3UnderlayEcmpMember1Table> members = l3UnderlayEcmpMember1TableFactory();
   Asic::NeededHandle needed;
};

constexpr TableDriverFactory interfaces{"EgrL3Oif2", KeyedTableDriver<InterfaceTraits>::make};
constexpr TableDriverFactory ingressHalves{"IngL3NextHop2Table", KeyedTableDriver<IngressTraits>::make};
constexpr TableDriverFactory egressHalves{"EgrL3NextHop2", KeyedTableDriver<EgressTraits>::make};
constexpr TableDriverFactory groups{"L3EcmpGroup0Table", KeyedTableDriver<GroupTraits>::make};

std::string
nameOf(testing::TestParamInfo<TableDriverFactory> const& each) {
   return each.param.name;
}

INSTANTIATE_TEST_SUITE_P(Keyed, TableLaws, testing::Values(interfaces, ingressHalves, egressHalves, groups),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Keyed, RestartLaws, testing::Values(interfaces, ingressHalves, egressHalves),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Keyed, WaitingLaws, testing::Values(egressHalves, groups), nameOf);

} // namespace
} // namespace ZandorL3Tunnel
