// The pending-entry queue of an entry handle, now generic to every table:
// AsicSwTable/PendingEntryQueue.h.
#pragma once

#include "AsicSwTable/PendingEntryQueue.h"

namespace TalvikL3Decap {
using Asic::PendingEntryQueue;
}  // namespace TalvikL3Decap
