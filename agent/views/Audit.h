#pragma once

#include "agent/Fabric.h"
#include "agent/views/ExpectedRows.h"
#include "agent/views/Paint.h"

#include <string>
#include <vector>

namespace L3TunnelAgent {

/// A row of the chip that is not what the software tables say.
struct AuditFinding {
   enum class Kind : std::uint8_t {
      missing,      ///< an entry's row is not there
      foreign,      ///< a row that is no entry's
      differs,      ///< fields of the row are not what the entry says
      claimedTwice, ///< two entries say what the row has to be
   };
   struct Difference {
      std::string field;
      std::string expected;
      std::string found;
   };

   Kind kind{};
   std::string table;
   Asic::Index index{};
   std::string owner;                   ///< key of the entry; empty for a foreign row
   std::vector<IpAddress> destinations; ///< that stand on it
   std::vector<Difference> differences;
};

/// What an audit looked at and found.
struct AuditResult {
   std::size_t compared{};   ///< rows
   std::size_t passedOver{}; ///< rows of entries that are not complete: what stands there may be old
   std::vector<AuditFinding> findings;
};

/// Compares every row of the chip with what the software tables say, and every entry with its row. Rows are
/// read by the chip's layouts, not by what packed them.
AuditResult audit(Fabric const& fabric);

/// For a person.
std::string text(AuditResult const& result, Paint const& paint);

} // namespace L3TunnelAgent
