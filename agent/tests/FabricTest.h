#pragma once

#include "agent/RowLog.h"
#include "agent/tests/FabricDriver.h"

namespace L3TunnelAgent {

/// Base of tests of what a fabric programs, by the names of the tables that they speak of.
class FabricTest : public testing::Test {
 protected:
   static constexpr char const* ingTable = "IngL3NextHop2Table";
   static constexpr char const* memberTable = "L3UnderlayEcmpMember1Table";
   static constexpr char const* groupTable = "L3EcmpGroup0Table";
   static constexpr char const* interfaceTable = "EgrL3Oif2";

   static void program(Fabric& into, std::uint32_t number, std::vector<DerivedVia> vias) {
      into.destinationIs(destination(number, std::move(vias)));
      into.settle();
   }

   /// The rows written since the log was kept, "+" for a write and "-" for a clearing.
   static std::vector<std::string> rowsOf(RowLog const& log) {
      std::vector<std::string> rows;
      for (auto const& write : log.writes()) {
         rows.push_back((write.after.empty() ? "-" : "+") + std::string(write.table->layout().table) + " " +
                        std::to_string(write.index));
      }
      return rows;
   }

   Fabric fabric;
};

} // namespace L3TunnelAgent
