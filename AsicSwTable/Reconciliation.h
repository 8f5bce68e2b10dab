// Reconciliation: during the configuration replay after a restart, match each committed entry
// with a hardware index (one the allocator holds for the key, or one suggested for it) and with
// the row read back at that index.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::bindKeyToIndex(const Key& key, Index& hwIndex) {
   FWK_ASSERT(swTable_->configReplayInProgress(), "swTable_->configReplayInProgress()");
   FWK_ASSERT(!swTable_->entryHandleHas(key), "false");
   const Util* util = utilIfExists();
   const Index actualIndex = util ? util->dependentFieldValueToHwIndex(hwIndex) : hwIndex;
   SW_TRACE(8, "bindKeyToIndex",
            " : Recovering actualIndex: " << actualIndex << " for swKey: " << key
                                          << ", hwIndex provided: " << hwIndex);
   bool bound;
   {
      const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
      bound = allocator->recoverIndexForKey(actualIndex, Traits::allocatorKey(key));
   }
   if (bound) {
      return;
   }
   SW_TRACE(8, "bindKeyToIndex",
            " : Invalid keyToIndex binding. "
                << "Binding multiple keys to same hwIndex:" << actualIndex);
   FWK_ASSERT(false, "false");
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::reconcileUsingHwIndex(const Key& key, Index hwIndex,
                                                          bool compareHwEntry) const {
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   if (allocator->owner(hwIndex)) {
      SW_TRACE(8, "reconcileUsingHwIndex", ": Index:" << hwIndex << " not free");
      return false;
   }
   const OptionalEntry* resolved = swTable_->resolvedEntry(key);
   const Entry entry = resolved ? resolved->value() : OptionalEntry().value();
   if (compareHwEntry && !utilIfExists()->compareHwEntries(swTable_, hwIndex, entry)) {
      return false;
   }
   const bool bound = allocator->recoverIndexForKey(hwIndex, Traits::allocatorKey(key));
   FWK_ASSERT(bound, "recoverIndexForKey");
   return true;
}

template <class Table, class Key>
Index SwTable::Accessor<Table, Key>::reconcileUsingIndexHelper(const Key& key,
                                                               bool syncedOnly) const {
   const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   const Fwk::Ptr<IndexHelper> helper = handle ? swTable_->indexHelper(handle.get()) : nullptr;
   if (!helper) {
      SW_TRACE(8, "reconcileUsingIndexHelper", "Index suggestions unavailable");
      return kInvalidIndex;
   }
   SW_TRACE(8, "reconcileUsingIndexHelper", ": key:" << key);
   const std::vector<Index> candidates = helper->indices();
   for (const Index index : candidates) {
      const bool synced = swTable_->syncedEntryHas(index);
      if (!synced && syncedOnly) {
         continue;
      }
      if (!reconcileUsingHwIndex(key, index, synced && syncedOnly)) {
         continue;
      }
      swTable_->indexHelperDel(handle.get());
      SW_TRACE(8, "reconcileUsingIndexHelper",
               ": Deleting syncedEntry reconciled at index:" << index);
      readBackRowClaimed(index);
      SW_TRACE(8, "reconcileUsingIndexHelper",
               ": Reconciled key:" << handle->key() << ", hwIndex:" << index);
      return index;
   }
   return kInvalidIndex;
}

template <class Table, class Key>
SwTable::ReconciliationStatus SwTable::Accessor<Table, Key>::reconcileSyncedEntry(
    const Key& key) const {
   if (swTable_->syncedEntrys() == 0) {
      return noSyncedEntry;
   }
   const Index hwIndex = *doRetrieveHwIndex(key);
   if (hwIndex == kInvalidIndex) {
      return reconcileUsingIndexHelper(key, true) != kInvalidIndex ? reconciledMatch : unreconciled;
   }
   const OptionalEntry* resolved = swTable_->resolvedEntry(key);
   const Entry entry = resolved ? resolved->value() : OptionalEntry().value();
   if (!swTable_->syncedEntryHas(hwIndex)) {
      return noSyncedEntry;
   }
   return utilIfExists()->compareHwEntries(swTable_, hwIndex, entry) ? reconciledMatch
                                                                     : reconciledMismatch;
}

}  // namespace Asic
