// Index suggestions: during the configuration replay, read-back indices travel along the
// dependency chain, so that needed entries get their old hardware index again.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

// The suggestion step of initUnresolvedEntry, for an entry that has to wait during the replay.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::suggestFromSyncedEntries(UnresolvedEntry* ue) {
   const Key key = ue->key();
   const Index x = *doRetrieveHwIndex(key);
   if (x != kInvalidIndex) {
      if (swTable_->syncedEntryHas(x)) {
         suggestIndexToNeededTable(ue->entry, swTable_->syncedEntry(x));
      }
      return;
   }
   const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   const Fwk::Ptr<IndexHelper> helper = handle ? swTable_->indexHelper(handle.get()) : nullptr;
   if (!helper) {
      return;
   }
   const std::vector<Index> candidates = helper->indices();  // the walk drops candidates
   for (const Index i : candidates) {
      if (swTable_->syncedEntryHas(i)) {
         suggestIndexToNeededTable(ue->entry, swTable_->syncedEntry(i));
      } else {
         helper->indexDel(i);
      }
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::suggestIndexToNeededTable(const Entry& swEntry,
                                                              const Entry& syncedEntry) {
   SW_TRACE(8, "suggestIndexToNeededTable",
            ": swEntry:" << swEntry << ", syncedEntry:" << syncedEntry);
   const auto& h = Traits::neededHandle(swEntry);
   if (h && h->entryState() == SwTableBase::unresolved) {
      SwTableBase::suggestIndicesToNeededEntryHandle(h, IndexSet{Traits::suggestion(syncedEntry)});
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleIndexSuggestions(
    const EntryHandle* eh,
    IndexSet suggestions) {  // NOLINT(performance-unnecessary-value-param): the walk owns a copy

   FWK_ASSERT(eh->entryState() == SwTableBase::unresolved, "eh->entryState() == unresolved()");
   FWK_ASSERT(swTable_->configReplayInProgress(), "swTable_->configReplayInProgress()");
   SW_TRACE(8, "handleIndexSuggestions",
            ": eh:" << static_cast<const void*>(eh) << ", key:" << eh->key()
                    << ", numSuggestions:" << suggestions.size());
   const Util* util = utilIfExists();
   FWK_ASSERT(util != nullptr, "util");
   Fwk::Ptr<IndexHelper> helper = swTable_->indexHelperIs(eh);
   for (const Index s : suggestions) {
      const Index i = util->dependentFieldValueToHwIndex(s);
      if (helper->has(i)) {
         continue;
      }
      helper->indexIs(i);
      SW_TRACE(8, "handleIndexSuggestions", ": hwIndex:" << i);
      if (processIndexSuggestion(eh, i)) {
         break;
      }
   }
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::processIndexSuggestion(const EntryHandle* eh, Index hwIndex) {
   const Key key = eh->key();
   if (swTable_->resolvedEntryHas(key)) {
      SW_TRACE(
          8, "processIndexSuggestion",
          ": eh:" << static_cast<const void*>(eh) << ", key:" << key << ", hwIndex:" << hwIndex);
      if (!reconcileUsingHwIndex(key, hwIndex, true)) {
         return false;
      }
      swTable_->updateStatistic(reconciledMatch);
      SW_TRACE(8, "processIndexSuggestion",
               ": Deleting syncedEntry reconciled at index:" << hwIndex);
      readBackRowClaimed(hwIndex);
      swTable_->indexHelperDel(eh);
      const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
      handle->hwIndexIs(hwIndex);
      handle->entryStateIs(SwTableBase::indexReconciled);
      handle->resolvedEntryStateIs(SwTableBase::indexReconciled);
      doCompleteEntryHandleForTesting(key);
      return true;
   }
   if (const auto ue = swTable_->unresolvedEntry(key)) {
      const Entry swEntry = ue->entry;
      suggestIndexToNeededTable(swEntry, swTable_->syncedEntry(hwIndex));
   }
   return false;
}

}  // namespace Asic
