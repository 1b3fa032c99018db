#include "agent/Fabric.h"

#include "agent/Cause.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

namespace L3TunnelAgent {

using namespace ZandorL3Tunnel;

namespace {

// How a group spreads flows: over one path there is nothing to spread.
constexpr std::uint32_t singlePathMode = 0;
constexpr std::uint32_t flowHashMode = 1;

constexpr std::size_t mostMembers = 65535; // of a block

DestinationState
stateOf(Asic::SwTableBase::EntryHandle const& handle) {
   using State = Asic::SwTableBase::EntryState;
   switch (handle.entryState()) {
   case State::unresolved:
      return DestinationState::unresolved;
   case State::inProgress:
   case State::suspended:
      return DestinationState::inProgress;
   case State::success:
      return DestinationState::success;
   case State::failedNeededEntry:
      return DestinationState::failedNeededEntry;
   case State::failed:
      break;
   }
   return DestinationState::failed;
}

std::size_t
hashOf(std::vector<DerivedVia> const& vias) {
   std::size_t hash = vias.size();
   for (auto const& via : vias) {
      for (auto const byte : via.mac.value_or(MacAddress()).bytes) {
         hash = hash * 31 + byte;
      }
      hash = hash * 31 + std::size_t(via.port.value_or(0));
   }
   return hash;
}

bool
isShort(ViaSet const& set) {
   return std::any_of(set.vias.begin(), set.vias.end(), [](auto const& via) { return !via.shortOf.empty(); });
}

} // namespace

std::string_view
text(DestinationState state) {
   static constexpr std::string_view names[] = {"noRoute", "unresolved",        "inProgress",
                                                "success", "failedNeededEntry", "failed"};
   return names[std::size_t(state)];
}

DestinationState
ProgrammedDestination::state() const {
   if (!wanted) {
      return group ? stateOf(*group) : DestinationState::noRoute;
   }
   if (!wanted->block) {
      return failure;
   }
   auto const ofBlock = stateOf(*wanted->block);
   return ofBlock == DestinationState::success ? stateOf(*group) : ofBlock;
}

Fabric::Fabric(Settings settings)
    : settings_(std::move(settings))
    , chip_(Nuv::make<ModelChip::Chip>(loop_, settings_.sizes))
    , stateDatabase_(Nuv::make<Kallo::EntityManager>())
    , local_(Nuv::make<Local::EntityManager>())
    , groups_(l3EcmpGroup0TableFactory(L3EcmpGroup0Table::typeName())) {
   chip_->publish(*stateDatabase_, unit);
   auto interfaces = egrL3Oif2Factory(EgrL3Oif2::typeName());
   interfaces->doInit(unit, stateDatabase_, chip_->chipInfo());
   groups_->doInit(unit, stateDatabase_, chip_->chipInfo());
   local_->entityIs(L3UnderlayEcmpProgrammer::egrL3Oif2Path, EgrL3Oif2::typeName(), interfaces);
   interfaces_ = std::make_unique<Interfaces>(std::move(interfaces));
   auto chipState = Nuv::make<ZandorCentral::FeatureAgentCommonSmData>(unit);
   chipState->logicalModInfoIs({0});
   programmer_ = l3UnderlayEcmpProgrammerFactory(chipState, stateDatabase_, local_);
   programmer_->initTables(chip_->chipInfo());
}

Fabric::~Fabric() = default;

void
Fabric::destinationIs(Destination const& wanted) {
   auto& destination = destinations_[wanted.address];
   destination.address = wanted.address;
   touch(wanted.address);
   failed_.erase(wanted.address);
   if (wanted.vias.empty()) {
      groupDel(destination);
      destination.reason = wanted.reason;
      return;
   }
   destination.reason.clear();
   destination.lacksGroup = false;
   if (destination.adjacency == 0) {
      destination.adjacency = ++lastAdjacency_;
   }
   wantedIs(destination, viaSet(wanted.vias));
}

/// What is asked for anew is no longer tried again.
void
Fabric::touch(IpAddress const& address) {
   settled_ = false;
   touched_.insert(address);
   if (retry_) {
      retry_->left.erase(address);
      if (retry_->tried && retry_->tried->address == address) {
         retry_->tried.reset();
      }
   }
}

void
Fabric::destinationDel(IpAddress const& address) {
   auto const found = destinations_.find(address);
   if (found == destinations_.end()) {
      return;
   }
   groupDel(found->second);
   touch(address);
   failed_.erase(address);
   destinations_.erase(found);
}

void
Fabric::clear() {
   while (!destinations_.empty()) {
      destinationDel(IpAddress(destinations_.begin()->first));
   }
   settle();
}

// A set that hands over what the one before it did differs in words only.
void
Fabric::wantedIs(ProgrammedDestination& destination, ViaSet set) {
   if (isShort(set)) {
      failed_.insert(destination.address);
   }
   auto const handsOverTheSame = [&](std::optional<ViaSet> const& other) {
      return other && other->block && other->handed->via() == set.handed->via();
   };
   if (handsOverTheSame(destination.wanted)) {
      destination.wanted->vias = std::move(set.vias);
      return;
   }
   // What a set on its way has taken comes free.
   released_ |= destination.wanted && destination.wanted->block;
   if (handsOverTheSame(destination.current)) {
      bool const wasMoving = destination.wanted && destination.wanted->block;
      destination.current->vias = std::move(set.vias);
      if (wasMoving) {
         set = *destination.current;
         groupIs(destination, set);
         destination.wanted = std::move(set);
         moving_.insert(destination.address);
      } else {
         destination.wanted.reset();
      }
      return;
   }
   try {
      set.block = programmer_->getEcmpBlockHandle(set.handed, settings_.dropToCpu);
   } catch (Nuv::Exception const& refused) {
      auto const size = set.handed->via().size();
      auto reason = size > mostMembers
                          ? fmt::format("{} vias are more than a block's {} members", size, mostMembers)
                          : std::string(refused.what());
      if (!destination.current && destination.wanted && destination.wanted->block) {
         destination.current = std::move(destination.wanted);
      }
      destination.wanted = std::move(set);
      failedIs(destination, DestinationState::failed, std::move(reason));
      return;
   }
   groupIs(destination, set);
   destination.wanted = std::move(set);
   moving_.insert(destination.address);
}

void
Fabric::groupIs(ProgrammedDestination& destination, ViaSet const& set) {
   L3EcmpGroup0Table::Entry group;
   group.ecmpBlockPtrHandle = set.block;
   group.numPaths = std::uint16_t(set.handed->via().size());
   group.lbMode = group.numPaths > 1 ? flowHashMode : singlePathMode;
   ZandorL3Common::L3AdjIdKey key;
   key.id = destination.adjacency;
   destination.tookGroupBack |= !destination.group && groups_->handles().has(key);
   destination.group = groups_->entryCommit(key, group);
}

void
Fabric::groupDel(ProgrammedDestination& destination) {
   moving_.erase(destination.address);
   if (destination.group) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = destination.adjacency;
      groups_->entryRemove(key);
      destination.group = nullptr;
      released_ = true;
   }
   destination.current.reset();
   destination.wanted.reset();
}

std::size_t
Fabric::settle() {
   auto const before = steps_;
   while (step(std::numeric_limits<std::size_t>::max())) {
   }
   return steps_ - before;
}

bool
Fabric::awaitsAnswers() const {
   auto const& tables = chip_->tables();
   return std::any_of(tables.begin(), tables.end(),
                      [](auto const& table) { return table->unanswered() > 0; });
}

// What the chip answers, and what follows from that, until nothing more does.
bool
Fabric::step(std::size_t mostSteps) {
   for (; mostSteps != 0 && loop_.runOne(); --mostSteps) {
      ++steps_;
      // What was let go before the fabric settled may come free only now.
      released_ |= std::exchange(awaited_, false);
   }
   settled_ = false;
   if (!loop_.idle() || followAll()) {
      return true;
   }
   if (retry_) {
      retryNext();
      return true;
   }
   if (!std::exchange(portsTakenBack_, true)) {
      released_ |= ports_.full() && !failed_.empty() && takeBackPorts();
   }
   if (mayHaveRoom()) {
      retryBegins();
      return true;
   }
   portsTakenBack_ = false;
   awaited_ = awaitsAnswers();
   settled_ = true;
   return false;
}

std::vector<IpAddress>
Fabric::takeTouched() {
   std::vector<IpAddress> addresses(touched_.begin(), touched_.end());
   touched_.clear();
   std::sort(addresses.begin(), addresses.end());
   return addresses;
}

bool
Fabric::Room::exceeds(Room const& other) const {
   return memberRun > other.memberRun || nextHops > other.nextHops || interfaces > other.interfaces ||
          groups > other.groups;
}

Fabric::Room
Fabric::room() const {
   return {.memberRun = programmer_->l3EcmpMemberTable()->indexAllocator()->largestFreeRun(),
           .nextHops = programmer_->l3EcmpNextHopTable()->indexAllocator()->free(),
           .interfaces = interfaces_->indices().free(),
           .groups = groups_->indexAllocator()->free()};
}

// What a failed set gave back is of no use to itself.
bool
Fabric::mayHaveRoom() {
   bool const byFailure = std::exchange(gaveBack_, false) && failed_.size() > 1;
   return (std::exchange(released_, false) || byFailure) && !failed_.empty();
}

bool
Fabric::followAll() {
   bool any = interfaces_->freeLeft();
   auto const moving = moving_;
   for (auto const& address : moving) {
      any |= follow(destinations_.at(address));
   }
   return any;
}

bool
Fabric::follow(ProgrammedDestination& destination) {
   auto const& block = *destination.wanted->block;
   if (block.isFailed()) {
      failedIs(destination, stateOf(block), causeOfBlock(block));
      return true;
   }
   if (destination.group->isFailed()) {
      destination.lacksGroup = destination.group->hwEntryIndex() == Asic::invalidIndex;
      failedIs(destination, stateOf(*destination.group), causeOfGroup(*destination.group));
      return true;
   }
   if (!destination.group->isComplete()) {
      return false;
   }
   moving_.erase(destination.address);
   touched_.insert(destination.address);
   released_ |= destination.current.has_value() || std::exchange(destination.tookGroupBack, false);
   destination.current = std::move(destination.wanted);
   destination.wanted.reset();
   return true;
}

// What failed gives its room back: others may need it until this one is asked for again.
void
Fabric::failedIs(ProgrammedDestination& destination, DestinationState failure, std::string reason) {
   moving_.erase(destination.address);
   touched_.insert(destination.address);
   destination.failure = failure;
   destination.reason = std::move(reason);
   if (destination.current) {
      groupIs(destination, *destination.current);
   } else if (destination.group) {
      ZandorL3Common::L3AdjIdKey key;
      key.id = destination.adjacency;
      groups_->entryRemove(key);
      destination.group = nullptr;
   }
   destination.wanted->block = nullptr;
   for (auto& via : destination.wanted->vias) {
      via.interface = nullptr;
   }
   failed_.insert(destination.address);
   gaveBack_ = true;
}

// One after the other, so that none holds what only the next one could use. A chip that is far too small has
// many that wait: no more are tried than there are free groups, and of equal sets that fail only the first.
void
Fabric::retryBegins() {
   retry_ = Retry{
         .left = std::exchange(failed_, {}), .freeGroups = groups_->indexAllocator()->free(), .hopeless = {}};
}

/// The one being tried has come as far as it can: on to the next one that is worth it.
void
Fabric::retryNext() {
   if (retry_->tried) {
      retryEnds();
   }
   while (!retry_->left.empty()) {
      auto const address = retry_->left.extract(retry_->left.begin()).value();
      auto& destination = destinations_.at(address);
      Destination again{.address = address, .vias = {}, .reason = {}};
      for (auto const& via : destination.set()->vias) {
         again.vias.push_back(via.via);
      }
      auto const& alike = retry_->hopeless[hashOf(again.vias)];
      if ((destination.lacksGroup && retry_->freeGroups == 0) ||
          std::find(alike.begin(), alike.end(), again.vias) != alike.end()) {
         failed_.insert(failed_.end(), address);
         continue;
      }
      retry_->takesGroup = !destination.group;
      retry_->room = room();
      destinationIs(again);
      retry_->tried = std::move(again);
      return;
   }
   retry_.reset();
}

void
Fabric::retryEnds() {
   auto const tried = *std::exchange(retry_->tried, std::nullopt);
   bool const isFailed = failed_.contains(tried.address);
   // What a set gives back that fails again was free before, but for what its group had held.
   gaveBack_ = false;
   released_ |= room().exceeds(retry_->room);
   retry_->freeGroups -= retry_->takesGroup && !isFailed && retry_->freeGroups > 0 ? 1 : 0;
   if (isFailed && !destinations_.at(tried.address).lacksGroup) {
      retry_->hopeless[hashOf(tried.vias)].push_back(tried.vias);
   }
}

ViaSet
Fabric::viaSet(std::vector<DerivedVia> const& vias) {
   ViaSet set;
   for (auto const& via : vias) {
      set.vias.push_back(programmedVia(via));
   }
   // Software is for what the chip cannot forward: beside vias that forward it would only take packets away.
   bool const leavesOut =
         !settings_.includeUnresolved && std::any_of(set.vias.begin(), set.vias.end(),
                                                     [](ProgrammedVia const& via) { return via.forwards(); });
   auto handed = l3ViaFactory();
   for (auto& via : set.vias) {
      via.isProgrammed = !(leavesOut && via.isToCpu());
      if (via.isProgrammed) {
         handed->viaIs(via.entry, via.via.weight);
      }
   }
   set.handed = std::move(handed);
   return set;
}

ProgrammedVia
Fabric::programmedVia(DerivedVia const& via) {
   ProgrammedVia programmed{.via = via};
   switch (via.kind) {
   case ViaKind::unicast:
      programmed.entry.nhEntryType = Brix::NextHopEntryType::unicast;
      unicastIs(programmed);
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
Fabric::unicastIs(ProgrammedVia& programmed) {
   auto const& via = programmed.via;
   programmed.entry.macAddr = ethAddr(*via.mac);
   if (!via.port || !via.sourceMac) {
      return;
   }
   auto const port = ports_.numberIs(*via.port);
   if (!port) {
      programmed.shortOf = "no port number is free";
      return;
   }
   InterfaceKey key;
   key.sourceMac = ethAddr(*via.sourceMac);
   key.tagged = via.tagged.value_or(false);
   key.vlan = key.tagged ? via.vlan.value_or(0) : std::uint16_t(0);
   programmed.interface = interfaces_->use(key);
   if (!programmed.interface) {
      programmed.shortOf = "no interface index is free";
      return;
   }
   programmed.entry.l3Id = {std::uint16_t(programmed.interface->index())};
   programmed.entry.l2If = {*port};
}

bool
Fabric::takeBackPorts() {
   std::set<std::uint16_t> used;
   programmer_->l3EcmpNextHopTable()->handles().forEach(
         [&](auto const& handle) { used.insert(handle.key().l2If.value); });
   ports_.keepOnly(used);
   return !ports_.full();
}

} // namespace L3TunnelAgent
