// Bulk removal and teardown: entryRemoveAll removes every client entry as its client would;
// cleanup disconnects the handles, deletes the resolved entries, gives a shared allocator back
// and deletes the hardware table's index-user tracker before the table is destroyed.
#pragma once

#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/HwTable.h"
#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::entryRemoveAll() {
   SW_RING_TRACE("entryRemoveAll");
   SW_TRACE(5, "entryRemoveAll", "");
   entryHandleRemoveAll(false);
   FWK_ASSERT_MSG(utilIfExists() == nullptr || swTable_->syncedEntrys() == 0, "false",
                  "Should call purgeStaleEntries instead");
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::entryHandleRemoveAll(bool unsetOnly) {
   SW_TRACE(5, "entryHandleRemoveAll", "");
   // entryRemove may take handles out of the collection, which ends a walk: walk a snapshot,
   // skipping the handles gone by the time their turn comes.
   std::vector<Fwk::Ptr<EntryHandle>> removed;
   removed.reserve(swTable_->entrys());
   for (const auto& handle : swTable_->entryHandleMap()) {
      if (!unsetOnly || handle->entryType() == EntryHandle::unset) {
         removed.push_back(handle);
      }
   }
   for (const auto& handle : removed) {
      if (swTable_->entryHandle(handle->key()) == handle) {
         entryRemove(handle->key());
      }
   }
   for (auto& handle : removed) {
      handle = nullptr;  // released in visiting order; a last release runs the handle's clean-up
   }
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::cleanup() {
   SW_TRACE(6, "cleanup", "");
   for (const auto& handle : swTable_->entryHandleMap()) {
      handle->swTableIs(nullptr);
      handle->doAmendReferences();
   }
   std::vector<Key> keys;
   keys.reserve(swTable_->resolvedEntrys());
   for (const auto& [key, value] : swTable_->resolvedEntryMap()) {
      keys.push_back(key);
   }
   for (const Key& key : keys) {
      deleteResolvedEntry(key);
   }
   if (const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator()) {
      if (allocator->hasTable(swTable_)) {
         FWK_TRACE(Detail::engineTraceHandle<MutableTable>, 6,
                   "Trying to delete shared allocator for table:" << swTable_->entityText());
         GenericIndexAllocatorStub::freeSharedAllocator(Fwk::typeOf<MutableTable>(),
                                                        allocator->typeData(), swTable_);
      }
      swTable_->indexAllocatorIs(nullptr);
   }
   if (utilIfExists() != nullptr) {
      IndexUserTracker::Stub::deleteTracker(swTable_->hwTable(), 0, false);
   }
}

}  // namespace Asic
