// The generic table model's process-wide parts: the statistics trace handle, created when the
// library is loaded, and the descriptor under which a handle's pending entries are published.
#include "AsicSwTable/TableModelImpl.h"

namespace Asic::Detail {

const Fwk::Trace::Handle& statisticsTraceHandle() {
   static const Fwk::Trace::Handle handle("SwTableStat", false);
   return handle;
}

const Fwk::TypeDescriptor& pendingPositionType() {
   static const Fwk::TypeDescriptor d("Asic::TableEntryHandle::Position", sizeof(std::uint32_t),
                                      [](std::uint64_t bits) { return std::to_string(bits); });
   return d;
}

namespace {
[[maybe_unused]] const Fwk::Trace::Handle& loadTimeStatisticsHandle = statisticsTraceHandle();
}  // namespace

}  // namespace Asic::Detail
