// The ingress L3 incoming-interface table consulted by decapsulated tunnel packets.
//
// The table model: the entry record, the table entity with its four keyed collections, entry
// handles with their pending-entry queues, unresolved and synced entries, and the Util through
// which the engine reaches the chip. Behaviour lives in the generic engine
// (Asic::SwTable::Accessor, AsicSwTable/); the table's operations build an accessor over the table
// and call the engine operation of the same name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/EntryBase.h"
#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/HwTable.h"
#include "Asic/PluginLoader.h"
#include "Asic/Recovery.h"
#include "Asic/SwUnknownIndexTable.h"
#include "Asic/WriteResponseSm.h"
#include "AsicSwTable/TableTraits.h"
#include "Fwk/NodePool.h"
#include "Fwk/ProbedTable.h"
#include "Fwk/TextForm.h"
#include "Fwk/Trace.h"
#include "TalvikL3Common/L3TunnelIntfKey.h"
#include "TalvikL3Decap/PendingEntryQueue.h"

namespace Vosk {
class MountGroup;
class EntityManager;
}  // namespace Vosk

namespace TalvikL3Decap {

using TalvikL3Common::L3TunnelIntfKey;

struct VekSyncedEntry;

class IngL3IifTable : public Asic::SwUnknownIndexTable {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable";
   static constexpr std::string_view kShortName = "IngL3IifTable";
   using Key = L3TunnelIntfKey;

   class Entry;
   class EntryHandle;
   class UnresolvedEntry;
   class Util;
   class UtilLoader;

   // Type-level constants of the table.
   static constexpr std::uint64_t setResolvedEntryBlockMetaDataDefinedByUser = 0;
   static constexpr std::uint64_t setResolvedEntryMetaDataDefinedByUser = 0;
   static constexpr bool readAccess = false;
   static constexpr bool writeAccess = true;

   // A table without hardware table, Util or allocator (SwTable::setUp gives it those), in
   // configuration replay until doInitComplete. Made through ingL3IifTableFactory().
   IngL3IifTable();
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<IngL3IifTable>(); }

   // --- entry handle factory: makes the key's handle for the collection (entryHandleIs) ---
   static Fwk::Ptr<EntryHandle> entryHandleFactory(L3TunnelIntfKey key, IngL3IifTable* table);

   // --- collections: exact create, replace, delete and notification rules in the .cpp ---
   // Unresolved entries: values waiting for their needed entry, by key. `Is` returns the key's
   // member, created when absent; `Del` removes and returns it (null when none); the lookup
   // gives null when absent.
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryIs(L3TunnelIntfKey key);
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryDel(L3TunnelIntfKey key);
   // Takes back an unresolved entry that the caller made with unresolvedEntryIs and no longer
   // needs: when nothing else holds, observes or names it (its value resolved at once), the next
   // unresolvedEntryIs reuses it instead of making one. Otherwise it is released as usual.
   void unresolvedEntryRecycle(Fwk::Ptr<UnresolvedEntry> member);
   void unresolvedEntryDelAll();
   Fwk::Ptr<UnresolvedEntry> unresolvedEntry(L3TunnelIntfKey key) const;
   std::uint32_t unresolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(unresolvedEntry_.size());
   }

   // Entry handles by key. The collection holds a real reference to each handle; for a
   // reference-only handle that hold does not count as a use (Fwk/Ptr.h, AsicSwTable/README.md).
   // The key's handle, created when absent. Fails with Fwk::ReinstantiationError when the key's
   // handle belongs to another table.
   Fwk::Ptr<EntryHandle> entryHandleIs(L3TunnelIntfKey key, IngL3IifTable* table);
   // Removes and returns the key's handle (null when none); the collection's hold leaves with it.
   Fwk::Ptr<EntryHandle> entryHandleDel(L3TunnelIntfKey key);
   void entryHandleDelAll();
   // The key's handle, or null.
   Fwk::Ptr<EntryHandle> entryHandle(L3TunnelIntfKey key) const;
   bool entryHandleHas(L3TunnelIntfKey key) const { return handleSlot(key) != nullptr; }
   // Number of entry handles.
   std::uint32_t entrys() const noexcept { return static_cast<std::uint32_t>(entryHandle_.size()); }

   // Resolved entries: the value each key's row gets, an empty optional for an empty row (the
   // first step of a deletion). Stores the value and, when it changed by the entry's equality,
   // runs handleEntry (which programs, reconciles or empties the row) before publishing and
   // returning. The engine calls it through its setResolvedEntry.
   void resolvedEntryIs(L3TunnelIntfKey key, const std::optional<Entry>& value);
   // Removes the key's resolved entry and runs handleEntry, which deletes the row and releases
   // the index; returns what was stored.
   std::optional<Entry> resolvedEntryDel(L3TunnelIntfKey key);
   void resolvedEntryDelAll();
   // The key's resolved entry: null when absent, else a pointer to the stored optional.
   const std::optional<Entry>* resolvedEntry(L3TunnelIntfKey key) const;
   bool resolvedEntryHas(L3TunnelIntfKey key) const { return resolvedEntry(key) != nullptr; }
   std::uint32_t resolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(resolvedEntry_.size());
   }

   // Synced entries: rows read back from hardware after a restart, by index. The Util's
   // syncEntries records each row with syncedEntryIs (a later call for the index replaces it).
   void syncedEntryIs(Asic::Index index, const Entry& entry);
   // Removes and returns the row read back at the index (a default Entry when none).
   Entry syncedEntryDel(Asic::Index index);
   void syncedEntryDelAll();
   // The row read back at the index: a default Entry, or nothing, when there is none.
   Entry syncedEntry(Asic::Index index) const;
   std::optional<Entry> syncedEntryGet(Asic::Index index) const;
   bool syncedEntryHas(Asic::Index index) const { return syncedRow(index) != nullptr; }
   std::uint32_t syncedEntrys() const noexcept { return syncedEntryCount_; }
   class SyncedEntryIterator;
   // A walk in ascending index order from the first member whose index is not below `from`.
   SyncedEntryIterator syncedEntryIter(Asic::Index from = 0) const;
   // Removes the walk's current member; the walk goes on from it.
   Entry syncedEntryDel(const SyncedEntryIterator& it);

   // The index allocator: null until doCreateAllocator and after cleanup.
   const Fwk::Ptr<Asic::FirstFreeIndexAllocator>& indexAllocator() const noexcept {
      return indexAllocator_;
   }
   // Installs an allocator and publishes the change.
   void indexAllocatorIs(const Fwk::Ptr<Asic::FirstFreeIndexAllocator>& allocator);
   // Installs without publishing (the engine's own-allocator path).
   void indexAllocatorSet(Fwk::Ptr<Asic::FirstFreeIndexAllocator> allocator) noexcept {
      indexAllocator_ = std::move(allocator);
   }

   // The write-response state machine through which a chip plug-in delivers the hardware's
   // acknowledgements: null until doInitComplete (of a table with a hardware table).
   const Fwk::Ptr<Asic::WriteResponseSm>& writeResponseSm() const noexcept {
      return writeResponseSm_;
   }
   // Creates it for `swTable` with notification on (kept when it already serves that table).
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSmIs(Asic::SwTable* swTable);
   // Removes it with notification off and returns it (null when none).
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSmDel();

   // The Util from the chip plug-in (SwTable::setUp), or null: the table then touches no
   // hardware.
   const Util* util() const noexcept;

   // --- client operations ---
   // All run synchronously: resolution, processing, programming and the Util's hardware calls
   // happen inside them (see AsicSwTable/SwTableAccessor.h).
   //
   // References `entry` at `key`: it lives while clients hold the returned handle (or while it
   // is committed). The key's current value again returns the key's handle and writes nothing.
   // Never null. The handle's states follow the entry: unresolved while it waits for its needed
   // entry, inProgress once written, success once hardware acknowledged the write
   // (failedNeededEntry, hwIndexExhausted when it cannot be written).
   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> entryRef(const L3TunnelIntfKey& key,
                                                           const Entry& entry);
   // Commits `entry` at `key`: the table keeps it until entryRemove, whether or not clients hold
   // the handle. A different value replaces the key's value and rewrites its row. Never null.
   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> entryCommit(const L3TunnelIntfKey& key,
                                                              const Entry& entry);
   // Withdraws the commitment: the entry becomes reference-only and goes when its last client
   // reference goes (here, if none is left). A row in hardware then goes in two steps: written
   // empty, and deleted when hardware acknowledges the empty row (the delete dance). A key
   // without a committed entry is left as it is. Never throws.
   void entryRemove(L3TunnelIntfKey key);
   // Processes a change of the key's resolved entry; the resolved-entry mutators run it.
   void handleEntry(L3TunnelIntfKey key);
   // The key's newest value: its unresolved entry, else its resolved one, else a default Entry.
   Entry entry(const L3TunnelIntfKey& key) const;
   // True when the key has an entry that is not being deleted.
   bool entryHas(const L3TunnelIntfKey& key) const;
   // True when the key's row is written or being written (inProgress, indexReconciled, success).
   bool entryInHwTable(const L3TunnelIntfKey& key) const;
   // A walk over every entry: the unresolved ones first, then the resolved ones with a value;
   // from a key, a walk positioned at that key's entry (done when it has none).
   using EntryIteratorConst = Asic::SwTable::EntryIteratorConst<IngL3IifTable>;
   EntryIteratorConst entryIteratorConst() const;
   EntryIteratorConst entryIteratorConst(L3TunnelIntfKey key) const;
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
   static void doRecoverHwTable(const Fwk::Ptr<Asic::HwTableRecoverGroup>& rg,
                                Asic::UnitId unitId, const Fwk::Ptr<Vosk::EntityManager>& em,
                                const Asic::ChipInfo& chipInfo);
   static void doMountHwTableMountInfo(const Fwk::Ptr<Vosk::MountGroup>& mg);
   static void doMountHwTableRecoveryStatus(const Fwk::Ptr<Vosk::MountGroup>& mg);
   // During the replay, before the key's entry is replayed: binds the key to the row it used
   // before the restart (as the agent remembered it, e.g. from
   // hwIndexOnlyForCrossAgentCommunication), mapped through Util::dependentFieldValueToHwIndex.
   // Fatal after the replay, for a key that already has a handle, or for a row another key holds.
   void bindKeyToIndex(L3TunnelIntfKey key, Asic::Index hwIndex);
   // The index other tables' dependent fields (and other agents) use for the key's entry;
   // invalid when the key has no handle or no index.
   Asic::Index hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey key) const;
   // The key of this table bound to the row, if any. A chip plug-in uses it to name the key a
   // write's acknowledgement is for.
   std::optional<L3TunnelIntfKey> swKeyFromHwIndex(Asic::Index hwIndex) const;

   // --- operations the platform calls ---
   // Creates the allocator (doInitAllocator) and counts the indices it already has in use on the
   // hardware table. SwTable::setUp calls it.
   void doCreateAllocator() override;
   // The user file's choice of allocator: an own one when the chip profile's
   // L3NextHopAttributes give tunnel interfaces an index space of their own, else the one shared
   // with the L3 interface table; sized to numEntries(). Fatal without those attributes.
   void doInitAllocator();
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
   // The handle of the L3TunnelIntfKey at `key`, or null (the write-response path).
   Fwk::Ptr<Asic::SwTable::EntryHandle> getEntryHandle(const void* key) const override;

   // The table's "SwTableStat" trace handle (statistics line of the purge).
   static const Fwk::Trace::Handle& statisticsTrace();

   // Iteration over the keyed collections (engine and tests). The handles' walk yields each
   // handle (its key is the handle's); inserting or removing a handle ends a walk.
   const auto& unresolvedEntryMap() const noexcept { return unresolvedEntry_; }
   const auto& entryHandleMap() const noexcept { return entryHandle_; }
   const auto& resolvedEntryMap() const noexcept { return resolvedEntry_; }

  protected:
   ~IngL3IifTable() override;

  private:
   template <class, class>
   friend class Asic::SwTable::Accessor;

   // One operation looks the same key up many times: the last key looked up is remembered with
   // where its handle and its resolved entry are (null: absent; unknown until looked up).
   // Pointers to unordered_map elements survive rehashing, a handle's slot only until the next
   // insert or erase; every mutator remembers the key it changes, which forgets any other key.
   template <class T>
   struct Remembered {
      bool known = false;
      const T* at = nullptr;
   };
   struct LookupCache {
      L3TunnelIntfKey key;
      Remembered<Fwk::Ptr<EntryHandle>> handle;
      Remembered<std::optional<Entry>> resolved;
   };
   // A row read back, or a gap it left (the collection's order is kept without moving rows).
   using SyncedRows = std::vector<VekSyncedEntry>;
   // The position of the first row or gap whose index is not below (`after`: is above) `index`.
   std::size_t syncedRowPosition(Asic::Index index, bool after = false) const;
   // The row read back at the index, or null.
   const VekSyncedEntry* syncedRow(Asic::Index index) const;
   VekSyncedEntry* syncedRow(Asic::Index index);
   // Closes the gaps once they outnumber the rows eight to one, which keeps a walk's cost
   // amortised constant per row. Until then positions keep following indices, so that rows read
   // back without holes are found without a search (syncedRowPosition).
   void syncedGapsCompact();

   // Inserts the key's new member, made of the spare node and entity when there are.
   const Fwk::Ptr<UnresolvedEntry>& unresolvedEntryAdd(L3TunnelIntfKey key);
   // The cache, emptied first when it remembers another key.
   LookupCache& lookupCacheFor(L3TunnelIntfKey key) const;
   // The key's member of entryHandle_, or null.
   const Fwk::Ptr<EntryHandle>* handleSlot(L3TunnelIntfKey key) const;

   // The handles by key, a slot each: the handle knows its key, so a slot needs no copy of it.
   struct HandleSlots {
      using Slot = Fwk::Ptr<EntryHandle>;
      using Key = L3TunnelIntfKey;
      static bool occupied(const Slot& slot) noexcept { return slot != nullptr; }
      static std::uint64_t hash(Key key) noexcept { return Fwk::probeMix(key.value()); }
      static std::uint64_t hashOf(const Slot& slot) noexcept;
      static bool holds(const Slot& slot, Key key, std::uint64_t hash) noexcept;
   };

   Fwk::Ptr<Asic::FirstFreeIndexAllocator> indexAllocator_;
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSm_;
   std::unordered_map<L3TunnelIntfKey, Fwk::Ptr<UnresolvedEntry>> unresolvedEntry_;
   // Most values resolve in the call that made them: a node and an entity kept for reuse.
   decltype(unresolvedEntry_)::node_type spareUnresolvedNode_;
   Fwk::Ptr<UnresolvedEntry> spareUnresolvedEntry_;
   Fwk::ProbedTable<HandleSlots> entryHandle_;
   // Resolved entries' nodes come from a pool of the table's: one per entry, many entries.
   using ResolvedEntries =
       std::unordered_map<L3TunnelIntfKey, std::optional<Entry>, std::hash<L3TunnelIntfKey>,
                          std::equal_to<L3TunnelIntfKey>,
                          Fwk::PoolAllocator<std::pair<const L3TunnelIntfKey, std::optional<Entry>>>>;
   Fwk::NodePool resolvedEntryNodes_;
   ResolvedEntries resolvedEntry_;  // over resolvedEntryNodes_
   SyncedRows syncedEntry_;                // by ascending index
   std::uint32_t syncedEntryCount_ = 0;    // rows, gaps not counted
   std::uint64_t syncedEntryVersion_ = 0;  // bumped by every membership change
   mutable LookupCache lookup_;
};

// A new table, held by the returned pointer.
Fwk::Ptr<IngL3IifTable> ingL3IifTableFactory();

// --- the entry record ---

class IngL3IifTable::Entry : public Asic::EntryBase {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Entry";
   static constexpr bool getBlockSizeDefinedByUser = false;
   static constexpr std::uint64_t numDependentFields = 1;

   // The default entry: no profile handle, every field zero or false.
   Entry() noexcept : EntryBase(sizeof(Entry)) {}
   // A value that needs the profile entry `handle`: it waits until the handle has a hardware
   // index, which resolution then puts in l3IifProfileIndex. With a null handle the value needs
   // nothing and `profileIndex` is written as given.
   Entry(Fwk::Ptr<const Asic::SwTableBase::EntryHandle> handle, std::uint8_t profileIndex,
         bool ipv4UcEnable, bool ipv6UcEnable, bool trustDscp, std::uint32_t vrf) noexcept;
   Entry(const Entry&) = default;
   Entry& operator=(const Entry&) = default;
   Entry(Entry&& o) noexcept;
   Entry& operator=(Entry&& o) noexcept;
   ~Entry() override = default;
   // Parses the text form; see strepToValue for whole strings.
   explicit Entry(Fwk::CharRange& text);

   // Equal when they need the same profile handle (not its index) and have the same flags and
   // VRF: a new index of the same profile alone is not a new value.
   static bool isEq(const void* a, const void* b) noexcept;
   bool operator==(const Entry& o) const noexcept { return isEq(this, &o); }
   // Orders by the profile handle's address, then the flags, then the VRF.
   std::strong_ordering operator<=>(const Entry& o) const noexcept;

   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> l3IifProfileIndexHandle;
   std::uint8_t l3IifProfileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;
};

// The entry's text form, TalvikL3Decap::IngL3IifTable::Entry{l3IifProfileIndexHandle=..., ...}
// (Fwk/TextForm.h), which Entry(Fwk::CharRange&) and strepToValue read back.
std::ostream& operator<<(std::ostream& os, const IngL3IifTable::Entry& entry);
std::string toText(const IngL3IifTable::Entry& entry);

// Parses a whole string into a value; fails (Fwk::ParseError) when text remains after it.
template <class T>
T strepToValue(const std::string& text);
template <>
IngL3IifTable::Entry strepToValue<IngL3IifTable::Entry>(const std::string& text);

// --- entry handle ---

class IngL3IifTable::EntryHandle : public Asic::SwTable::EntryHandle {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::EntryHandle";
   using Position = PendingEntryQueue<Entry>::Position;

   // Made by the table's collection; clients get handles from entryRef and entryCommit.
   EntryHandle(L3TunnelIntfKey key, IngL3IifTable* table);
   // Handles, one per key of every table, come from one pool (Fwk/NodePool.h).
   static void* operator new(std::size_t size);
   static void operator delete(void* handle, std::size_t size) noexcept;
   // That pool, for its statistics.
   static const Fwk::SharedNodePool& pool() noexcept;
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<EntryHandle>(); }
   // Handles alive in the process, of every table instance (leak checks). Handles live on their
   // table's thread, so a plain count does.
   static std::size_t liveHandles() noexcept { return live_; }
   std::string entityText() const override;

   L3TunnelIntfKey key() const noexcept { return key_; }
   // The handle's table; null once the handle is disconnected (removed, or the table cleaned
   // up). The handle holds a reference to its table while connected.
   IngL3IifTable* swTable() const noexcept { return swTable_.get(); }
   void swTableIs(IngL3IifTable* table);

   // The engine's clean-up of this handle, as when its last client lets go (lastUserGone).
   void cleanup();

   // --- pending-entry queue: values whose replacement hardware has not confirmed yet ---
   // Appends a value (published by its position).
   void pendingEntryEnq(const Entry& entry);
   // Removes and returns the oldest value; the reads give a default Entry when there is none.
   Entry pendingEntryDeq();
   Entry pendingEntryFront() const;
   Entry pendingEntryBack() const;
   Entry pendingEntry(Position position) const;
   bool pendingEntryHas(Position position) const;
   void pendingEntryDelAll();
   std::uint32_t pendingEntrys() const noexcept { return pending_.size(); }
   const PendingEntryQueue<Entry>& pendingQueue() const noexcept { return pending_; }

   // The index other tables' dependent fields put in: the Util's answer, else the handle's own.
   Asic::Index hwIndexForDependentField() const override;
   // During the replay, rows a dependent table suggests for this key: kept in the key's index
   // helper and tried against the rows read back.
   void handleIndexSuggestions(const Asic::IndexSet& suggestions) const override;

  protected:
   ~EntryHandle() override;
   void lastUserGone() override;
   void handleEntryState() override;
   void handleResolvedEntryState() override;

  private:
   L3TunnelIntfKey key_;
   Fwk::Ptr<IngL3IifTable> swTable_;
   PendingEntryQueue<Entry> pending_;
   inline static std::size_t live_ = 0;
};

inline std::uint64_t IngL3IifTable::HandleSlots::hashOf(const Slot& slot) noexcept {
   return hash(slot->key());
}
inline bool IngL3IifTable::HandleSlots::holds(const Slot& slot, Key key, std::uint64_t) noexcept {
   return slot->key() == key;
}

// --- unresolved entry ---

class IngL3IifTable::UnresolvedEntry : public Asic::SwTable::UnresolvedEntry {
  public:
   static constexpr std::string_view kTypeName =
       "TalvikL3Decap::IngL3IifTable::UnresolvedEntry";

   // Made by the table's collection (unresolvedEntryIs).
   UnresolvedEntry(L3TunnelIntfKey key, IngL3IifTable* table);
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<UnresolvedEntry>();
   }
   L3TunnelIntfKey key() const noexcept { return key_; }
   IngL3IifTable* swTable() const noexcept {
      return static_cast<IngL3IifTable*>(swTableBase());
   }

   // Its needed entry is ready: the value becomes the key's resolved entry.
   void doResolve() override;
   // Its needed entry failed: the key's handle goes to failedNeededEntry.
   void markFailedNeededEntry() override;

   // The value waiting.
   Entry entry;

  private:
   friend class IngL3IifTable;  // re-keys a recycled entry
   L3TunnelIntfKey key_;
};

// --- synced entry: a row read back from hardware ---

// A row read back from hardware, its index and entry. The table keeps them by value in index
// order; removing a row leaves a gap (no entry, its references released) in its place until
// syncedGapsCompact closes the gaps.
struct VekSyncedEntry {
   Asic::Index index;
   bool present;  // false: a gap
   IngL3IifTable::Entry entry;
};

// A walk over synced entries in ascending index order. It holds a copy of its current member, so
// the member stays readable when removed; when the collection changed since the walk last moved,
// it finds the successor by index instead of by position, so members may be removed while
// walking.
class IngL3IifTable::SyncedEntryIterator {
  public:
   bool done() const noexcept { return done_; }
   // The current member's index and row; only while not done.
   Asic::Index index() const noexcept { return index_; }
   const Entry& entry() const noexcept { return entry_; }
   // To the member with the next higher index.
   void advance();

  private:
   friend class IngL3IifTable;
   SyncedEntryIterator(const IngL3IifTable* table, Asic::Index from);
   // Takes the first member at or after position_ as the current one, or ends the walk.
   void settle();
   const IngL3IifTable* table_;
   std::size_t position_;
   std::uint64_t version_;
   Asic::Index index_ = 0;
   Entry entry_;
   bool done_ = false;
};

// --- utility object: the chip-specific plug-in implements the pure operations ---

class IngL3IifTable::Util : public Asic::SwTable::Util {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Util";
   // `name` names the chip-specific Util (its feature name).
   explicit Util(const std::string& name) : Asic::SwTable::Util(name) {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Util>(); }

   // Every operation runs on the table's thread, inside the engine operation that needs it; none
   // may call back into the table's client operations. Rows, acknowledgements and counters a
   // Util keeps change in const operations, so they are `mutable`.
   //
   // Lowest and highest hardware index of the table.
   virtual std::uint32_t minIndex() const = 0;
   virtual std::uint32_t maxIndex() const = 0;
   // The hardware index a dependent-field value designates; here the value itself.
   virtual Asic::Index dependentFieldValueToHwIndex(Asic::Index dependentField) const;
   // Writes the row at `key` (an empty entry writes an empty row). The hardware's answer comes
   // back later through the table's write-response state machine.
   virtual void hwTableEntryIs(IngL3IifTable* swTable, Asic::Index key,
                               const std::optional<Entry>& entry) const = 0;
   // Deletes the row at `key`.
   virtual void hwTableEntryDel(IngL3IifTable* swTable, Asic::Index key) const = 0;
   // Reports a change of use of the index to the hardware table's index-user tracker.
   virtual void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index key,
                                             Asic::IndexUserTracker::OpType updateOperation)
       const = 0;
   // True when the row hardware holds at `key` (as read back) matches `resolvedEntry`.
   virtual bool compareHwEntries(const IngL3IifTable* swTable, Asic::Index key,
                                 const Entry& resolvedEntry) const = 0;
   // The row hardware holds at `key` now, empty for a free row. The engine never calls it; tools
   // use it to show and plan.
   virtual std::optional<Entry> hwTableEntry(const IngL3IifTable* swTable,
                                             Asic::Index key) const = 0;
   // Reads every valid row back and records each with the table's syncedEntryIs.
   virtual void syncEntries(const Asic::HwTable* hwTable,
                            const Fwk::Ptr<Asic::SwTable>& table) const = 0;
   // The index a dependent field of another table puts in to refer to `hdl`.
   virtual Asic::Index hwIndexForDependentField(
       const Fwk::Ptr<const Asic::SwTableBase::EntryHandle>& hdl) const;

   // The handle's own hardware index.
   Asic::Index getHwIndex(const Fwk::Ptr<const Asic::SwTableBase::EntryHandle>& hdl) const;

  protected:
   ~Util() override { underDestructionIs(); }
};

// Loads the chip-specific plug-in that supplies the table's Util.
class IngL3IifTable::UtilLoader : public Asic::LoaderSingleton {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::UtilLoader";
   static constexpr std::string_view kSingletonName =
       "TalvikL3Decap::IngL3IifTable::UtilLoader";

   explicit UtilLoader(const std::string& name) : LoaderSingleton(name) {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<UtilLoader>(); }
   // The plug-in's file: libAsicFeature-TalvikL3Decap-IngL3IifTable.so (Asic/PluginLoader.h).
   std::string prefixPath() const override { return "AsicFeature"; }
   std::string suffixPath() const override { return "TalvikL3Decap::IngL3IifTable"; }

   // The process's loader, created and run once (thread-safe) on first use. The library uses it
   // when it is loaded, so the plug-in is loaded, and L3DECAP_PLUGIN_PATH read, before main().
   static Fwk::Ptr<UtilLoader> loaderSingletonIs();
};

}  // namespace TalvikL3Decap

// All the engine knows of the table's key and entry.
template <>
struct Asic::TableTraits<TalvikL3Decap::IngL3IifTable>
    : Asic::KeyTraits<TalvikL3Common::L3TunnelIntfKey>,
      Asic::NeededEntryField<&TalvikL3Decap::IngL3IifTable::Entry::l3IifProfileIndexHandle,
                             &TalvikL3Decap::IngL3IifTable::Entry::l3IifProfileIndex> {};

#include "AsicSwTable/SwTableAccessor.h"

// The engine is instantiated once, in the table's translation unit.
extern template class Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::SwTable::EntryIteratorConst<TalvikL3Decap::IngL3IifTable>;
