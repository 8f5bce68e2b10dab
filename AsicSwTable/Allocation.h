// Index allocation: the table creates its allocator when the platform sets it up, and counts the
// indices already in use (those of a shared allocator's other tables) on its hardware table.
#pragma once

#include "Asic/HwTable.h"
#include "AsicSwTable/SwTableAccessor.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::doCreateAllocator() {
   swTable_->doInitAllocator();
   HwTable* hwTable = swTable_->hwTable();
   if (hwTable == nullptr) {
      return;
   }
   const std::uint32_t used = swTable_->indexAllocator()->totalUsedIndices();
   for (std::uint32_t i = 0; i < used; ++i) {
      hwTable->usedEntryCountInc(1);
   }
}

template <class Table, class Key>
template <class Allocator>
void SwTable::Accessor<Table, Key>::initAllocator() {
   Fwk::Ptr<Allocator> allocator = Fwk::make<Allocator>("");
   swTable_->indexAllocatorSet(allocator);
   allocator->numIndicesIs(swTable_->numEntries());
}

}  // namespace Asic
