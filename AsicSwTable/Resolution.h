// Resolution: a value waits as the key's unresolved entry until the profile entry it needs has a
// hardware index, then becomes the key's resolved entry with the index narrowed into its
// dependent field.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic {

template <class Table, class Key>
const typename SwTable::Accessor<Table, Key>::Util* SwTable::Accessor<Table, Key>::utilIfExists()
    const noexcept {
   return swTable_ != nullptr ? swTable_->util() : nullptr;
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::initUnresolvedEntry(const Fwk::Ptr<UnresolvedEntry>& ue,
                                                        const Entry& entry) {
   SW_RING_TRACE("initUnresolvedEntry");
   SW_TRACE(6, "initUnresolvedEntry", ": key:" << ue->key());
   ue->entry = entry;
   initUnresolvedEntry(ue);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::initUnresolvedEntry(const Fwk::Ptr<UnresolvedEntry>& ue) {
   const Util* util = utilIfExists();
   const auto& needed = Traits::neededHandle(ue->entry);
   const bool publishIndex = util != nullptr && util->publishHwIndexInHandle();
   if (needed && !SwTableBase::neededEntryHandleReady(*needed, publishIndex)) {
      ue->neededEntryHandleSmIs(needed);
   }
   if (ue->neededEntryHandleSms() == 0) {
      doResolve(ue.get());
      return;
   }
   if (swTable_->configReplayComplete()) {
      return;
   }
   suggestFromSyncedEntries(ue.get());
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::doResolve(UnresolvedEntry* ue) {
   FWK_ASSERT_MSG(
       ue->neededEntryHandleSms() == 0, "ue->neededEntryHandleSms() == 0",
       "function should not have been called, accessor: " << static_cast<const void*>(this));
   SW_RING_TRACE("doResolve");
   const Key key = ue->key();
   Fwk::Ptr<EntryHandle> eh = swTable_->entryHandle(key);
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key);
       resolved && resolved->has_value() && !(**resolved == Entry())) {
      eh->pendingEntryEnq(**resolved);
   }
   // A needed handle in stateThree gives its index unchecked: the field keeps its low bits.
   if (const auto& h = Traits::neededHandle(ue->entry)) {
      Traits::dependentFieldIs(ue->entry, SwTableBase::getHwIndexForDependentField(h),
                               h->entryState() != SwTableBase::stateThree);
   }
   SW_TRACE(6, "doResolve", ": key:" << key);
   setResolvedEntry(key, OptionalEntry(ue->entry));
   swTable_->unresolvedEntryDel(key);  // may destroy `ue`
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::setResolvedEntry(const Key& key,
                                                     const OptionalEntry& entry) const {
   const OptionalEntry* current = swTable_->resolvedEntry(key);
   if (current == nullptr) {
      swTable_->priorResolvedEntryIs(absent);
   } else if (!current->has_value()) {
      swTable_->priorResolvedEntryIs(empty);
   } else {
      // A value that never reached hardware counts as none: it found no index, or the replay
      // left it undecided (its handle was never written in this life).
      const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(key);
      FWK_ASSERT(handle, "swTable_->entryHandleHas( key )");
      const SwTableBase::EntryState written = handle->resolvedEntryState();
      swTable_->priorResolvedEntryIs(
          written == SwTableBase::hwIndexExhausted || written == SwTableBase::unresolved ? absent
                                                                                         : valued);
   }
   swTable_->resolvedEntryIs(key, entry);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::deleteResolvedEntry(const Key& key) const {
   const OptionalEntry* current = swTable_->resolvedEntry(key);
   swTable_->priorResolvedEntryIs(current == nullptr     ? absent
                                  : current->has_value() ? valued
                                                         : empty);
   swTable_->resolvedEntryDel(key);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::markFailedNeededEntry(UnresolvedEntry* ue) const {
   // A key always has its handle while it has an unresolved entry; should a platform call come
   // late, there is no handle to tell and nothing else to do.
   if (const Fwk::Ptr<EntryHandle> handle = swTable_->entryHandle(ue->key())) {
      handle->entryStateIs(SwTableBase::failedNeededEntry);
   }
}

template <class Table, class Key>
Index SwTable::Accessor<Table, Key>::hwIndexForDependentField(const EntryHandle* handle) const {
   if (const Util* util = utilIfExists()) {
      return util->hwIndexForDependentField(Fwk::Ptr<const SwTableBase::EntryHandle>(handle));
   }
   return handle->hwIndex();
}

}  // namespace Asic
