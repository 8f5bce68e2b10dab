// The table's user file: the choice of index allocator.
#include "Asic/ChipProfile.h"
#include "Fwk/Assert.h"
#include "TalvikL3Common/L3InterfaceSharedAllocator.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace TalvikL3Decap {

// The user file constructs no "SwTableStat" trace handle of its own, although such a second handle
// of that name used to exist: the statistics line goes to the table model's handle
// (Asic::Detail::statisticsTraceHandle), settings reach every handle of a name alike, and nothing
// lists handles, so a second one would receive nothing and change nothing.

// An own allocator when the chip gives tunnel interfaces an index space of their own; otherwise
// the one shared with the L3 interface table. Either way sized to the table.
void IngL3IifTable::doInitAllocator() {
   const Asic::ChipProfile* profile = activeChipProfile();
   const auto* nexthopAttributes =
       profile == nullptr
           ? nullptr
           : dynamic_cast<const TalvikL3Unicast::L3NextHopAttributes*>(
                 profile->feature(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>()));
   FWK_ASSERT(nexthopAttributes != nullptr, "nexthopAttributes");
   if (nexthopAttributes->separateIifIndexSpace()) {
      Asic::SwTable::Accessor<IngL3IifTable>(this).initAllocator<Asic::FirstFreeIndexAllocator>();
   } else {
      indexAllocatorIs(Asic::GenericIndexAllocatorStub::createSharedAllocator(
          Fwk::typeOf<IngL3IifTable>(), Fwk::typeOf<TalvikL3Common::L3InterfaceSharedAllocator>(),
          this));
   }
   indexAllocator()->numIndicesIs(numEntries());
   indexAllocator()->initializedIs(true);
}

}  // namespace TalvikL3Decap
