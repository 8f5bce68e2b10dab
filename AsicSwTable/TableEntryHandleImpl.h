// The definitions of the entry handle and the unresolved entry of the generic table model
// (TableEntryHandle.h, TableModel.h). Included through TableModelImpl.h.
#pragma once

#include <sstream>
#include <utility>

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/TableModel.h"
#include "Fwk/Directory.h"
#include "Fwk/TextForm.h"

namespace Asic {

namespace Detail {
// The descriptor under which a handle's pending entries are published, by position.
const Fwk::TypeDescriptor& pendingPositionType();
}  // namespace Detail

// ===== Unresolved entry =====

template <class Table>
TableUnresolvedEntry<Table>::TableUnresolvedEntry(Key key, Table* table)
    : SwTable::UnresolvedEntry(table), key_(key) {}

template <class Table>
void TableUnresolvedEntry<Table>::doResolve() {
   SwTable::Accessor<Table>(swTable()).doResolve(this);
}

template <class Table>
void TableUnresolvedEntry<Table>::markFailedNeededEntry() {
   SwTable::Accessor<Table>(swTable()).markFailedNeededEntry(this);
}

// ===== Entry handle =====

template <class Table>
void* TableEntryHandle<Table>::operator new(std::size_t size) {
   return const_cast<Fwk::SharedNodePool&>(pool()).allocate(size, alignof(TableEntryHandle));
}

template <class Table>
void TableEntryHandle<Table>::operator delete(void* handle, std::size_t size) noexcept {
   const_cast<Fwk::SharedNodePool&>(pool()).deallocate(handle, size, alignof(TableEntryHandle));
}

template <class Table>
const Fwk::SharedNodePool& TableEntryHandle<Table>::pool() {
   // Never destroyed: a handle may be released while the process exits, after static
   // destructors.
   static auto* const handles = new Fwk::SharedNodePool;
   return *handles;
}

template <class Table>
TableEntryHandle<Table>::TableEntryHandle(Key key, Table* table) : key_(key), swTable_(table) {}

template <class Table>
TableEntryHandle<Table>::~TableEntryHandle() {
   underDestructionIs();
   pending_.clear();
}

template <class Table>
std::string TableEntryHandle<Table>::entityText() const {
   std::string name = Fwk::Directory::nameOf(this);
   if (!name.empty()) {
      return name;
   }
   std::ostringstream os;
   os << Table::kShortName << "::EntryHandle(" << key_ << ")";
   return os.str();
}

template <class Table>
void TableEntryHandle<Table>::swTableIs(Table* table) {
   if (table == swTable_.get()) {
      return;
   }
   Fwk::Ptr<Table> previous = std::move(swTable_);
   swTable_ = table;
   notifyWithPrevious("swTable", {}, [&] { return Fwk::objectRefText(previous.get()); });
}

template <class Table>
void TableEntryHandle<Table>::cleanup() {
   SwTable::Accessor<Table>(swTable_.get()).cleanup(this);
}

template <class Table>
void TableEntryHandle<Table>::lastUserGone() {
   SwTable::EntryHandle::lastUserGone();
   SwTable::Accessor<Table>(swTable_.get()).cleanup(this);
}

template <class Table>
void TableEntryHandle<Table>::handleEntryState() {
   SwTable::Accessor<Table>(swTable_.get()).handleEntryState(this, key_);
}

template <class Table>
void TableEntryHandle<Table>::handleResolvedEntryState() {
   if (swTable_) {  // a handle disconnected from its table has nothing left to drive
      SwTable::Accessor<Table>(swTable_.get()).handleResolvedEntryState(this);
   }
}

template <class Table>
Index TableEntryHandle<Table>::hwIndexForDependentField() const {
   return SwTable::Accessor<Table>(swTable_.get()).hwIndexForDependentField(this);
}

template <class Table>
void TableEntryHandle<Table>::handleIndexSuggestions(const IndexSet& suggestions) const {
   if (swTable_) {
      SwTable::Accessor<Table>(swTable_.get()).handleIndexSuggestions(this, suggestions);
   }
}

template <class Table>
void TableEntryHandle<Table>::pendingEntryEnq(const Entry& entry) {
   const Position position = pending_.enq(entry);
   notify("pendingEntry", Fwk::ChangeKey{&Detail::pendingPositionType(), position});
}

template <class Table>
auto TableEntryHandle<Table>::pendingEntryDeq() -> Entry {
   if (pending_.empty()) {
      return Entry();
   }
   Position position = 0;
   Entry entry = pending_.deq(position);
   notify("pendingEntry", Fwk::ChangeKey{&Detail::pendingPositionType(), position});
   return entry;
}

template <class Table>
auto TableEntryHandle<Table>::pendingEntryFront() const -> Entry {
   return pending_.empty() ? Entry() : pending_.frontEntry();
}

template <class Table>
auto TableEntryHandle<Table>::pendingEntryBack() const -> Entry {
   return pending_.empty() ? Entry() : pending_.backEntry();
}

template <class Table>
auto TableEntryHandle<Table>::pendingEntry(Position position) const -> Entry {
   const Entry* entry = pending_.at(position);
   return entry ? *entry : Entry();
}

template <class Table>
bool TableEntryHandle<Table>::pendingEntryHas(Position position) const {
   return pending_.at(position) != nullptr;
}

template <class Table>
void TableEntryHandle<Table>::pendingEntryDelAll() {
   if (!publisher().hasObservers()) {
      pending_.clear();
      return;
   }
   while (!pending_.empty()) {
      pendingEntryDeq();
   }
}

}  // namespace Asic
