// The definitions of the generic table model's collections and attributes (TableModel.h): what
// each mutator creates, replaces or deletes, when it runs the engine's handleEntry, and what it
// publishes. Included through TableModelImpl.h.
#pragma once

#include <sstream>
#include <utility>
#include <vector>

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/TableModel.h"
#include "Fwk/Directory.h"
#include "Fwk/Errors.h"
#include "Fwk/TextForm.h"

namespace Asic {

namespace Detail {
template <class Entry>
std::string entryText(const Entry& entry) {
   std::ostringstream os;
   os << entry;
   return os.str();
}
}  // namespace Detail

// ===== Collections =====

template <class Table>
auto TableModel<Table>::unresolvedEntryIs(Key key) -> Fwk::Ptr<UnresolvedEntry> {
   if (const auto it = unresolvedEntry_.find(key); it != unresolvedEntry_.end()) {
      return it->second;
   }
   Fwk::Ptr<UnresolvedEntry> member = unresolvedEntryAdd(key);
   notify("unresolvedEntry", key);
   return member;
}

template <class Table>
auto TableModel<Table>::unresolvedEntryAdd(Key key) -> const Fwk::Ptr<UnresolvedEntry>& {
   Fwk::Ptr<UnresolvedEntry> member = std::move(spareUnresolvedEntry_);
   if (member) {
      member->key_ = key;
   } else {
      member = Fwk::make<UnresolvedEntry>(key, self());
   }
   if (spareUnresolvedNode_.empty()) {
      return unresolvedEntry_.emplace(key, std::move(member)).first->second;
   }
   spareUnresolvedNode_.key() = key;
   spareUnresolvedNode_.mapped() = std::move(member);
   return unresolvedEntry_.insert(std::move(spareUnresolvedNode_)).position->second;
}

template <class Table>
auto TableModel<Table>::unresolvedEntryDel(Key key) -> Fwk::Ptr<UnresolvedEntry> {
   const auto it = unresolvedEntry_.find(key);
   if (it == unresolvedEntry_.end()) {
      return nullptr;
   }
   auto node = unresolvedEntry_.extract(it);
   Fwk::Ptr<UnresolvedEntry> removed = std::move(node.mapped());
   if (spareUnresolvedNode_.empty()) {
      spareUnresolvedNode_ = std::move(node);
   }
   notify("unresolvedEntry", key);
   return removed;
}

template <class Table>
void TableModel<Table>::unresolvedEntryRecycle(Fwk::Ptr<UnresolvedEntry> member) {
   const bool reusable = !spareUnresolvedEntry_ && member->holderCount() == 1 &&
                         !member->uncountedHolder() && !member->publisher().hasObservers() &&
                         member->neededEntryHandleSms() == 0 &&
                         Fwk::Directory::nameOf(member.get()).empty();
   if (reusable) {
      member->entry = Entry();  // its value's references go now, as with a destroyed entry
      spareUnresolvedEntry_ = std::move(member);
   }
}

template <class Table>
void TableModel<Table>::unresolvedEntryDelAll() {
   while (!unresolvedEntry_.empty()) {
      unresolvedEntryDel(unresolvedEntry_.begin()->first);
   }
}

template <class Table>
auto TableModel<Table>::unresolvedEntry(Key key) const -> Fwk::Ptr<UnresolvedEntry> {
   const auto it = unresolvedEntry_.find(key);
   return it == unresolvedEntry_.end() ? nullptr : it->second;
}

template <class Table>
auto TableModel<Table>::entryHandleIs(Key key, Table* table) -> Fwk::Ptr<EntryHandle> {
   if (const Fwk::Ptr<EntryHandle>* slot = handleSlot(key)) {
      if ((*slot)->swTable() != table) {
         throw Fwk::ReinstantiationError("swTable");
      }
      return *slot;
   }
   Fwk::Ptr<EntryHandle> added = entryHandleFactory(key, table);
   lookup_.handleIs(key, &entryHandle_.insert(added));
   notify("entryHandle", key);
   return added;
}

template <class Table>
auto TableModel<Table>::entryHandleDel(Key key) -> Fwk::Ptr<EntryHandle> {
   Fwk::Ptr<EntryHandle> removed = entryHandle_.erase(key);
   if (!removed) {
      return nullptr;
   }
   lookup_.handleIs(key, nullptr);
   // The collection's hold leaves with it; a reference-only handle's users are unchanged.
   removed->uncountedHolderIs(false);
   notify("entryHandle", key);
   return removed;
}

template <class Table>
void TableModel<Table>::entryHandleDelAll() {
   // By a snapshot of the keys: taking the first member until none is left would scan the
   // emptied front of the slots again on every turn. Observers may add handles meanwhile.
   std::vector<Key> keys;
   while (!entryHandle_.empty()) {
      keys.clear();
      keys.reserve(entryHandle_.size());
      for (const Fwk::Ptr<EntryHandle>& handle : entryHandle_) {
         keys.push_back(handle->key());
      }
      for (const Key& key : keys) {
         entryHandleDel(key);
      }
   }
}

template <class Table>
auto TableModel<Table>::entryHandle(Key key) const -> Fwk::Ptr<EntryHandle> {
   const Fwk::Ptr<EntryHandle>* slot = handleSlot(key);
   return slot ? *slot : nullptr;
}

template <class Table>
auto TableModel<Table>::handleSlot(Key key) const -> const Fwk::Ptr<EntryHandle>* {
   return lookup_.handle(key, [&] { return entryHandle_.find(key); });
}

template <class Table>
void TableModel<Table>::resolvedEntryIs(Key key, const std::optional<Entry>& value) {
   // The member is ours to change; the lookup (and its cache) only hands out const access.
   if (auto* const current = const_cast<std::optional<Entry>*>(resolvedEntry(key))) {
      std::optional<Entry>& stored = *current;
      if (&stored == &value) {
         return;
      }
      if (stored.has_value()) {
         if (!value.has_value()) {
            stored.reset();
         } else if (*stored == *value) {
            return;  // equal by the entry's equality: a changed dependent field alone is not stored
         } else {
            *stored = *value;
         }
      } else {
         if (!value.has_value()) {
            return;
         }
         stored = value;
      }
   } else {
      lookup_.resolvedIs(key, &resolvedEntry_.emplace(key, value).first->second);
   }
   SwTable::Accessor<Table>(self()).handleEntry(key);
   notify("resolvedEntry", key);
}

template <class Table>
auto TableModel<Table>::resolvedEntryDel(Key key) -> std::optional<Entry> {
   const auto it = resolvedEntry_.find(key);
   if (it == resolvedEntry_.end()) {
      return std::nullopt;
   }
   std::optional<Entry> removed = std::move(it->second);
   resolvedEntry_.erase(it);
   lookup_.resolvedIs(key, nullptr);
   SwTable::Accessor<Table>(self()).handleEntry(key);
   notify("resolvedEntry", key);
   return removed;
}

template <class Table>
void TableModel<Table>::resolvedEntryDelAll() {
   while (!resolvedEntry_.empty()) {
      resolvedEntryDel(resolvedEntry_.begin()->first);
   }
}

template <class Table>
auto TableModel<Table>::resolvedEntry(Key key) const -> const std::optional<Entry>* {
   return lookup_.resolved(key, [&]() -> const std::optional<Entry>* {
      const auto it = resolvedEntry_.find(key);
      return it == resolvedEntry_.end() ? nullptr : &it->second;
   });
}

template <class Table>
void TableModel<Table>::syncedEntryIs(Index index, const Entry& entry) {
   const Fwk::ChangeKey key{&indexType(), index};
   if (auto* row = syncedEntry_.find(index)) {
      Entry& stored = row->entry;
      if (stored == entry) {
         return;
      }
      const Entry previous = stored;
      stored = entry;
      notifyWithPrevious("syncedEntry", key, [&] { return Detail::entryText(previous); });
      return;
   }
   syncedEntry_.insert(index, entry);
   notifyWithPrevious("syncedEntry", key, [] { return Detail::entryText(Entry()); });
}

template <class Table>
auto TableModel<Table>::syncedEntryDel(Index index) -> Entry {
   auto* row = syncedEntry_.find(index);
   if (row == nullptr) {
      return Entry();
   }
   Entry removed = syncedEntry_.erase(*row);
   notifyWithPrevious("syncedEntry", Fwk::ChangeKey{&indexType(), index},
                      [&] { return Detail::entryText(removed); });
   return removed;
}

template <class Table>
void TableModel<Table>::syncedEntryDelAll() {
   if (!publisher().hasObservers()) {
      syncedEntry_.clear();
      return;
   }
   for (auto it = syncedEntryIter(); !it.done(); it.advance()) {
      syncedEntryDel(it);
   }
}

template <class Table>
auto TableModel<Table>::syncedEntry(Index index) const -> Entry {
   const auto* row = syncedEntry_.find(index);
   return row == nullptr ? Entry() : row->entry;
}

template <class Table>
auto TableModel<Table>::syncedEntryGet(Index index) const -> std::optional<Entry> {
   const auto* row = syncedEntry_.find(index);
   return row == nullptr ? std::nullopt : std::optional<Entry>(row->entry);
}

template <class Table>
void TableModel<Table>::indexAllocatorIs(const Fwk::Ptr<FirstFreeIndexAllocator>& allocator) {
   if (allocator == indexAllocator_) {
      return;
   }
   Fwk::Ptr<FirstFreeIndexAllocator> previous = std::move(indexAllocator_);
   indexAllocator_ = allocator;
   notifyWithPrevious("indexAllocator", {}, [&] { return Fwk::objectRefText(previous.get()); });
}

template <class Table>
Fwk::Ptr<WriteResponseSm> TableModel<Table>::writeResponseSmIs(SwTable* swTable) {
   if (writeResponseSm_ && writeResponseSm_->swTable() == swTable) {
      return writeResponseSm_;
   }
   Fwk::Ptr<WriteResponseSm> previous = std::move(writeResponseSm_);
   writeResponseSm_ = WriteResponseSm::writeResponseSmFactory(swTable);
   notifyWithPrevious("writeResponseSm", {}, [&] { return Fwk::objectRefText(previous.get()); });
   writeResponseSm_->hasNotificationActiveIs(true);
   return writeResponseSm_;
}

template <class Table>
Fwk::Ptr<WriteResponseSm> TableModel<Table>::writeResponseSmDel() {
   if (!writeResponseSm_) {
      return nullptr;
   }
   Fwk::Ptr<WriteResponseSm> removed = std::move(writeResponseSm_);
   notifyWithPrevious("writeResponseSm", {}, [&] { return Fwk::objectRefText(removed.get()); });
   removed->hasNotificationActiveIs(false);
   return removed;
}

}  // namespace Asic
