#include "agent/Fabric.h"

#include <algorithm>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

// Indices from 0xffff on are no ports.
constexpr std::size_t mostPorts = ZandorCentral::VirtualPort::invalidValue - 1;

// How a group spreads flows: over one path there is nothing to spread.
constexpr std::uint32_t singlePathMode = 0;
constexpr std::uint32_t flowHashMode = 1;

bool
forwards(ProgrammedVia const& via) {
   return via.via.kind == ViaKind::unicast && via.entry.l2If.isValid();
}

bool
isToCpu(ProgrammedVia const& via) {
   return via.via.kind == ViaKind::cpu || (via.via.kind == ViaKind::unicast && !via.entry.l2If.isValid());
}

} // namespace

Fabric::Fabric(ModelChip::Chip::Sizes const& sizes)
    : chip_(Nuv::make<ModelChip::Chip>(loop_, sizes))
    , stateDatabase_(Nuv::make<Kallo::EntityManager>())
    , local_(Nuv::make<Local::EntityManager>())
    , interfaces_(egrL3Oif2Factory(EgrL3Oif2::typeName()))
    , interfaceIndices_(Nuv::make<Asic::FirstFreeIndexAllocator>("interfaces"))
    , groups_(l3EcmpGroup0TableFactory(L3EcmpGroup0Table::typeName())) {
   chip_->publish(*stateDatabase_, unit);
   interfaces_->doInit(unit, stateDatabase_, chip_->chipInfo());
   groups_->doInit(unit, stateDatabase_, chip_->chipInfo());
   // Interface 0 stands for none in particular; a via names one in 16 bits.
   interfaceIndices_->numEntriesIs(std::min<Asic::Index>(interfaces_->numEntries(), 0x10000));
   interfaceIndices_->reserveIndices(0, 1);
   local_->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces_);
   auto chipState = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   chipState->logicalModInfoIs({0});
   programmer_ = l3UnderlayEcmpProgrammerFactory(chipState, stateDatabase_, local_);
   programmer_->initTables(chip_->chipInfo());
}

Fabric::~Fabric() = default;

void
Fabric::program(KernelState const& state, std::vector<Destination> const& destinations) {
   for (auto const& destination : destinations) {
      ProgrammedDestination programmed{destination.address, {}, destination.reason, {}, {}};
      for (auto const& via : destination.vias) {
         programmed.vias.push_back(programmedVia(state, via));
      }
      // Software is for what the chip cannot forward: beside vias that forward it would only take packets
      // away.
      bool anyForwards = std::any_of(programmed.vias.begin(), programmed.vias.end(), forwards);
      for (auto& via : programmed.vias) {
         via.isProgrammed = !(anyForwards && isToCpu(via));
      }
      if (!programmed.vias.empty()) {
         blockAndGroupAre(programmed, std::uint32_t(destinations_.size() + 1));
      }
      destinations_.push_back(std::move(programmed));
   }
}

void
Fabric::clear() {
   destinations_.clear();
   groups_->entryRemoveAll();
   settle();
   interfaces_->entryRemoveAll();
   settle();
}

void
Fabric::blockAndGroupAre(ProgrammedDestination& destination, std::uint32_t adjacency) {
   auto vias = l3ViaFactory();
   for (auto const& via : destination.vias) {
      if (via.isProgrammed) {
         vias->viaIs(via.entry, via.via.weight);
      }
   }
   try {
      destination.block = programmer_->getEcmpBlockHandle(vias, false);
   } catch (Nuv::Exception const& refused) {
      destination.reason = refused.what();
      return;
   }
   ZandorL3Common::L3AdjIdKey key;
   key.id = adjacency;
   L3EcmpGroup0Table::Entry group;
   group.ecmpBlockPtrHandle = destination.block;
   group.numPaths = std::uint16_t(vias->via().size());
   group.lbMode = group.numPaths > 1 ? flowHashMode : singlePathMode;
   destination.group = groups_->entryCommit(key, group);
}

ProgrammedVia
Fabric::programmedVia(KernelState const& state, DerivedVia const& via) {
   ProgrammedVia programmed{via, false, {}};
   switch (via.kind) {
   case ViaKind::unicast:
      programmed.entry.nhEntryType = Brix::NextHopEntryType::unicast;
      unicastIs(state, programmed);
      break;
   case ViaKind::cpu:
      programmed.entry.nhEntryType = Brix::NextHopEntryType::receive;
      break;
   case ViaKind::drop:
      programmed.entry.nhEntryType = Brix::NextHopEntryType::drop;
      break;
   }
   return programmed;
}

// Without a port the neighbour alone is known, which is what the CPU needs; the interface entry would not be
// used.
void
Fabric::unicastIs(KernelState const& state, ProgrammedVia& programmed) {
   auto const& via = programmed.via;
   programmed.entry.macAddr = ethAddr(*via.mac);
   auto const* device = via.device ? state.link(*via.device) : nullptr;
   if (!via.port || !device || !device->mac) {
      return;
   }
   InterfaceKey key;
   key.sourceMac = ethAddr(*device->mac);
   key.tagged = via.tagged.value_or(false);
   key.vlan = key.tagged ? via.vlan.value_or(0) : std::uint16_t(0);
   auto port = portNumberIs(*via.port);
   auto interface = port == ZandorCentral::VirtualPort::invalidValue ? Asic::invalidIndex : interfaceIs(key);
   if (interface == Asic::invalidIndex) {
      programmed.via.reason = port == ZandorCentral::VirtualPort::invalidValue ? "no free port number"
                                                                               : "no free interface index";
      return;
   }
   programmed.entry.l3Id = {std::uint16_t(interface)};
   programmed.entry.l2If = {port};
}

Asic::Index
Fabric::interfaceIs(InterfaceKey const& key) {
   auto index = interfaceIndices_->newIndexForKey(Nuv::nuvType<InterfaceKey>(), &key);
   if (index != Asic::invalidIndex && !interfaces_->entryHas(index)) {
      EgrL3Oif2::Entry entry;
      entry.isUnderlayL2HdrTagged = key.tagged;
      entry.srcMacAddress = key.sourceMac;
      entry.tnlVlanTag = key.vlan;
      interfaces_->entryCommit(index, entry);
   }
   return index;
}

std::uint16_t
Fabric::portNumberIs(int device) {
   if (auto number = portNumber(device)) {
      return *number;
   }
   if (ports_.size() == mostPorts) {
      return ZandorCentral::VirtualPort::invalidValue;
   }
   ports_.push_back(device);
   return std::uint16_t(ports_.size());
}

std::optional<std::uint16_t>
Fabric::portNumber(int device) const {
   auto found = std::find(ports_.begin(), ports_.end(), device);
   return found == ports_.end() ? std::nullopt : std::optional(std::uint16_t(found - ports_.begin() + 1));
}

int
Fabric::portDevice(std::uint16_t number) const {
   return number >= 1 && number <= ports_.size() ? ports_[number - 1] : 0;
}

} // namespace L3TunnelAgent
