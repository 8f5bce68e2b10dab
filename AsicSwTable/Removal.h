// Entry removal: the client's entryRemove, the clean-up that runs when a handle's last client
// reference goes (remove at once, or the two-step delete dance for a row in hardware), and the
// hook that follows the hardware's answer.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

namespace Detail {
inline bool inHardware(SwTableBase::EntryState s) noexcept {
   return s == SwTableBase::inProgress || s == SwTableBase::indexReconciled ||
          s == SwTableBase::success;
}
}  // namespace Detail

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::entryRemove(const Key& key) {
   Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   const int entryType = handle ? static_cast<int>(handle->entryType()) : -1;
   const std::uint32_t refCnt = handle ? handle->refCount() : 0;
   FWK_RING_TRACE("{}: {} entryType: {}, refCnt: {}", "entryRemove", MutableTable::kShortName,
                  std::string_view("entryRemove"), entryType, refCnt);
   SW_TRACE(5, "entryRemove",
            ": key:" << key << ", entryType:" << entryType << ", refCnt:" << refCnt);
   if (handle && handle->entryType() == EntryHandle::unset) {
      swTable_->entryHandleDel(key);
   } else if (handle && handle->entryType() == EntryHandle::committed) {
      SW_TRACE(5, "entryRemove", " : Removing entry at key : " << key);
      swTable_->unresolvedEntryDel(key);
      entryTypeIs(handle.get(), EntryHandle::referenceOnly);
   } else {
      SW_TRACE(5, "entryRemove", " : Found no committed entry at key : " << key);
   }
   handle = nullptr;  // the last client reference gone runs the clean-up here
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::cleanup(EntryHandle* eh) {
   if (eh->swTable() == nullptr) {
      return;
   }
   const Key key = eh->key();
   eh->doAmendReferences();
   FWK_RING_TRACE("{}: {} entryHandle : 0x{:x}", "cleanup", MutableTable::kShortName,
                  std::string_view("cleanup"), static_cast<const void*>(eh));
   SW_TRACE(6, "cleanup",
            " : entryhandle cleanup, eh : " << static_cast<const void*>(eh) << ", key :" << key
                                            << ", refCnt:" << eh->refCount());
   swTable_->unresolvedEntryDel(key);
   if (!swTable_->configReplayComplete() && eh->resolvedEntryState() == SwTableBase::unresolved) {
      removeAtOnce(eh);
      return;
   }
   if (!swTable_->entryHandleHas(key)) {
      switch (eh->entryType()) {
         case EntryHandle::unset:
            deleteResolvedEntry(key);
            return;
         case EntryHandle::inDeletion:
            SW_TRACE(6, "cleanup", " delete dance complete, key : " << key);
            return;
         default:
            FWK_ASSERT(swTable_->entryHandleHas(key), "swTable_->entryHandleHas( key )");
            FWK_ASSERT(false, "0");
      }
   }
   FWK_ASSERT_MSG(eh->entryType() == EntryHandle::referenceOnly,
                  "eh->entryType() == EntryHandle::referenceOnly()", "unexpected entryType");
   const OptionalEntry* resolved = swTable_->resolvedEntry(key);
   const bool valued = resolved != nullptr && resolved->has_value();
   if (valued) {
      eh->pendingEntryEnq(**resolved);
   }
   if (eh->pendingEntrys() != 0 && Detail::inHardware(eh->resolvedEntryState())) {
      SW_TRACE(6, "cleanup", " begin delete dance, key : " << key);
      entryTypeIs(eh, EntryHandle::inDeletion);
      eh->entryStateIs(SwTableBase::unresolved);
      if (valued) {
         setResolvedEntry(key, OptionalEntry());
      } else {
         FWK_ASSERT(eh->resolvedEntryState() == SwTableBase::inProgress,
                    "eh->resolvedEntryState() == inProgress()");
         eh->entryStateIs(SwTableBase::inProgress);
      }
      return;
   }
   removeAtOnce(eh);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::removeAtOnce(EntryHandle* eh) {
   const Key key = eh->key();
   Fwk::Ptr<MutableTable> table(eh->swTable());  // released last
   if (table) {
      eh->swTableIs(nullptr);
   }
   deleteResolvedEntry(key);
   releaseBoundIndex(key);
   swTable_->entryHandleDel(key);
}

// A key bound to an index during a restart (bindKeyToIndex) that never resolved has no resolved
// entry whose removal would give the index back. While the restart runs the binding stays: the
// key, taken again, finds its row and adopts it, and the purge gives back what nobody claimed.
// Afterwards the index goes back here, with the handle.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::releaseBoundIndex(const Key& key) {
   if (restartInProgress() || *doRetrieveHwIndex(key) == kInvalidIndex) {
      return;
   }
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   GenericIndexAllocator::releaseIndexFromTable(*allocator, Traits::allocatorKey(key), swTable_);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::handleResolvedEntryState(EntryHandle* eh) {
   const SwTableBase::EntryState rs = eh->resolvedEntryState();
   const SwTableBase::EntryState es = eh->entryState();
   const Key key = eh->key();
   if (rs == SwTableBase::inProgress || rs == SwTableBase::indexReconciled) {
      eh->entryStateIs(rs);
      return;
   }
   FWK_ASSERT(swTable_->resolvedEntryHas(key), "swTable_->resolvedEntryHas( key )");
   if (swTable_->resolvedEntry(key)->has_value()) {
      eh->pendingEntryDelAll();
      if (es == SwTableBase::inProgress || es == SwTableBase::indexReconciled) {
         eh->entryStateIs(rs);
         return;
      }
      FWK_ASSERT(es == SwTableBase::unresolved || es == SwTableBase::failedNeededEntry,
                 "entryState == unresolved() || entryState == failedNeededEntry()");
      FWK_ASSERT(rs == SwTableBase::success, "resolvedEntryState == success()");
      return;
   }
   FWK_ASSERT(rs == SwTableBase::success, "resolvedEntryState == success()");
   deleteResolvedEntry(key);
   eh->pendingEntryDelAll();
   if (es == SwTableBase::inProgress) {
      swTable_->entryHandleDel(key);
   }
}

}  // namespace Asic
