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

// How a write holds the key's handle: a commit makes it committed; a reference makes an unset
// handle, or for a new value one in deletion, reference-only.
template <class Table, class Key>
void SwTable::Accessor<Table, Key>::holdForWrite(EntryHandle* handle, WriteKind kind,
                                                 bool newValue) const noexcept {
   if (kind == WriteKind::commit) {
      entryTypeIs(handle, EntryHandle::committed);
   } else if (handle->entryType() == EntryHandle::unset ||
              (newValue && handle->entryType() == EntryHandle::inDeletion)) {
      entryTypeIs(handle, EntryHandle::referenceOnly);
   }
}

template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::HandlePtr SwTable::Accessor<Table, Key>::entryRef(
    const Key& key, const Entry& entry) {
   SW_RING_TRACE("entryRef");
   return write(key, entry, WriteKind::ref);
}

template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::HandlePtr SwTable::Accessor<Table, Key>::entryCommit(
    const Key& key, const Entry& entry) {
   return write(key, entry, WriteKind::commit);
}

// The three-way decision both writes share: the value already waits, or is already in force, or
// is new for the key and goes to resolution.
template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::HandlePtr SwTable::Accessor<Table, Key>::write(
    const Key& key, const Entry& entry, WriteKind kind) {
   [[maybe_unused]] const char* const op = kind == WriteKind::ref ? "entryRef" : "entryCommit";
   if (const auto ue = swTable_->unresolvedEntry(key)) {
      if (ue->entry == entry) {
         SW_TRACE(5, op,
                  " : Found existing unresolved entry at key : " << key << ", entry : " << entry);
         Fwk::Ptr<EntryHandle> handle = validEntryHandle(key);
         if (kind == WriteKind::commit) {
            holdForWrite(handle.get(), kind, false);
         }
         return handle;
      }
      SW_TRACE(5, op, " : Deleting existing unresolved entry at key : " << key);
      swTable_->unresolvedEntryDel(key);
   }
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key);
       resolved && resolved->has_value() && **resolved == entry) {
      SW_TRACE(
          5, op,
          " : Found already existing resolved entry at key : " << key << ", entry : " << entry);
      Fwk::Ptr<EntryHandle> handle = validEntryHandle(key);
      holdForWrite(handle.get(), kind, false);
      handle->entryStateIs(handle->resolvedEntryState());
      return handle;
   }
   if (kind == WriteKind::ref) {
      SW_TRACE(5, op, " : Writing new entry at key: " << key << ", entry:" << entry);
   } else {
      SW_TRACE(5, op, " : Writing new entry at key: " << key);
   }
   Fwk::Ptr<EntryHandle> handle = swTable_->entryHandleIs(key, swTable_);
   holdForWrite(handle.get(), kind, true);
   handle->entryStateIs(SwTableBase::unresolved);
   Fwk::Ptr<UnresolvedEntry> ue = swTable_->unresolvedEntryIs(key);
   initUnresolvedEntry(ue, entry);
   swTable_->unresolvedEntryRecycle(std::move(ue));  // resolved at once, it is reused
   return handle;
}

}  // namespace Asic
