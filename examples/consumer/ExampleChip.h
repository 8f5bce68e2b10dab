// What the example agent asks of its chip plug-in beyond the table's Util.
//
// A real chip answers a row write later, through the agent's event loop; the table only learns
// of it when someone hands the acknowledgement to its write-response state machine. The Util
// interface has no operation for that, so the plug-in's Util also implements this small
// interface and the agent finds it with a dynamic_cast of table->util().
#pragma once

#include <cstddef>

#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace Example {

class ChipEvents {
  public:
   // Hardware operations since the chip was powered on (the chip outlives agent restarts).
   struct Counters {
      std::size_t writes = 0;
      std::size_t deletes = 0;
   };

   virtual ~ChipEvents() = default;
   // Hands every queued write acknowledgement to the table. Returns how many a handle took.
   virtual std::size_t deliverWriteAcks(TalvikL3Decap::IngL3IifTable& table) const = 0;
   virtual Counters counters() const = 0;
};

}  // namespace Example
