// Read access: the newest value of a key (an unresolved value wins over the resolved one),
// presence, presence in hardware, the key's index, and the walk over all entries. Reads never
// change the table and never trace.
#pragma once

#include "AsicSwTable/Removal.h"
#include "AsicSwTable/SwTableAccessor.h"

namespace Asic {

template <class Table, class Key>
typename SwTable::Accessor<Table, Key>::Entry SwTable::Accessor<Table, Key>::entry(
    const Key& key) const {
   if (const auto ue = swTable_->unresolvedEntry(key)) {
      return ue->entry;
   }
   if (const OptionalEntry* resolved = swTable_->resolvedEntry(key);
       resolved && resolved->has_value()) {
      return **resolved;
   }
   return Entry();
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::entryHas(const Key& key) const {
   const auto handle = swTable_->entryHandle(key);
   if (!handle || handle->entryType() == EntryHandle::inDeletion) {
      return false;
   }
   return swTable_->unresolvedEntry(key) != nullptr || swTable_->resolvedEntryHas(key);
}

template <class Table, class Key>
bool SwTable::Accessor<Table, Key>::entryInHwTable(const Key& key) const {
   const auto handle = swTable_->entryHandle(key);
   return handle && Detail::inHardware(handle->resolvedEntryState());
}

template <class Table, class Key>
std::optional<Index> SwTable::Accessor<Table, Key>::doRetrieveHwIndex(const Key& key) const {
   const Fwk::Ptr<FirstFreeIndexAllocator> allocator = swTable_->indexAllocator();
   return allocator->index(Traits::allocatorKey(key));
}

// --- the walk ---

template <class Table>
SwTable::EntryIteratorConst<Table>::EntryIteratorConst(const Table* table) : table_(table) {
   const auto& unresolved = table_->unresolvedEntryMap();
   if (!unresolved.empty()) {
      position_ = unresolved.begin();
      return;
   }
   position_ = table_->resolvedEntryMap().begin();
   skipInResolved();
}

template <class Table>
SwTable::EntryIteratorConst<Table>::EntryIteratorConst(const Table* table, const Key& key)
    : table_(table) {
   const auto& unresolved = table_->unresolvedEntryMap();
   if (const auto it = unresolved.find(key); it != unresolved.end()) {
      position_ = it;
      return;
   }
   const auto& resolved = table_->resolvedEntryMap();
   if (const auto it = resolved.find(key); it != resolved.end() && it->second.has_value()) {
      position_ = it;
   }
}

template <class Table>
typename Table::Key SwTable::EntryIteratorConst<Table>::key() const {
   if (const auto* it = std::get_if<UnresolvedIt>(&position_)) {
      return (*it)->first;
   }
   return std::get<ResolvedIt>(position_)->first;
}

template <class Table>
typename Table::Entry SwTable::EntryIteratorConst<Table>::entry() const {
   if (const auto* it = std::get_if<UnresolvedIt>(&position_)) {
      return (*it)->second->entry;
   }
   return *std::get<ResolvedIt>(position_)->second;
}

template <class Table>
void SwTable::EntryIteratorConst<Table>::advance() {
   if (auto* it = std::get_if<UnresolvedIt>(&position_)) {
      if (++*it != table_->unresolvedEntryMap().end()) {
         return;
      }
      position_ = table_->resolvedEntryMap().begin();
   } else if (auto* rit = std::get_if<ResolvedIt>(&position_)) {
      ++*rit;
   } else {
      return;
   }
   skipInResolved();
}

template <class Table>
void SwTable::EntryIteratorConst<Table>::skipInResolved() {
   auto& it = std::get<ResolvedIt>(position_);
   const auto& resolved = table_->resolvedEntryMap();
   const auto& unresolved = table_->unresolvedEntryMap();
   while (it != resolved.end() && (!it->second.has_value() || unresolved.contains(it->first))) {
      ++it;
   }
   if (it == resolved.end()) {
      position_ = std::monostate();
   }
}

}  // namespace Asic
