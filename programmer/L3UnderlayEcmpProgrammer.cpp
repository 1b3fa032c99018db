#include "programmer/L3UnderlayEcmpProgrammer.h"

#include "platform/asic/DontCareHandle.h"
#include "platform/nuv/Assert.h"
#include "platform/trace/Mirelog.h"
#include "plugin/DefaultTraceHandle.h"

namespace ZandorL3Tunnel {

namespace {

Nuv::Module const module("L3UnderlayEcmpProgrammer");
Nuv::RegisteredClass<L3UnderlayEcmpProgrammer> const programmerType(module);

[[maybe_unused]] Pelm::String const namespacePrefix("ns-");

// Profiles that every underlay next hop and member carries.
constexpr std::uint8_t ingStrengthProfile = 5;
constexpr std::uint8_t egrStrengthProfile = 9;
constexpr std::uint8_t memberStrengthProfile = 0;

Trace::Facility const&
facility() {
   static Trace::Facility const instance("ZandorL3TunnelL3UnderlayEcmpProgrammer");
   return instance;
}

L3UnderlayNextHopKey
keyOf(L3ViaEntry const& via) {
   L3UnderlayNextHopKey key;
   key.nhEntryType = via.nhEntryType;
   key.macAddr = via.macAddr;
   key.l3Id = via.l3Id;
   key.l2If = via.l2If;
   return key;
}

void
populateEcmpBlock(L3UnderlayEcmpMember1Table::EntryBlock& block, std::uint32_t position,
                  L3UnderlayEcmpProgrammer::HandlePtr nextHop) {
   L3UnderlayEcmpMember1Table::Entry member;
   member.underlayEcmpNextHopIndexHandle = std::move(nextHop);
   member.strengthProfile = memberStrengthProfile;
   block.entryIs(position, std::move(member));
}

} // namespace

L3UnderlayEcmpProgrammer::L3UnderlayEcmpProgrammer(Fcsd const& fcsd, KalloEm const& kalloEm,
                                                   LocalEm const& localEm)
    : fcsd_(fcsd), kalloEm_(kalloEm), localEm_(localEm) {}

Nuv::FwkType
L3UnderlayEcmpProgrammer::staticFwkType() {
   return {&module};
}

Nuv::Ptr<L3UnderlayEcmpProgrammer>
L3UnderlayEcmpProgrammer::L3UnderlayEcmpProgrammerIs(Fcsd const& fcsd, KalloEm const& kalloEm,
                                                     LocalEm const& localEm) {
   return Nuv::make<L3UnderlayEcmpProgrammer>(fcsd, kalloEm, localEm);
}

Nuv::Ptr<L3UnderlayEcmpProgrammer>
l3UnderlayEcmpProgrammerFactory(L3UnderlayEcmpProgrammer::Fcsd const& fcsd,
                                L3UnderlayEcmpProgrammer::KalloEm const& kalloEm,
                                L3UnderlayEcmpProgrammer::LocalEm const& localEm) {
   return L3UnderlayEcmpProgrammer::L3UnderlayEcmpProgrammerIs(fcsd, kalloEm, localEm);
}

void
L3UnderlayEcmpProgrammer::doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group) {
   L3NextHop2Table::doMountHwTableMountInfo(group);
   L3UnderlayEcmpMember1Table::doMountHwTableMountInfo(group);
}

void
L3UnderlayEcmpProgrammer::initTables(ZandorCentral::ChipInfo const& chipInfo) {
   NUV_ASSERT(fcsd()->logicalModInfos(), "");
   DUOLOG(defaultTraceHandle(), TraceLevel::programmer, "initTables", " Allocating L3EcmpNextHop tables");
   MIRELOG(facility(), TraceLevel::programmer, "initTables of unit {}", fcsd()->unit());
   chipInfo_ = Nuv::make<PublishedChipInfo>(chipInfo);
   auto unit = fcsd()->unit();
   l3EcmpNextHopTable_ = l3NextHop2TableFactory();
   l3EcmpNextHopTable_->doInit(unit, kalloEm_, chipInfo);
   l3EcmpNextHopTable_->doPublishHwTableMountInfo();
   l3EcmpNextHopTable_->entryRemoveAll();
   l3EcmpMemberTable_ = l3UnderlayEcmpMember1TableFactory();
   l3EcmpMemberTable_->doInit(unit, kalloEm_, chipInfo);
   l3EcmpMemberTable_->doPublishHwTableMountInfo();
   l3EcmpMemberTable_->entryBlockRemoveAll();
   localEm_->doMount(egrL3Oif2Path, EgrL3Oif2::typeName());
   egrL3Oif2_ = Nuv::dynamicCast<EgrL3Oif2 const>(localEm_->getEntity(egrL3Oif2Path));
   NUV_ASSERT(egrL3Oif2(), egrL3Oif2Path);
}

// A via without a port is one that the CPU has to deal with.
L3UnderlayEcmpProgrammer::NextHopInfo
L3UnderlayEcmpProgrammer::fillNextHopInfo(L3ViaEntry const& via) const {
   using Brix::NextHopEntryType;
   NextHopInfo info;
   info.ing.strengthProfileIndex = ingStrengthProfile;
   info.egr.strengthProfileIndex = egrStrengthProfile;
   switch (via.nhEntryType) {
   case NextHopEntryType::receive:
   case NextHopEntryType::glean:
      info.cpu = true;
      break;
   case NextHopEntryType::drop:
      info.drop = true;
      break;
   case NextHopEntryType::unicast:
   case NextHopEntryType::tunnelUnicast:
      if (!via.l2If.isValid()) {
         info.cpu = true;
         break;
      }
      info.egr.dstMacAddress = via.macAddr;
      info.egr.l3Oif2Handle = egrL3Oif2_->entryWeakRef(via.l3Id.value);
      info.ing.destinationType = std::uint8_t(DestinationType::unicast);
      info.ing.destinationId = via.l2If.value;
      break;
   default:
      NUV_ASSERT_AS("fillNextHopInfo", false, "0", Nuv::text("next-hop type ", via.nhEntryType));
   }
   return info;
}

L3UnderlayEcmpProgrammer::HandlePtr
L3UnderlayEcmpProgrammer::nextHopHandle(L3ViaEntry const& via, bool isCpuDrop) {
   auto const& trace = defaultTraceHandle();
   auto info = fillNextHopInfo(via);
   DUOLOG(trace, TraceLevel::programmer, "fillNextHopInfo", "; macAddr=", via.macAddr, " cpu=", info.cpu,
          "; drop=", info.drop);
   if (info.drop || (isCpuDrop && info.cpu)) {
      DUOLOG(trace, TraceLevel::programmer, " dropNextHop");
      info.ing.destinationType = std::uint8_t(DestinationType::invalidDestination);
      info.egr.l3Oif2Handle = SwTableWorkaround::dontCareHandle(0);
   } else if (info.cpu) {
      DUOLOG(trace, TraceLevel::programmer, " cpuNextHop");
      info.ing.destinationType = std::uint8_t(DestinationType::system);
      info.egr.l3Oif2Handle = SwTableWorkaround::dontCareHandle(0);
   }
   return l3EcmpNextHopTable_->entryWrite(keyOf(via), info.ing, info.egr, Asic::AutoRemoveType::automatic);
}

L3UnderlayEcmpProgrammer::HandlePtr
L3UnderlayEcmpProgrammer::getEcmpBlockHandle(Nuv::Ptr<L3Via const> const& vias, bool isCpuDrop) {
   auto const& trace = defaultTraceHandle();
   L3UnderlayEcmpMember1Table::EntryBlock block;
   // Who hears of the tables while they are made may ask too early.
   if (!l3EcmpNextHopTable_ || !l3EcmpMemberTable_ || !egrL3Oif2_) {
      MIRELOG(facility(), TraceLevel::programmer, "getEcmpBlockHandle ARM tables are not initialized");
      DUOLOG(trace, TraceLevel::programmer, "getEcmpBlockHandle", " ARM tables are not initialized");
      return nullptr;
   }
   if (auto size = vias->via().size()) {
      block.reserve(size);
   }
   std::uint32_t position = 0;
   for (auto at = vias->via().iterator(); at; ++at) {
      L3ViaEntry const via = at->key();
      DUOLOG(trace, TraceLevel::programmer, "getEcmpBlockHandle", " nextHop: entryType=", via.nhEntryType,
             ";macAddr=", via.macAddr, "; l2If=", via.l2If, "; l3Id=", via.l3Id);
      populateEcmpBlock(block, position++, nextHopHandle(via, isCpuDrop));
   }
   auto ecmpBlockHandle = l3EcmpMemberTable_->entryBlockRef(block);
   NUV_ASSERT(ecmpBlockHandle, "");
   MIRELOG(facility(), TraceLevel::programmer, "getEcmpBlockHandle vias {} handle {}", position,
           ecmpBlockHandle->creationNumber());
   return ecmpBlockHandle;
}

} // namespace ZandorL3Tunnel
