// Entry processing: handleEntry runs on every change of a key's resolved entry and, in one pass,
// programs the row, reconciles it with what was read back after a restart, or deletes it and
// releases its index.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleEntry(const Key& key) {
   SW_RING_TRACE("handleEntry");
   SW_TRACE(8, "handleEntry",
            " key: " << key << ", configReplayComplete: " << swTable_->configReplayComplete());
   const Util* util = utilIfExists();
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key)) {
      // After doInitComplete a key still reconciles with the row read back at its bound index
      // until the purge: written as new, that row would be deleted by the purge under it.
      if (swTable_->configReplayComplete() && !unclaimedReadBackRowAt(key)) {
         programHwEntry(key, SwTableBase::inProgress);
         return;
      }
      if (!resolved->has_value()) {
         emptyRowDuringReplay(key);
         return;
      }
      const ReconciliationStatus status = reconcileSyncedEntry(key);
      SW_TRACE(8, "handleEntry", ": reconcileStatus: " << status);
      const Index hwIndex = *doRetrieveHwIndex(key);
      switch (status) {
         case unreconciled:
            return;
         case reconciledMatch:
            adoptReconciledIndex(key, hwIndex, true);
            retireSyncedEntry(hwIndex);
            break;
         case reconciledMismatch:
            adoptReconciledIndex(key, hwIndex, false);
            programHwEntry(key, SwTableBase::indexReconciled);
            retireSyncedEntry(hwIndex);
            break;
         case noSyncedEntry:
            programHwEntry(key, SwTableBase::inProgress);
            break;
         default:
            FWK_ASSERT(false, "reconcileStatus <= noSyncedEntry");
            break;
      }
      swTable_->reconciledWriteIs(false);
      swTable_->updateStatistic(status);
      return;
   }
   const Index hwIndex = *doRetrieveHwIndex(key);
   SW_TRACE(8, "traceHwIndex", " Acquired hwIndex : " << hwIndex);
   if (util != nullptr) {
      if (hwIndex == kInvalidIndex) {
         SW_TRACE(8, "handleEntry", "No entry in HwTable for this key. Skip delete");
         return;
      }
      hwTableEntryDel(util, key, hwIndex);
   } else if (hwIndex == kInvalidIndex) {
      return;
   }
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   GenericIndexAllocator::releaseIndexFromTable(*allocator, Traits::allocatorKey(key), swTable_);
   // The row is gone: a handle that stays (its key was taken again during the delete dance) must
   // not go on telling other agents and tables the index that another key may get now.
   if (const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
       handle && handle->hwIndex() == hwIndex) {
      handle->hwIndexIs(kInvalidIndex);
   }
}

// A delete dance begun during the replay empties a row that the key holds (only handles in
// hardware dance). There is nothing to reconcile: the row read back at the key's index now
// belongs to the dance, so it leaves the synced entries (the purge must not delete the index
// once the dance has released it and another key may hold it), and the empty row is written as
// in normal operation.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::emptyRowDuringReplay(const Key& key) {
   const Index hwIndex = *doRetrieveHwIndex(key);
   if (hwIndex != kInvalidIndex && swTable_->syncedEntryHas(hwIndex)) {
      retireSyncedEntry(hwIndex);
   }
   programHwEntry(key, SwTableBase::inProgress);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::adoptReconciledIndex(const Key& key, Index hwIndex,
                                                         bool match) {
   const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   swTable_->indexHelperDel(handle.get());
   handle->hwIndexIs(hwIndex);
   if (match) {
      handle->entryStateIs(SwTableBase::indexReconciled);
      handle->resolvedEntryStateIs(SwTableBase::indexReconciled);
      doCompleteEntryHandleForTesting(key);
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::retireSyncedEntry(Index hwIndex) {
   FWK_ASSERT(!isExhausted(hwIndex), "!isExhausted( hwIndex )");
   SW_TRACE(8, "operator()", ": Deleting syncedEntry reconciled at index:" << hwIndex);
   readBackRowClaimed(hwIndex);
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::restartInProgress() const noexcept {
   return !swTable_->configReplayComplete() || swTable_->syncedEntrys() != 0;
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::readBackRowClaimed(Index hwIndex) const {
   swTable_->syncedEntryDel(hwIndex);
   swTable_->indexAllocator()->heldBackDel(hwIndex);
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::unclaimedReadBackRowAt(const Key& key) const {
   if (swTable_->syncedEntrys() == 0) {
      return false;  // normal operation: one load
   }
   const Index hwIndex = *doRetrieveHwIndex(key);
   return hwIndex != kInvalidIndex && swTable_->syncedEntryHas(hwIndex);
}

// The hook of every state change. Untraced, only the check runs, small enough to be inlined into
// the handle's hook; the traced lines around it would cost every call a call's registers and stack.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleEntryState(const EntryHandle* entryHandle,
                                                     const Key& key) const {
   if (SW_TRACE_ON(6)) [[unlikely]] {
      handleEntryStateTraced(entryHandle, key);
      return;
   }
   checkEntryState(*entryHandle);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleEntryStateTraced(const EntryHandle* entryHandle,
                                                           [[maybe_unused]] const Key& key) const {
   SW_TRACE(6, "handleEntryState",
            " entryhandle state: " << entryHandle->entryState() << " at key : " << key);
   checkEntryState(*entryHandle);
   SW_TRACE(6, "handleEntryState",
            " entryhandle state: COMPLETE  " << entryHandle->entryState() << " at key : " << key);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::checkEntryState(const EntryHandle& entryHandle) const {
   switch (entryHandle.entryState()) {
      case SwTableBase::unresolved:
      case SwTableBase::inProgress:
      case SwTableBase::indexReconciled:
      case SwTableBase::success:
         break;
      case SwTableBase::stateThree:
      case SwTableBase::failedNeededEntry:
      case SwTableBase::hwIndexExhausted:
         FWK_ASSERT(entryHandle.entryType() != EntryHandle::inDeletion,
                    "entryHandle->entryType() != EntryHandle::inDeletion()");
         break;
      default:
         FWK_ASSERT(false, "entryState <= hwIndexExhausted");
         break;
   }
}

}  // namespace Asic
