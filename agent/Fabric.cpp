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
    , groups_(l3EcmpGroup0TableFactory(L3EcmpGroup0Table::typeName()))
    , lists_(settings_.includeUnresolved) {
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
   waiting_.needDel(wanted.address);
   if (wanted.vias.empty()) {
      groupDel(destination);
      destination.reason = wanted.reason;
      return;
   }
   destination.reason.clear();
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
   if (retry_ && retry_->tried && retry_->tried->address == address) {
      retry_->tried.reset();
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
   waiting_.needDel(address);
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
   if (set.programmed->isShort()) {
      waiting_.needIs(destination.address, {.kind = Need::Kind::interface});
   }
   auto const handsOverTheSame = [&](std::optional<ViaSet> const& other) {
      return other && other->block &&
             (other->programmed == set.programmed ||
              other->programmed->handed()->via() == set.programmed->handed()->via());
   };
   if (handsOverTheSame(destination.wanted)) {
      destination.wanted->programmed = set.programmed;
      return;
   }
   bool const wasMoving = destination.wanted && destination.wanted->block;
   // What a set on its way has taken comes free.
   released_ |= wasMoving;
   if (!handsOverTheSame(destination.current)) {
      blockIs(destination, std::move(set));
      return;
   }
   destination.current->programmed = set.programmed;
   if (wasMoving) {
      groupIs(destination, *destination.current);
      destination.wanted = destination.current;
      moving_.insert(destination.address);
   } else {
      destination.wanted.reset();
   }
}

void
Fabric::blockIs(ProgrammedDestination& destination, ViaSet set) {
   try {
      set.block = programmer_->getEcmpBlockHandle(set.programmed->handed(), settings_.dropToCpu);
   } catch (Nuv::Exception const& refused) {
      bool const isTooLarge = set.members() > mostMembers;
      auto reason =
            isTooLarge ? fmt::format("{} vias are more than a block's {} members", set.members(), mostMembers)
                       : std::string(refused.what());
      if (!destination.current && destination.wanted && destination.wanted->block) {
         destination.current = std::move(destination.wanted);
      }
      destination.wanted = std::move(set);
      failedIs(destination, DestinationState::failed, std::move(reason));
      if (isTooLarge) { // and more room cannot make it smaller
         waiting_.needDel(destination.address);
      } else {
         lackIs(destination, Need::Kind::attempt);
      }
      return;
   }
   set.inABlock = set.programmed->content().inABlock();
   groupIs(destination, set);
   destination.wanted = std::move(set);
   moving_.insert(destination.address);
}

void
Fabric::groupIs(ProgrammedDestination& destination, ViaSet const& set) {
   L3EcmpGroup0Table::Entry group;
   group.ecmpBlockPtrHandle = set.block;
   group.numPaths = std::uint16_t(set.members());
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
      released_ |= ports_.full() && !waiting_.empty() && takeBackPorts();
   }
   if (mayHaveRoom()) {
      retry_ = Retry{};
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
      auto const lack = lackOfBlock(block);
      failedIs(destination, stateOf(block), causeOfBlock(block));
      lackIs(destination, lack);
      return true;
   }
   if (destination.group->isFailed()) {
      auto const lack = lackOfGroup(*destination.group);
      failedIs(destination, stateOf(*destination.group), causeOfGroup(*destination.group));
      lackIs(destination, lack);
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
   // Those that wait for a run for the same may share this one.
   released_ |= waiting_.isMet(destination.current->runNeed());
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
   destination.wanted = ViaSet{.programmed = lists_.failed(*destination.wanted->programmed)};
   gaveBack_ = true;
}

// What lacked room may find some now.
ViaSet
Fabric::viaSet(ViaList const& list) {
   if (auto standing = lists_.find(list); standing && !standing->isShort()) {
      return {.programmed = std::move(standing)};
   }
   std::vector<ProgrammedVia> vias;
   vias.reserve(list.size());
   for (auto const& via : list) {
      vias.push_back(programmedVia(via));
   }
   return {.programmed = lists_.made(list, std::move(vias))};
}

ProgrammedVia
Fabric::programmedVia(DerivedVia const& via) {
   ProgrammedVia programmed{.via = via};
   programmed.entry.nhEntryType = entryType(via.kind);
   if (via.kind == ViaKind::unicast) {
      unicastIs(programmed);
   }
   return programmed;
}

// Without a port the neighbour alone is known, which is what the CPU needs; the interface entry would not be
// used.
void
Fabric::unicastIs(ProgrammedVia& programmed) {
   auto const& via = programmed.via;
   programmed.entry.macAddr = ethAddr(*via.mac);
   ViaContent const content(via);
   if (!content.forwards()) {
      return;
   }
   auto const port = ports_.numberIs(*content.port);
   if (!port) {
      programmed.shortOf = "no port number is free";
      return;
   }
   programmed.interface = interfaces_->use(interfaceKey(content));
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
