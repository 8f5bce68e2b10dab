// Hardware-table recovery: after a restart the table reads back what hardware holds, through its
// Util, into the synced-entry collection.
#pragma once

#include "Asic/FirstFreeIndexAllocator.h"
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
   // The allocator learns the read-back rows: an entry programmed as new must not land on a row
   // that the purge of stale rows would delete.
   if (const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator()) {
      for (auto it = swTable_->syncedEntryIter(); !it.done(); it.advance()) {
         allocator->heldBackIs(it.index());
      }
   }
}

}  // namespace Asic
