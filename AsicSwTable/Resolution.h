// Resolution: a value waits as the key's unresolved entry until the profile entry it needs has a
// hardware index, then becomes the key's resolved entry with the index narrowed into its
// dependent field.
#pragma once

#include <limits>
#include <stdexcept>
#include <string>

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/Tracing.h"
#include "Fwk/Assert.h"

namespace Asic::Detail {

// Checked narrowing of an unsigned value into a narrower unsigned field.
template <class To, class From>
To raise_cast_integral(From value) {
   static_assert(std::is_same_v<To, unsigned char> && std::is_same_v<From, unsigned int>,
                 "the message below names these two types");
   if (value > std::numeric_limits<To>::max()) {
      throw std::range_error("Casting values: cast from unsigned int{ " + std::to_string(value) +
                             " } to unsigned char (max = 255) failed.");
   }
   return static_cast<To>(value);
}

}  // namespace Asic::Detail

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
   Entry& value = ue->entry;
   if (value.l3IifProfileIndexHandle != entry.l3IifProfileIndexHandle) {
      value.l3IifProfileIndexHandle = entry.l3IifProfileIndexHandle;
   }
   value.l3IifProfileIndex = entry.l3IifProfileIndex;
   value.ipv4UcEnable = entry.ipv4UcEnable;
   value.ipv6UcEnable = entry.ipv6UcEnable;
   value.trustDscp = entry.trustDscp;
   value.vrf = entry.vrf;
   initUnresolvedEntry(ue);
}

template <class Table, class Key>
void SwTable::Accessor<Table, Key>::initUnresolvedEntry(const Fwk::Ptr<UnresolvedEntry>& ue) {
   const Util* util = utilIfExists();
   const auto& needed = ue->entry.l3IifProfileIndexHandle;
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
   if (const auto& h = ue->entry.l3IifProfileIndexHandle) {
      const Index x = SwTableBase::getHwIndexForDependentField(h);
      if (h->entryState() == SwTableBase::stateThree) {
         ue->entry.l3IifProfileIndex = static_cast<std::uint8_t>(x);
      } else {
         ue->entry.l3IifProfileIndex = Detail::raise_cast_integral<unsigned char, unsigned int>(x);
      }
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
