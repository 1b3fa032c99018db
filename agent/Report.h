#pragma once

#include "agent/Fabric.h"

#include <string>

namespace L3TunnelAgent {

/// What a programmed fabric looks like to a person. All of it but the names of devices is read from the
/// software tables and from the chip's own rows.
class Report {
 public:
   /// Both must outlive the report; `state` is what `fabric` was programmed from.
   Report(Fabric const& fabric, KernelState const& state) : fabric_(fabric), state_(state) {}

   /// How many destinations there are, how far they came, and how many rows that took.
   std::string summary() const;

   /// The tables from destination down to interface.
   std::string tables() const;

 private:
   std::string destinations() const;
   std::string groups() const;
   std::string blocks() const;
   std::string nextHops() const;
   std::string interfaces() const;

   std::string stateOf(ProgrammedDestination const& destination) const;
   std::string viaText(ProgrammedVia const& via) const;
   std::string portText(std::uint16_t number) const;

   Fabric const& fabric_;
   KernelState const& state_;
};

} // namespace L3TunnelAgent
