// End of a restart: doInitComplete settles the entries the replay left undecided and turns write
// responses on; purgeStaleEntries deletes the read-back rows that nobody claimed.
#pragma once

#include "Asic/FirstFreeIndexAllocator.h"
#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::doInitComplete() {
   SW_TRACE(9, "doInitComplete", "");
   swTable_->configReplayCompleteIs(true);
   // Programming may run hooks that change the collection; walk a snapshot of held handles.
   std::vector<Fwk::Ptr<EntryHandle>> handles;
   handles.reserve(swTable_->entrys());
   for (const auto& handle : swTable_->entryHandleMap()) {
      handles.push_back(handle);
   }
   for (const auto& handle : handles) {
      const Key key = handle->key();
      if (!undecidedAtInitComplete(key, *handle) || !swTable_->indexHelper(handle.get())) {
         continue;
      }
      const Index hwIndex = *doRetrieveHwIndex(key);
      if (hwIndex == kInvalidIndex) {
         const Index index = reconcileUsingIndexHelper(key, false);
         if (index != kInvalidIndex) {
            handle->hwIndexIs(index);
            programValueInForce(key, *handle, SwTableBase::indexReconciled);
            swTable_->updateStatistic(reconciledMismatch);
         }
      } else {
         handle->hwIndexIs(hwIndex);
         if (swTable_->syncedEntryHas(hwIndex)) {
            programValueInForce(key, *handle, SwTableBase::indexReconciled);
            swTable_->updateStatistic(reconciledMismatch);
         } else {
            swTable_->priorResolvedEntryIs(absent);
            programValueInForce(key, *handle, SwTableBase::inProgress);
            swTable_->updateStatistic(noSyncedEntry);
         }
         readBackRowClaimed(hwIndex);
      }
      swTable_->indexHelperDel(handle.get());
   }
   for (const auto& handle : handles) {
      const Key key = handle->key();
      if (swTable_->entryHandle(key) != handle || !undecidedAtInitComplete(key, *handle)) {
         continue;
      }
      swTable_->priorResolvedEntryIs(absent);
      programValueInForce(key, *handle, SwTableBase::inProgress);
      swTable_->updateStatistic(noSyncedEntry);
   }
   if (swTable_->hwTable() != nullptr) {
      swTable_->writeResponseSmIs(swTable_);
   }
}

// Undecided at the end of the replay: the key's resolved value has reached no row in this life
// (reconciliation left it, or the replay ended before it came to a decision). A key whose value is
// already written keeps its row, even when a newer value waits or its commitment was removed
// meanwhile: writing it again would count the row's user twice. A newer value that waits for its
// profile does not keep the value in force out of hardware. The handle's state, a load, is
// tested first.
template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::undecidedAtInitComplete(const Key& key,
                                                            const EntryHandle& handle) const {
   if (handle.resolvedEntryState() != SwTableBase::unresolved) {
      return false;
   }
   const OptionalEntry* resolved = swTable_->resolvedEntry(key);
   return resolved != nullptr && resolved->has_value();
}

// Programs the key's value in force. A key whose newer value waits keeps that value's entry state,
// as when a value is committed while the previous one is being written.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::programValueInForce(const Key& key, EntryHandle& handle,
                                                        SwTableBase::EntryState entryState) {
   const bool newerWaits = swTable_->unresolvedEntry(key) != nullptr;
   const SwTableBase::EntryState waitingState = handle.entryState();
   programHwEntry(key, entryState);
   if (newerWaits && handle.entryState() != waitingState) {
      handle.entryStateIs(waitingState);
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::purgeStaleEntries() {
   syncedEntryRemoveAll();
   releaseUnclaimedBindings();
   programExhaustedEntries();
   FWK_TRACE(MutableTable::statisticsTrace(), 0,
             "purgeStaleEntries"
                 << " " << swTable_->statistics());
}

// A key bound during the replay (bindKeyToIndex) that was never committed, and whose row was not
// read back, holds its index with nothing to purge: after the purge nobody can claim it any more,
// so the index goes back to the allocator instead of leaking. (A stale agent state store, e.g.
// one saved before a purge that deleted the key's row, leaves such bindings.)
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::releaseUnclaimedBindings() {
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   for (const Index index : allocator->indicesBoundTo(Fwk::typeOf<Key>())) {
      const Key key = *Traits::keyAt(*allocator, index);
      if (!swTable_->entryHandleHas(key)) {
         SW_TRACE(8, "purgeStaleEntries",
                  ": Releasing index:" << index << " bound to uncommitted key:" << key);
         allocator->indexAvailableIs(index);
      }
   }
}

// Read-back rows are held back from the allocator until the purge, so entries programmed as new
// during the restart may have found no index in a nearly full table. The purge has given those
// indices back: such entries get their chance now instead of staying without a row, also a value
// in force whose newer value waits for its profile.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::programExhaustedEntries() {
   std::vector<Fwk::Ptr<EntryHandle>> exhausted;
   for (const auto& handle : swTable_->entryHandleMap()) {
      if (handle->resolvedEntryState() != SwTableBase::hwIndexExhausted) {
         continue;  // the common case, without a lookup
      }
      const OptionalEntry* resolved = swTable_->resolvedEntry(handle->key());
      if (resolved && resolved->has_value()) {
         exhausted.push_back(handle);
      }
   }
   for (const auto& handle : exhausted) {
      const Key key = handle->key();
      SW_TRACE(8, "purgeStaleEntries", ": Programming key:" << key << " that found no index");
      swTable_->priorResolvedEntryIs(absent);
      programValueInForce(key, *handle, SwTableBase::inProgress);
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::syncedEntryRemoveAll() {
   SW_RING_TRACE("syncedEntryRemoveAll");
   SW_TRACE(8, "syncedEntryRemoveAll", "");
   if (utilIfExists() != nullptr && swTable_->syncedEntrys() != 0) {
      swTable_->priorResolvedEntryIs(absent);
      swTable_->reconciledWriteIs(true);
      handleStaleEntries();
      swTable_->syncedEntryDelAll();
      swTable_->reconciledWriteIs(false);
      return;
   }
   SW_TRACE(8, "syncedEntryRemoveAll", " No stale entries in syncedEntryColl");
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleStaleEntries() {
   const Util* util = utilIfExists();
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   for (auto it = swTable_->syncedEntryIter(); !it.done(); it.advance()) {
      const Index index = it.index();
      util->updateHwIndexRefCountTracker(swTable_->hwTable(), index, IndexUserTracker::release);
      if (allocator->indexAvailable(index) && !allocator->indexManaged(index)) {
         SW_TRACE(8, "handleStaleEntries", " Skip index:" << index);
         continue;
      }
      util->hwTableEntryDel(swTable_, index);
      SW_TRACE(8, "handleStaleEntries", ": Deleting stale hwEntry at index:" << index);
      swTable_->updateStatistic(hwEntryDeleted);
      if (!allocator->indexAvailable(index)) {
         SW_TRACE(8, "handleStaleEntries", ": Marking index available in allocator");
         allocator->indexAvailableIs(index);
      }
   }
}

}  // namespace Asic
