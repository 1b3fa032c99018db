#pragma once

#include "agent/Agent.h"
#include "agent/views/Json.h"
#include "agent/views/Paint.h"

#include <array>
#include <vector>

namespace L3TunnelAgent {

/// What an agent has come to, in numbers.
struct Summary {
   struct Rows {
      std::string table;
      std::size_t used{};
      std::size_t size{};
   };
   struct Failure {
      IpAddress destination;
      DestinationState state{};
      std::string reason;
   };

   static constexpr std::size_t numStates = std::size_t(DestinationState::failed) + 1;

   std::size_t destinations{};
   std::size_t keptOld{}; ///< those that failed and keep the set that they had
   std::array<std::size_t, numStates> byState{};
   std::size_t vias{};
   std::size_t viasLeftOut{};          ///< since others of their set forward
   std::size_t viasShort{};            ///< for which there is no interface or port number
   std::size_t weightsNotProgrammed{}; ///< destinations whose programmed vias differ in weight in the kernel
   std::size_t bound{};                ///< destinations whose packets the kernel sends by one device alone
   std::size_t blocks{};               ///< at which groups point
   std::size_t sharedBlocks{};         ///< those at which more than one group points
   std::size_t rulesPassedOver{};      ///< that ask for what is not known of tunnels' packets
   std::size_t rounds{};
   std::size_t rowsWritten{}; ///< and cleared, in all tables
   std::vector<Rows> rows;
   std::vector<Failure> failures;

   std::size_t count(DestinationState state) const { return byState[std::size_t(state)]; }
};

Summary summaryOf(Agent const& agent);

/// For a person. Of many failures the first few are named.
std::string text(Summary const& summary, Paint const& paint);

/// All but the failures, which the destinations tell.
Json json(Summary const& summary);

} // namespace L3TunnelAgent
