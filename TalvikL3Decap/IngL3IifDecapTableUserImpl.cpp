// The table's user file: the choice of index allocator.
#include "Asic/ChipProfile.h"
#include "Fwk/Assert.h"
#include "Fwk/Trace.h"
#include "TalvikL3Common/L3InterfaceSharedAllocator.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

namespace TalvikL3Decap {

namespace {
// The user file's own statistics channel, apart from the table model's handle of the same name.
const Fwk::Trace::Handle userFileStatisticsTrace("SwTableStat", false);
}  // namespace

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
