// The definitions of the generic table model (TableModel.h, TableEntryHandle.h): construction,
// teardown and the operations, each of which builds the engine over the table; the handles' and
// the collections' in the two files included here. Included, with the engine
// (SwTableAccessorImpl.h), by a table's own translation unit, which instantiates both.
#pragma once

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/TableCollectionsImpl.h"
#include "AsicSwTable/TableEntryHandleImpl.h"
#include "AsicSwTable/TableModel.h"
#include "AsicSwTable/Tracing.h"

namespace Asic {

// ===== Table: construction, destruction =====

template <class Table>
TableModel<Table>::TableModel()
    : SwUnknownIndexTable(""),
      resolvedEntry_(typename ResolvedEntries::allocator_type(&resolvedEntryNodes_)) {
   hwResponseNeededIs(true);
}

template <class Table>
TableModel<Table>::~TableModel() {
   FWK_ASSERT(tornDown_, "the table's destructor runs tearDown() first");
}

template <class Table>
void TableModel<Table>::tearDown() {
   underDestructionIs();
   SwTable::Accessor<Table>(self()).cleanup();
   writeResponseSmDel();
   unresolvedEntryDelAll();
   entryHandleDelAll();
   // What remains goes without notifications and without processing.
   syncedEntry_.clear();
   resolvedEntry_.clear();
   entryHandle_.clear();
   unresolvedEntry_.clear();
   lookup_.clear();
   writeResponseSm_ = nullptr;
   indexAllocator_ = nullptr;
   tornDown_ = true;
}

template <class Table>
auto TableModel<Table>::entryHandleFactory(Key key, Table* table) -> Fwk::Ptr<EntryHandle> {
   return Fwk::make<EntryHandle>(key, table);
}

// ===== Table operations: each builds the engine over this table =====

template <class Table>
auto TableModel<Table>::entryRef(const Key& key, const Entry& entry) -> HandlePtr {
   return SwTable::Accessor<Table>(self()).entryRef(key, entry);
}

template <class Table>
auto TableModel<Table>::entryCommit(const Key& key, const Entry& entry) -> HandlePtr {
   return SwTable::Accessor<Table>(self()).entryCommit(key, entry);
}

template <class Table>
void TableModel<Table>::entryRemove(Key key) {
   SwTable::Accessor<Table>(self()).entryRemove(key);
}

template <class Table>
void TableModel<Table>::handleEntry(Key key) {
   SwTable::Accessor<Table>(self()).handleEntry(key);
}

template <class Table>
auto TableModel<Table>::entry(const Key& key) const -> Entry {
   return SwTable::Accessor<const Table>(self()).entry(key);
}

template <class Table>
bool TableModel<Table>::entryHas(const Key& key) const {
   return SwTable::Accessor<const Table>(self()).entryHas(key);
}

template <class Table>
bool TableModel<Table>::entryInHwTable(const Key& key) const {
   return SwTable::Accessor<const Table>(self()).entryInHwTable(key);
}

template <class Table>
auto TableModel<Table>::entryIteratorConst() const -> EntryIteratorConst {
   return EntryIteratorConst(self());
}

template <class Table>
auto TableModel<Table>::entryIteratorConst(Key key) const -> EntryIteratorConst {
   return EntryIteratorConst(self(), key);
}

template <class Table>
void TableModel<Table>::entryRemoveAll() {
   SwTable::Accessor<Table>(self()).entryRemoveAll();
}

template <class Table>
void TableModel<Table>::cleanup() {
   SwTable::Accessor<Table>(self()).cleanup();
}

template <class Table>
void TableModel<Table>::doRecoverHwTable(const Fwk::Ptr<HwTableRecoverGroup>& rg, UnitId unitId,
                                         const Fwk::Ptr<Vosk::EntityManager>& em,
                                         const ChipInfo& chipInfo) {
   SwTable::Util::doRecoverHwTable(Fwk::typeOf<Table>(), rg, unitId, em, chipInfo, "");
}

template <class Table>
void TableModel<Table>::doMountHwTableMountInfo(const Fwk::Ptr<Vosk::MountGroup>& mg) {
   SwTable::Util::doMountHwTableMountInfo(Fwk::typeOf<typename Table::Util>(), mg, "");
}

template <class Table>
void TableModel<Table>::doMountHwTableRecoveryStatus(const Fwk::Ptr<Vosk::MountGroup>& mg) {
   SwTable::Util::doMountHwTableRecoveryStatus(Fwk::typeOf<typename Table::Util>(), mg, "");
}

template <class Table>
void TableModel<Table>::bindKeyToIndex(Key key, Index hwIndex) {
   SwTable::Accessor<Table>(self()).bindKeyToIndex(key, hwIndex);
}

template <class Table>
Index TableModel<Table>::hwIndexOnlyForCrossAgentCommunication(Key key) const {
   const Fwk::Ptr<EntryHandle> handle = entryHandle(key);
   return handle ? getHwIndexForDependentField(handle) : kInvalidIndex;
}

template <class Table>
auto TableModel<Table>::swKeyFromHwIndex(Index hwIndex) const -> std::optional<Key> {
   return TableTraits<Table>::keyAt(*indexAllocator_, hwIndex);
}

template <class Table>
void TableModel<Table>::doCreateAllocator() {
   SwTable::Accessor<Table>(self()).doCreateAllocator();
}

template <class Table>
void TableModel<Table>::doInitComplete() {
   SwTable::Accessor<Table>(self()).doInitComplete();
}

template <class Table>
void TableModel<Table>::syncEntries() {
   SwTable::Accessor<Table>(self()).syncEntries();
   syncedEntry_.shrinkToFit();
}

template <class Table>
void TableModel<Table>::purgeStaleEntries() {
   SwTable::Accessor<Table>(self()).purgeStaleEntries();
}

template <class Table>
Fwk::Ptr<SwTable::EntryHandle> TableModel<Table>::getEntryHandle(const void* key) const {
   return entryHandle(*static_cast<const Key*>(key));
}

template <class Table>
const Fwk::Trace::Handle& TableModel<Table>::statisticsTrace() {
   return Detail::statisticsTraceHandle();
}

}  // namespace Asic
