// Client write path: entryRef and entryCommit decide, against what the table holds for the key,
// whether the entry is new, and hand new entries to resolution.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

// The collection's hold on a handle counts as a use except for reference-only handles; changing
// the entry type into or out of referenceOnly therefore releases or takes that reference.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::entryTypeIs(EntryHandle* handle,
                                                std::uint8_t type) const noexcept {
   handle->entryTypeIs(type);
   handle->uncountedHolderIs(type == EntryHandle::referenceOnly);
}

template <class Table, class Key>
Fwk::Ptr<typename SwTable::Accessor<Table, Key>::EntryHandle>
SwTable::Accessor<Table, Key>::validEntryHandle(const Key& key) const {
   Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
   FWK_ASSERT_MSG(handle, "entryHandle", "expect a valid entryHandle, key: " << key);
   return handle;
}

template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::HandlePtr SwTable::Accessor<Table, Key>::entryRef(
    const Key& key, const Entry& entry) {
   SW_RING_TRACE("entryRef");
   if (const auto ue = swTable_->unresolvedEntry(key)) {
      if (ue->entry == entry) {
         SW_TRACE(5, "entryRef",
                  " : Found existing unresolved entry at key : " << key << ", entry : " << entry);
         return validEntryHandle(key);
      }
      SW_TRACE(5, "entryRef", " : Deleting existing unresolved entry at key : " << key);
      swTable_->unresolvedEntryDel(key);
   }
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key);
       resolved && resolved->has_value() && **resolved == entry) {
      SW_TRACE(5, "entryRef",
               " : Found already existing resolved entry at key : " << key << ", entry : "
                                                                    << entry);
      Fwk::Ptr<EntryHandle> handle = validEntryHandle(key);
      if (handle->entryType() == EntryHandle::unset) {
         entryTypeIs(handle.get(), EntryHandle::referenceOnly);
      }
      handle->entryStateIs(handle->resolvedEntryState());
      return handle;
   }
   SW_TRACE(5, "entryRef", " : Writing new entry at key: " << key << ", entry:" << entry);
   Fwk::Ptr<EntryHandle> handle = swTable_->entryHandleIs(key, swTable_);
   if (handle->entryType() == EntryHandle::unset ||
       handle->entryType() == EntryHandle::inDeletion) {
      entryTypeIs(handle.get(), EntryHandle::referenceOnly);
   }
   handle->entryStateIs(SwTableBase::unresolved);
   initUnresolvedEntry(swTable_->unresolvedEntryIs(key), entry);
   return handle;
}

template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::HandlePtr SwTable::Accessor<Table, Key>::entryCommit(
    const Key& key, const Entry& entry) {
   if (const auto ue = swTable_->unresolvedEntry(key)) {
      if (ue->entry == entry) {
         SW_TRACE(5, "entryCommit",
                  " : Found existing unresolved entry at key : " << key << ", entry : " << entry);
         Fwk::Ptr<EntryHandle> handle = validEntryHandle(key);
         entryTypeIs(handle.get(), EntryHandle::committed);
         return handle;
      }
      SW_TRACE(5, "entryCommit", " : Deleting existing unresolved entry at key : " << key);
      swTable_->unresolvedEntryDel(key);
   }
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key);
       resolved && resolved->has_value() && **resolved == entry) {
      SW_TRACE(5, "entryCommit",
               " : Found already existing resolved entry at key : " << key << ", entry : "
                                                                    << entry);
      Fwk::Ptr<EntryHandle> handle = validEntryHandle(key);
      entryTypeIs(handle.get(), EntryHandle::committed);
      handle->entryStateIs(handle->resolvedEntryState());
      return handle;
   }
   SW_TRACE(5, "entryCommit", " : Writing new entry at key: " << key);
   Fwk::Ptr<EntryHandle> handle = swTable_->entryHandleIs(key, swTable_);
   entryTypeIs(handle.get(), EntryHandle::committed);
   handle->entryStateIs(SwTableBase::unresolved);
   initUnresolvedEntry(swTable_->unresolvedEntryIs(key), entry);
   return handle;
}

}  // namespace Asic
