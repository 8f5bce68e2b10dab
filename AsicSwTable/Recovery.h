// Hardware-table recovery: after a restart the table reads back what hardware holds, through its
// Util, into the synced-entry collection.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::syncEntries() {
   SW_TRACE(6, "syncEntries", ": swTableInstPtr:" << swTable_->entityText());
   FWK_ASSERT(swTable_->hwTable() != nullptr, "hwTable()");
   FWK_ASSERT(swTable_->resolvedEntrys() == 0, "!swTable_->resolvedEntrys()");
   if (const Util* util = utilIfExists()) {
      const Fwk::Ptr<SwTable> table(swTable_);
      util->syncEntries(swTable_->hwTable(), table);
   }
}

}  // namespace Asic
