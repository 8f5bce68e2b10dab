// Hardware programming: put a key's handle into a state, obtain its index from the allocator,
// write or delete the row through the Util, and report each change of a row's use to the index
// user tracker.
#pragma once

#include <cstdlib>
#include <mutex>

#include "Asic/HwTable.h"
#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::programHwEntry(const Key& key,
                                                   SwTableBase::EntryState entryState) {
   SW_RING_TRACE("programHwEntry");
   SW_TRACE(8, "programHwEntry", " key: " << key << ", entryState:" << entryState);
   if (const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key)) {
      handle->entryStateIs(entryState);
      handle->resolvedEntryStateIs(entryState);
   }
   Index hwIndex;
   {
      const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
      hwIndex = allocator->indexAcquire(Traits::allocatorKey(key));
   }
   SW_TRACE(8, "traceHwIndex", " Acquired hwIndex : " << hwIndex);
   if (const Util* util = utilIfExists()) {
      if (hwIndex == kInvalidIndex) {
         FWK_ASSERT(entryState != SwTableBase::indexReconciled, "entryState != indexReconciled()");
         if (const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key)) {
            handle->resolvedEntryStateIs(SwTableBase::hwIndexExhausted);
         }
         return;
      }
      swTable_->reconciledWriteIs(entryState == SwTableBase::indexReconciled);
      hwTableEntryIs(util, key, hwIndex);
   }
   if (swTable_->entryHandleHas(key)) {
      doCompleteEntryHandleForTesting(key);
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::hwTableEntryIs(const Util* util, const Key& key,
                                                   std::optional<Index> hwIndex) {
   SW_TRACE(8, "hwTableEntryIs", " : key: " << key);
   OptionalEntry value;
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key)) {
      value = *resolved;
   }
   const bool reconciledRow = swTable_->reconciledWrite() && swTable_->syncedEntryHas(*hwIndex);
   if (!reconciledRow) {
      const PriorResolvedEntry prior = swTable_->priorResolvedEntry();
      if (value.has_value()) {
         if (prior == absent) {
            util->updateHwIndexRefCountTracker(swTable_->hwTable(), *hwIndex,
                                               IndexUserTracker::acquire);
         } else if (prior == empty) {
            util->updateHwIndexRefCountTracker(swTable_->hwTable(), *hwIndex,
                                               IndexUserTracker::refill);
         }
      } else if (prior == valued) {
         util->updateHwIndexRefCountTracker(swTable_->hwTable(), *hwIndex, IndexUserTracker::empty);
      } else {
         FWK_ASSERT(prior > valued, "false");
      }
   }
   util->hwTableEntryIs(swTable_, *hwIndex, value);
   value.reset();
   if (util->publishHwIndexInHandle()) {
      if (const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key)) {
         handle->hwIndexIs(*hwIndex);
      }
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::hwTableEntryDel(const Util* util,
                                                    [[maybe_unused]] const Key& key,
                                                    std::optional<Index> hwIndex) {
   SW_TRACE(8, "hwTableEntryDel", ": Deleting entry at key:" << key);
   const PriorResolvedEntry prior = swTable_->priorResolvedEntry();
   if (swTable_->reconciledWrite() || prior == valued) {
      util->updateHwIndexRefCountTracker(swTable_->hwTable(), *hwIndex, IndexUserTracker::release);
   } else if (prior == empty) {
      util->updateHwIndexRefCountTracker(swTable_->hwTable(), *hwIndex,
                                         IndexUserTracker::releaseEmpty);
   } else {
      FWK_ASSERT(prior > valued, "false");
   }
   util->hwTableEntryDel(swTable_, *hwIndex);
   if (!swTable_->configReplayComplete()) {
      swTable_->updateStatistic(hwEntryDeleted);
   }
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::switchValueOn(const char* value) noexcept {
   return value != nullptr && std::strtol(value, nullptr, 10) != 0;
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::publishEntryHandleProgrammedState() {
   static const bool on = switchValueOn(std::getenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE"));
   return on;
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::doCompleteEntryHandleForTesting(const Key& key) {
   if (!publishEntryHandleProgrammedState()) {
      return;
   }
   const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   const Index hwIndex = *doRetrieveHwIndex(key);
   handle->hwIndexIs(hwIndex);
   handle->resolvedEntryStateIs(hwIndex == kInvalidIndex ? SwTableBase::hwIndexExhausted
                                                         : SwTableBase::success);
}

}  // namespace Asic
