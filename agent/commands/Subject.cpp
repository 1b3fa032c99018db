#include "agent/commands/Subject.h"

namespace L3TunnelAgent {

Subject::Subject(Context& context, Source const& source)
    : running_(context.running), player_(running_ ? nullptr : played(context, source)) {}

} // namespace L3TunnelAgent
