#pragma once

#include "platform/chipstate/ChipInfo.h"
#include "platform/chipstate/FeatureAgentCommonSmData.h"
#include "platform/local/EntityManager.h"
#include "platform/nuv/Export.h"
#include "tables/EgrL3Oif2.h"
#include "tables/L3NextHop2Table.h"
#include "tables/L3UnderlayEcmpMember1Table.h"
#include "types/L3Via.h"

namespace ZandorL3Tunnel {

/// Turns the underlay vias of a tunnel destination into programmed next hops and a block of ECMP members, at
/// which an ECMP group can point. It keeps no map of its own: equal vias and equal sets are shared by the
/// tables.
class ZANDOR_EXPORT L3UnderlayEcmpProgrammer final : public Nuv::Object {
 public:
   using Fcsd = Nuv::Ptr<ZandorCentral::FeatureAgentCommonSmData const>;
   using KalloEm = Nuv::Ptr<Kallo::EntityManager>;
   using LocalEm = Nuv::Ptr<Local::EntityManager const>;
   using HandlePtr = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

   using Flow = Nuv::Ptr<Nuv::Object const>;

   /// The chip as an attribute.
   struct PublishedChipInfo final : Nuv::Object {
      explicit PublishedChipInfo(ZandorCentral::ChipInfo const& of) : info(of) {}

      ZandorCentral::ChipInfo const info;
   };

   /// Where the shared egress-interface table is found, and as what it is mounted.
   static constexpr char const* egrL3Oif2Path = "l3/swTable/shared/interface/underlayEgrIntf";

   L3UnderlayEcmpProgrammer(Fcsd const& fcsd, KalloEm const& kalloEm, LocalEm const& localEm);

   /// A new programmer, without tables.
   static Nuv::Ptr<L3UnderlayEcmpProgrammer>
   L3UnderlayEcmpProgrammerIs(Fcsd const& fcsd, KalloEm const& kalloEm, LocalEm const& localEm);

   static constexpr char const* typeName() { return "ZandorL3Tunnel::L3UnderlayEcmpProgrammer"; }
   static constexpr auto attributeList() {
      using Self = L3UnderlayEcmpProgrammer;
      return std::tuple(Nuv::attribute("fcsd", &Self::fcsd), Nuv::attribute("kalloEm", &Self::kalloEm),
                        Nuv::attribute("localEm", &Self::localEm),
                        Nuv::attribute("l3EcmpNextHopTable", &Self::l3EcmpNextHopTable),
                        Nuv::attribute("l3EcmpMemberTable", &Self::l3EcmpMemberTable),
                        Nuv::attribute("egrL3Oif2", &Self::egrL3Oif2),
                        Nuv::attribute("chipInfo", &Self::chipInfo),
                        Nuv::attribute("defaultIngUnderlayFlow", &Self::defaultIngUnderlayFlow),
                        Nuv::attribute("defaultEgrUnderlayFlow", &Self::defaultEgrUnderlayFlow),
                        Nuv::attribute("l3IngUnderlayFlow", &Self::l3IngUnderlayFlow),
                        Nuv::attribute("l3EgrUnderlayFlow", &Self::l3EgrUnderlayFlow));
   }
   static Nuv::FwkType staticFwkType();
   Nuv::FwkType fwkType() const override { return staticFwkType(); }

   /// Adds to `group` the mounts of what its tables publish of their hardware tables. A group that is mounted
   /// before `initTables` is complete once that has initialised them.
   static void doMountHwTableMountInfo(Nuv::Ptr<Kallo::MountGroup> const& group);

   /// Makes the tables for the chip, publishes their hardware tables in the state database and finds the
   /// shared egress-interface table, which must be there. A second call starts with new tables; handles given
   /// out before keep the old ones alive.
   void initTables(ZandorCentral::ChipInfo const& chipInfo);

   /// The handle of the block with one member for each via, in the order of the set: an existing equal one,
   /// or a new one. It lives as long as somebody holds the handle; its state tells how far it has come. With
   /// `isCpuDrop`, a via to the CPU drops instead. Every unicast via's interface must be in the
   /// egress-interface table. Null before `initTables`; throws `Nuv::Exception` when the set is too large for
   /// a block.
   HandlePtr getEcmpBlockHandle(Nuv::Ptr<L3Via const> const& vias, bool isCpuDrop);

   Fcsd const& fcsd() const { return fcsd_; }
   KalloEm const& kalloEm() const { return kalloEm_; }
   LocalEm const& localEm() const { return localEm_; }
   Nuv::Ptr<L3NextHop2Table> const& l3EcmpNextHopTable() const { return l3EcmpNextHopTable_; }
   Nuv::Ptr<L3UnderlayEcmpMember1Table> const& l3EcmpMemberTable() const { return l3EcmpMemberTable_; }
   Nuv::Ptr<EgrL3Oif2 const> const& egrL3Oif2() const { return egrL3Oif2_; }

   /// The chip that `initTables` was told; null before.
   Nuv::Ptr<PublishedChipInfo> const& chipInfo() const { return chipInfo_; }

   /// What the agent says of the underlay's flows. They are published, and nothing here reads them: next hops
   /// have their fixed profiles.
   Flow const& defaultIngUnderlayFlow() const { return defaultIngUnderlayFlow_; }
   Flow const& defaultEgrUnderlayFlow() const { return defaultEgrUnderlayFlow_; }
   Flow const& l3IngUnderlayFlow() const { return l3IngUnderlayFlow_; }
   Flow const& l3EgrUnderlayFlow() const { return l3EgrUnderlayFlow_; }
   void defaultIngUnderlayFlowIs(Flow const& flow) { defaultIngUnderlayFlow_ = flow; }
   void defaultEgrUnderlayFlowIs(Flow const& flow) { defaultEgrUnderlayFlow_ = flow; }
   void l3IngUnderlayFlowIs(Flow const& flow) { l3IngUnderlayFlow_ = flow; }
   void l3EgrUnderlayFlowIs(Flow const& flow) { l3EgrUnderlayFlow_ = flow; }

 private:
   /// What the kind of a via makes of its next hop.
   struct NextHopInfo {
      IngL3NextHop2Table::Entry ing;
      EgrL3NextHop2::Entry egr;
      bool cpu{};
      bool drop{};
   };

   NextHopInfo fillNextHopInfo(L3ViaEntry const& via) const;
   HandlePtr nextHopHandle(L3ViaEntry const& via, bool isCpuDrop);

   Fcsd fcsd_;
   KalloEm kalloEm_;
   LocalEm localEm_;
   Nuv::Ptr<L3NextHop2Table> l3EcmpNextHopTable_;
   Nuv::Ptr<L3UnderlayEcmpMember1Table> l3EcmpMemberTable_;
   Nuv::Ptr<EgrL3Oif2 const> egrL3Oif2_;
   Nuv::Ptr<PublishedChipInfo> chipInfo_;
   Flow defaultIngUnderlayFlow_;
   Flow defaultEgrUnderlayFlow_;
   Flow l3IngUnderlayFlow_;
   Flow l3EgrUnderlayFlow_;
};

/// The same as `L3UnderlayEcmpProgrammer::L3UnderlayEcmpProgrammerIs`.
ZANDOR_EXPORT Nuv::Ptr<L3UnderlayEcmpProgrammer>
l3UnderlayEcmpProgrammerFactory(L3UnderlayEcmpProgrammer::Fcsd const& fcsd,
                                L3UnderlayEcmpProgrammer::KalloEm const& kalloEm,
                                L3UnderlayEcmpProgrammer::LocalEm const& localEm);

} // namespace ZandorL3Tunnel
