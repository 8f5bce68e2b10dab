// The generic table model: what every table driven by the engine holds and offers, over the key
// and entry of its traits (TableTraits.h). A concrete table derives from TableModel<Table> and
// adds its names, its Util and its choice of allocator (docs/ADDING_A_TABLE.md):
//
//   - four keyed collections with their exact create, replace, delete and notification rules:
//     unresolved entries, entry handles, resolved entries and synced entries (rows read back);
//   - two attributes: the index allocator and the write-response state machine;
//   - the public operations, each of which builds the engine over the table and calls the engine
//     operation of the same name (AsicSwTable/SwTableAccessor.h says what each may call).
//
// Everything runs on the table's owning thread (docs/ARCHITECTURE.md, "Threads").
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/HwTable.h"
#include "Asic/Recovery.h"
#include "Asic/SwUnknownIndexTable.h"
#include "Asic/WriteResponseSm.h"
#include "AsicSwTable/LookupCache.h"
#include "AsicSwTable/SyncedRows.h"
#include "AsicSwTable/TableEntryHandle.h"
#include "AsicSwTable/TableTraits.h"
#include "Fwk/NodePool.h"
#include "Fwk/ProbedTable.h"
#include "Fwk/Trace.h"

namespace Asic {

template <class Table>
class TableModel;

// A value waiting for the entry it needs; made by the table's collection (unresolvedEntryIs).
template <class Table>
class TableUnresolvedEntry : public SwTable::UnresolvedEntry {
 public:
   using Key = typename TableTraits<Table>::Key;
   using Entry = typename TableTraits<Table>::Entry;
   static constexpr std::string_view kTypeName = TableTraits<Table>::kUnresolvedEntryTypeName;

   TableUnresolvedEntry(Key key, Table* table);
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<TableUnresolvedEntry>();
   }
   Key key() const noexcept { return key_; }
   Table* swTable() const noexcept { return static_cast<Table*>(swTableBase()); }

   // Its needed entry is ready: the value becomes the key's resolved entry.
   void doResolve() override;
   // Its needed entry failed: the key's handle goes to failedNeededEntry.
   void markFailedNeededEntry() override;

   // The value waiting.
   Entry entry;

 private:
   friend class TableModel<Table>;  // re-keys a recycled entry
   Key key_;
};

template <class Table>
class TableModel : public SwUnknownIndexTable {
 public:
   using Key = typename TableTraits<Table>::Key;
   using Entry = typename TableTraits<Table>::Entry;
   using EntryHandle = TableEntryHandle<Table>;
   using UnresolvedEntry = TableUnresolvedEntry<Table>;
   using SyncedEntryIterator = typename SyncedRows<Entry>::Iterator;
   using EntryIteratorConst = SwTable::EntryIteratorConst<Table>;
   using HandlePtr = Fwk::Ptr<const SwTableBase::EntryHandle>;

   // --- entry handle factory: makes the key's handle for the collection (entryHandleIs) ---
   static Fwk::Ptr<EntryHandle> entryHandleFactory(Key key, Table* table);

   // --- collections ---
   // Unresolved entries: values waiting for their needed entry, by key. `Is` returns the key's
   // member, created when absent (published); `Del` removes and returns it (null when none;
   // published when there was one); the lookup gives null when absent.
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryIs(Key key);
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryDel(Key key);
   // Takes back an unresolved entry that the caller made with unresolvedEntryIs and no longer
   // needs: when nothing else holds, observes or names it (its value resolved at once), the next
   // unresolvedEntryIs reuses it instead of making one. Otherwise it is released as usual.
   void unresolvedEntryRecycle(Fwk::Ptr<UnresolvedEntry> member);
   void unresolvedEntryDelAll();
   Fwk::Ptr<UnresolvedEntry> unresolvedEntry(Key key) const;
   std::uint32_t unresolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(unresolvedEntry_.size());
   }

   // Entry handles by key. The collection holds a real reference to each handle; for a
   // reference-only handle that hold does not count as a use (Fwk/Ptr.h, AsicSwTable/README.md).
   // The key's handle, created when absent (published). Fails with Fwk::ReinstantiationError
   // when the key's handle belongs to another table.
   Fwk::Ptr<EntryHandle> entryHandleIs(Key key, Table* table);
   // Removes and returns the key's handle (null when none); the collection's hold leaves with it.
   Fwk::Ptr<EntryHandle> entryHandleDel(Key key);
   void entryHandleDelAll();
   // The key's handle, or null.
   Fwk::Ptr<EntryHandle> entryHandle(Key key) const;
   bool entryHandleHas(Key key) const { return handleSlot(key) != nullptr; }
   // Number of entry handles.
   std::uint32_t entrys() const noexcept { return static_cast<std::uint32_t>(entryHandle_.size()); }

   // Resolved entries: the value each key's row gets, an empty optional for an empty row (the
   // first step of a deletion). Stores the value and, when it changed by the entry's equality,
   // runs handleEntry (which programs, reconciles or empties the row) before publishing and
   // returning. The engine calls it through its setResolvedEntry.
   void resolvedEntryIs(Key key, const std::optional<Entry>& value);
   // Removes the key's resolved entry and runs handleEntry, which deletes the row and releases
   // the index; returns what was stored (empty when absent: nothing runs then).
   std::optional<Entry> resolvedEntryDel(Key key);
   void resolvedEntryDelAll();
   // The key's resolved entry: null when absent, else a pointer to the stored optional.
   const std::optional<Entry>* resolvedEntry(Key key) const;
   bool resolvedEntryHas(Key key) const { return resolvedEntry(key) != nullptr; }
   std::uint32_t resolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(resolvedEntry_.size());
   }

   // Synced entries: rows read back from hardware after a restart, by index. The Util's
   // syncEntries records each row with syncedEntryIs (a later call for the index replaces it
   // when it differs; published with the previous value).
   void syncedEntryIs(Index index, const Entry& entry);
   // Removes and returns the row read back at the index (a default Entry when none).
   Entry syncedEntryDel(Index index);
   // Removes every row: at once when nothing observes the table, else one at a time in
   // ascending index order.
   void syncedEntryDelAll();
   // The row read back at the index: a default Entry, or nothing, when there is none.
   Entry syncedEntry(Index index) const;
   std::optional<Entry> syncedEntryGet(Index index) const;
   bool syncedEntryHas(Index index) const { return syncedEntry_.find(index) != nullptr; }
   std::uint32_t syncedEntrys() const noexcept { return syncedEntry_.size(); }
   // A walk in ascending index order from the first member whose index is not below `from`.
   SyncedEntryIterator syncedEntryIter(Index from = 0) const { return syncedEntry_.iter(from); }
   // Removes the walk's current member; the walk goes on from it.
   Entry syncedEntryDel(const SyncedEntryIterator& it) { return syncedEntryDel(it.index()); }

   // The index allocator: null until doCreateAllocator and after cleanup.
   const Fwk::Ptr<FirstFreeIndexAllocator>& indexAllocator() const noexcept {
      return indexAllocator_;
   }
   // Installs an allocator and publishes the change.
   void indexAllocatorIs(const Fwk::Ptr<FirstFreeIndexAllocator>& allocator);
   // Installs without publishing (the engine's own-allocator path).
   void indexAllocatorSet(Fwk::Ptr<FirstFreeIndexAllocator> allocator) noexcept {
      indexAllocator_ = std::move(allocator);
   }

   // The write-response state machine through which a chip plug-in delivers the hardware's
   // acknowledgements: null until doInitComplete (of a table with a hardware table).
   const Fwk::Ptr<WriteResponseSm>& writeResponseSm() const noexcept { return writeResponseSm_; }
   // Creates it for `swTable` with notification on (kept when it already serves that table).
   Fwk::Ptr<WriteResponseSm> writeResponseSmIs(SwTable* swTable);
   // Removes it with notification off and returns it (null when none).
   Fwk::Ptr<WriteResponseSm> writeResponseSmDel();

   // --- client operations ---
   // All run synchronously: resolution, processing, programming and the Util's hardware calls
   // happen inside them (see AsicSwTable/SwTableAccessor.h).
   //
   // References `entry` at `key`: it lives while clients hold the returned handle (or while it
   // is committed). The key's current value again returns the key's handle and writes nothing.
   // Never null. The handle's states follow the entry: unresolved while it waits for its needed
   // entry, inProgress once written, success once hardware acknowledged the write
   // (failedNeededEntry, hwIndexExhausted when it cannot be written).
   HandlePtr entryRef(const Key& key, const Entry& entry);
   // Commits `entry` at `key`: the table keeps it until entryRemove, whether or not clients hold
   // the handle. A different value replaces the key's value and rewrites its row. Never null.
   HandlePtr entryCommit(const Key& key, const Entry& entry);
   // Withdraws the commitment: the entry becomes reference-only and goes when its last client
   // reference goes (here, if none is left). A row in hardware then goes in two steps: written
   // empty, and deleted when hardware acknowledges the empty row (the delete dance). A key
   // without a committed entry is left as it is. Never throws.
   void entryRemove(Key key);
   // Processes a change of the key's resolved entry; the resolved-entry mutators run it.
   void handleEntry(Key key);
   // The key's newest value: its unresolved entry, else its resolved one, else a default Entry.
   Entry entry(const Key& key) const;
   // True when the key has an entry that is not being deleted.
   bool entryHas(const Key& key) const;
   // True when the key's row is written or being written (inProgress, indexReconciled, success).
   bool entryInHwTable(const Key& key) const;
   // A walk over every entry: the unresolved ones first, then the resolved ones with a value;
   // from a key, a walk positioned at that key's entry (done when it has none).
   EntryIteratorConst entryIteratorConst() const;
   EntryIteratorConst entryIteratorConst(Key key) const;
   // entryRemove for every key, each handle released as its client would. Fatal on a restarted
   // table with a Util whose read-back rows were not purged yet (purgeStaleEntries first).
   void entryRemoveAll();
   // Teardown: disconnects the handles from the table, deletes the resolved entries (with a
   // Util, their rows too), gives a shared allocator back and deletes the index-user tracker. An
   // agent that stops and leaves its rows to its next life sets the Util to null first.
   void cleanup();

   // --- restart ---
   // The class-level recovery services of a restart; they record each request with
   // Asic::RecoveryLog (reading rows back is syncEntries' job).
   static void doRecoverHwTable(const Fwk::Ptr<HwTableRecoverGroup>& rg, UnitId unitId,
                                const Fwk::Ptr<Vosk::EntityManager>& em, const ChipInfo& chipInfo);
   static void doMountHwTableMountInfo(const Fwk::Ptr<Vosk::MountGroup>& mg);
   static void doMountHwTableRecoveryStatus(const Fwk::Ptr<Vosk::MountGroup>& mg);
   // During the replay, before the key's entry is replayed: binds the key to the row it used
   // before the restart (as the agent remembered it, e.g. from
   // hwIndexOnlyForCrossAgentCommunication), mapped through Util::dependentFieldValueToHwIndex.
   // Fatal after the replay, for a key that already has a handle, or for a row another key holds.
   void bindKeyToIndex(Key key, Index hwIndex);
   // The index other tables' dependent fields (and other agents) use for the key's entry;
   // invalid when the key has no handle or no index.
   Index hwIndexOnlyForCrossAgentCommunication(Key key) const;
   // The key of this table bound to the row, if any. A chip plug-in uses it to name the key a
   // write's acknowledgement is for.
   std::optional<Key> swKeyFromHwIndex(Index hwIndex) const;

   // --- operations the platform calls ---
   // Creates the allocator (the table's doInitAllocator) and counts the indices it already has
   // in use on the hardware table. SwTable::setUp calls it.
   void doCreateAllocator() override;
   // End of initialisation: ends the configuration replay, programs what reconciliation left
   // undecided (first the entries with index suggestions, then the others as new rows) and turns
   // write responses on (writeResponseSm).
   void doInitComplete() override;
   // Restart, before the replay: reads the rows back through the Util into the synced entries
   // and holds their indices back in the allocator until the purge. Fatal without a hardware
   // table or once entries have been resolved.
   void syncEntries() override;
   // After doInitComplete: deletes the read-back rows nobody claimed, gives back the indices of
   // keys bound but never committed, and programs the entries that found no index while rows
   // were held back.
   void purgeStaleEntries() override;
   // The handle of the Key at `key`, or null (the write-response path).
   Fwk::Ptr<SwTable::EntryHandle> getEntryHandle(const void* key) const override;

   // The "SwTableStat" trace handle (statistics line of the purge).
   static const Fwk::Trace::Handle& statisticsTrace();

   // Iteration over the keyed collections (engine and tests). The handles' walk yields each
   // handle (its key is the handle's); inserting or removing a handle ends a walk.
   const auto& unresolvedEntryMap() const noexcept { return unresolvedEntry_; }
   const auto& entryHandleMap() const noexcept { return entryHandle_; }
   const auto& resolvedEntryMap() const noexcept { return resolvedEntry_; }

 protected:
   // A table without hardware table, Util or allocator (SwTable::setUp gives it those), in
   // configuration replay until doInitComplete; its writes expect hardware responses.
   TableModel();
   // Runs only once the concrete table's destructor ran tearDown().
   ~TableModel() override;
   // The destruction of the table's contents, which runs the engine over the concrete table: the
   // first step of the concrete table's destructor. Cleans up, removes the write-response state
   // machine, the unresolved entries and the handles (published), then discards what remains
   // without notifications and without processing.
   void tearDown();

 private:
   Table* self() noexcept { return static_cast<Table*>(this); }
   const Table* self() const noexcept { return static_cast<const Table*>(this); }
   // Inserts the key's new member, made of the spare node and entity when there are.
   const Fwk::Ptr<UnresolvedEntry>& unresolvedEntryAdd(Key key);
   // The key's member of entryHandle_, or null.
   const Fwk::Ptr<EntryHandle>* handleSlot(Key key) const;

   // The handles by key, a slot each: the handle knows its key, so a slot needs no copy of it.
   struct HandleSlots {
      using Slot = Fwk::Ptr<EntryHandle>;
      using Key = TableModel::Key;
      static bool occupied(const Slot& slot) noexcept { return slot != nullptr; }
      static std::uint64_t hash(const Key& key) noexcept {
         return Fwk::probeMix(TableTraits<Table>::allocatorKey(key).bits);
      }
      static std::uint64_t hashOf(const Slot& slot) noexcept { return hash(slot->key()); }
      static bool holds(const Slot& slot, const Key& key, std::uint64_t /*hash*/) noexcept {
         return slot->key() == key;
      }
   };
   // Resolved entries' nodes come from a pool of the table's: one per entry, many entries.
   using ResolvedEntries =
       std::unordered_map<Key, std::optional<Entry>, std::hash<Key>, std::equal_to<Key>,
                          Fwk::PoolAllocator<std::pair<const Key, std::optional<Entry>>>>;

   Fwk::Ptr<FirstFreeIndexAllocator> indexAllocator_;
   Fwk::Ptr<WriteResponseSm> writeResponseSm_;
   std::unordered_map<Key, Fwk::Ptr<UnresolvedEntry>> unresolvedEntry_;
   // Most values resolve in the call that made them: a node and an entity kept for reuse.
   typename decltype(unresolvedEntry_)::node_type spareUnresolvedNode_;
   Fwk::Ptr<UnresolvedEntry> spareUnresolvedEntry_;
   Fwk::ProbedTable<HandleSlots> entryHandle_;
   Fwk::NodePool resolvedEntryNodes_;
   ResolvedEntries resolvedEntry_;  // over resolvedEntryNodes_
   SyncedRows<Entry> syncedEntry_;
   mutable LookupCache<Key, Fwk::Ptr<EntryHandle>, std::optional<Entry>> lookup_;
   bool tornDown_ = false;
};

}  // namespace Asic
