#pragma once

#include "agent/Derive.h"
#include "agent/Interfaces.h"
#include "agent/Ports.h"
#include "agent/ProgrammedVias.h"
#include "agent/Waiting.h"
#include "chip/model/Chip.h"
#include "programmer/L3UnderlayEcmpProgrammer.h"
#include "tables/L3EcmpGroup0Table.h"

#include <map>
#include <set>
#include <unordered_set>

namespace L3TunnelAgent {

/// The vias of a destination and the block that holds them.
struct ViaSet {
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;

   ProgrammedLists::Ptr programmed;
   Handle block{}; ///< null once the set has failed
   ProgrammedVias::Content::InABlock inABlock{};

   std::vector<ProgrammedVia> const& vias() const { return programmed->vias(); }
   std::size_t members() const { return programmed->handed()->via().size(); }

   /// What it lacks when there is no run for it.
   Need runNeed() const {
      return {.kind = Need::Kind::memberRun,
              .length = std::uint32_t(members()),
              .content = programmed->content().number()};
   }
};

/// How far a destination has come: the state of its wanted set's block until the group has moved there, the
/// group's after that.
enum class DestinationState : std::uint8_t {
   noRoute,
   unresolved,
   inProgress,
   success,
   failedNeededEntry,
   failed,
};

/// The state's name, "failedNeededEntry".
std::string_view text(DestinationState state);

/// A tunnel destination and what stands in the tables for it.
struct ProgrammedDestination {
   using Handle = ViaSet::Handle;

   IpAddress address{};
   std::uint32_t adjacency{};       ///< key of its group
   DestinationState failure{};      ///< of the wanted set, when that has no block
   std::string reason{};            ///< why there is no route, or why the wanted set failed; else empty
   bool tookGroupBack{};            ///< the group was still in use for an earlier set when it was asked for
   std::optional<ViaSet> current{}; ///< the set that the group points at
   std::optional<ViaSet> wanted{};  ///< the newest set, until the group has moved to it
   Handle group{};                  ///< null without a route, and when none was ever programmed

   /// The newest set; null without a route.
   ViaSet const* set() const { return wanted ? &*wanted : current ? &*current : nullptr; }
   DestinationState state() const;
};

/// One switch: a chip, the library's tables for it, and the tunnel destinations programmed into them.
///
/// A destination that changes gets its new block first; its group moves there, and what it leaves is given
/// back when the chip has confirmed that. A set that fails leaves the destination with what it had, and is
/// asked for again when something was released that leaves room for it.
class Fabric {
 public:
   struct Settings {
      ModelChip::Chip::Sizes sizes{}; ///< rows of tables by name; the chip's own for the others
      bool includeUnresolved{};       ///< vias to the CPU stay in sets that also forward
      bool dropToCpu{};               ///< what would go to the CPU is dropped
   };

   /// Nothing is programmed. Throws `Nuv::RangeException` for sizes that the chip cannot have.
   explicit Fabric(Settings settings);
   Fabric() : Fabric(Settings()) {}
   ~Fabric();

   /// Programs the destination's vias, now or instead of those that it has. The chip answers when the loop is
   /// stepped.
   void destinationIs(Destination const& destination);

   /// Takes the destination out.
   void destinationDel(IpAddress const& address);

   /// Steps the loop until the chip has answered everything, and does what follows from the answers; returns
   /// the number of steps.
   std::size_t settle();

   /// Does a part of what settle() does: at most so many steps of the loop, or what follows from the answers
   /// so far, or the next try of one destination that failed.
   /// @return whether anything is left to do.
   bool step(std::size_t mostSteps);

   /// Whether step() would find nothing to do, because it found nothing and nothing was asked for since.
   bool isSettled() const { return settled_; }

   /// Takes everything out and settles.
   void clear();

   /// @return the addresses of destinations whose state, vias or rows may have changed since this was last
   /// called, ascending.
   std::vector<IpAddress> takeTouched();

   std::map<IpAddress, ProgrammedDestination> const& destinations() const { return destinations_; }
   Settings const& settings() const { return settings_; }

   ModelChip::Chip& chip() { return *chip_; }
   ModelChip::Chip const& chip() const { return *chip_; }
   Interfaces const& interfaces() const { return *interfaces_; }
   Ports const& ports() const { return ports_; }
   ZandorL3Tunnel::L3EcmpGroup0Table const& groups() const { return *groups_; }
   ZandorL3Tunnel::L3UnderlayEcmpProgrammer const& programmer() const { return *programmer_; }

 private:
   /// How much is free of each thing that a set may lack.
   struct Room {
      Asic::Index memberRun{}; ///< the longest
      Asic::Index nextHops{};
      Asic::Index interfaces{};
      Asic::Index groups{};

      bool exceeds(Room const& other) const;
   };

   ViaSet viaSet(ViaList const& list);
   ProgrammedVia programmedVia(DerivedVia const& via);
   void unicastIs(ProgrammedVia& programmed);
   void wantedIs(ProgrammedDestination& destination, ViaSet set);
   void blockIs(ProgrammedDestination& destination, ViaSet set);
   void groupIs(ProgrammedDestination& destination, ViaSet const& set);
   void groupDel(ProgrammedDestination& destination);
   bool follow(ProgrammedDestination& destination);
   bool followAll();
   void failedIs(ProgrammedDestination& destination, DestinationState failure, std::string reason);
   void lackIs(ProgrammedDestination const& destination, Need::Kind kind);
   void touch(IpAddress const& address);
   bool mayHaveRoom();
   Room room() const;
   bool awaitsAnswers() const;
   void retryNext();
   void retryEnds();
   bool isWorthATry(Waiting::Place const& place, Room const& room);
   std::optional<Need::Kind> lack(ProgrammedDestination const& destination, Room const& room) const;
   std::optional<ZandorL3Tunnel::L3UnderlayNextHopKey> nextHopKey(ViaContent const& via,
                                                                  Room const& room) const;
   bool isRoomFor(ViaContent const& via, Room const& room) const;
   bool hasNextHops(ProgrammedVias::Content const& content, Room const& room) const;
   bool mayForwardMore(ViaSet const& set, Room const& room) const;
   bool takeBackPorts();

   /// Those that wait, tried one after the other where there is room.
   struct Retry {
      Waiting::Place at{};                        // the last that was looked at
      std::unordered_set<std::uint64_t> hopeless; // contents that failed
      std::optional<Destination> tried{};         // now
      Room room{};                                // before that
   };

   static constexpr Asic::UnitId unit = 0;

   Settings settings_;
   Nuv::ReactionLoop loop_;
   Nuv::Ptr<ModelChip::Chip> chip_;
   Nuv::Ptr<Kallo::EntityManager> stateDatabase_;
   Nuv::Ptr<Local::EntityManager> local_;
   Nuv::Ptr<ZandorL3Tunnel::L3EcmpGroup0Table> groups_;
   Nuv::Ptr<ZandorL3Tunnel::L3UnderlayEcmpProgrammer> programmer_;
   std::unique_ptr<Interfaces> interfaces_;
   Ports ports_;
   ProgrammedLists lists_;
   std::map<IpAddress, ProgrammedDestination> destinations_;
   std::set<IpAddress> moving_; // their wanted sets have blocks
   Waiting waiting_;
   std::optional<Retry> retry_;
   std::unordered_set<IpAddress> touched_;
   std::uint32_t lastAdjacency_{};
   bool released_{};       // something that a failed one may need, since they were tried
   bool gaveBack_{};       // the same, by a set that failed
   bool awaited_{};        // when it was settled, the chip owed answers
   bool portsTakenBack_{}; // since it was settled
   bool settled_{true};
   std::size_t steps_{};
};

} // namespace L3TunnelAgent
