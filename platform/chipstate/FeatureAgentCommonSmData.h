#pragma once

#include "platform/asic/Index.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Ptr.h"

#include <vector>

namespace ZandorCentral {

/// One of the logical modules that a chip is made of.
struct ZANDOR_EXPORT LogicalModInfo {
   std::uint32_t module{};
};

/// A chip's state that all feature agents share.
class ZANDOR_EXPORT FeatureAgentCommonSmData : public Nuv::Object {
 public:
   explicit FeatureAgentCommonSmData(Asic::UnitId unit) : unit_(unit) {}

   Asic::UnitId unit() const { return unit_; }

   /// Number of logical modules known; a chip without any is not ready for tables.
   std::size_t logicalModInfos() const { return logicalModInfos_.size(); }
   void logicalModInfoIs(LogicalModInfo info) { logicalModInfos_.push_back(info); }

 private:
   Asic::UnitId unit_;
   std::vector<LogicalModInfo> logicalModInfos_;
};

} // namespace ZandorCentral
