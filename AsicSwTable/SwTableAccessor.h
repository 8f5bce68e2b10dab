// The generic software-table engine: Asic::SwTable::Accessor<Table>, an object holding only a
// pointer to a table, whose operations drive the table's entries from a client's commit to the
// acknowledged hardware row and back to deletion, and through a hitless restart.
//
// Everything that varies between tables lives in the table type (its collections, Entry, handles,
// Util) and in its traits (Asic::TableTraits, TableTraits.h: all the engine knows of the table's
// key and entry); the engine never asks which table it drives. The operations
// are defined one concern per file (see README.md); SwTableAccessorImpl.h includes them all and
// is included once, by the table's own translation unit, which instantiates the engine.
//
// All operations run synchronously on the table's owning thread (docs/ARCHITECTURE.md,
// "Threads"): every table operation and handle hook builds an accessor, which builds with debug
// checks stop on any other thread. Several operations call back into each other through the
// table's collection mutators and the handles' hooks; each operation's contract below says what it
// changes and what it may call.
//
// Restart rule: from the read-back (syncEntries) to the purge (purgeStaleEntries) clients may act
// as at any other time. A row read back is held in the allocator until its own key claims it
// (readBackRowClaimed: adopted or rewritten by reconciliation, at any moment before the purge) or
// the purge deletes it; no key is ever written over a row the purge could delete, and a bound
// key keeps its binding until the purge whatever happens to its handle meanwhile.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>

#include "Asic/SwUnknownIndexTable.h"
#include "AsicSwTable/TableTraits.h"
#include "Fwk/Assert.h"
#include "Fwk/Ptr.h"

namespace Asic {

template <class Table, class Key>
class SwTable::Accessor {
 public:
   using MutableTable = std::remove_const_t<Table>;
   using Entry = typename MutableTable::Entry;
   using EntryHandle = typename MutableTable::EntryHandle;
   using UnresolvedEntry = typename MutableTable::UnresolvedEntry;
   using Util = typename MutableTable::Util;
   using Traits = TableTraits<MutableTable>;
   using OptionalEntry = std::optional<Entry>;
   using HandlePtr = Fwk::Ptr<const SwTableBase::EntryHandle>;
   static_assert(TableTraitsOf<Traits, Key, Entry>,
                 "a table supplies its key's and entry's traits as Asic::TableTraits<Table> "
                 "(AsicSwTable/TableTraits.h)");

   explicit Accessor(Table* table) noexcept : swTable_(table) {
      FWK_DEBUG_ASSERT_MSG(table == nullptr || table->onOwningThread(), "onOwningThread()",
                           "a table's operations and the last release of its handles run on the "
                           "thread that made the table (docs/ARCHITECTURE.md, \"Threads\")");
   }

   // --- client write path ---
   // Reference the entry: it lives while clients hold the returned handle. Never null. May run
   // resolution and, through it, processing and programming.
   HandlePtr entryRef(const Key& key, const Entry& entry);
   // Commit the entry: the table keeps it until entryRemove. Never null.
   HandlePtr entryCommit(const Key& key, const Entry& entry);
   // The key's handle, which the caller knows must exist (fatal otherwise).
   Fwk::Ptr<EntryHandle> validEntryHandle(const Key& key) const;

   // --- resolution ---
   // Stores `entry` in the unresolved entry, then resolves it or lets it wait for its needed
   // entry (sending index suggestions during configuration replay).
   void initUnresolvedEntry(const Fwk::Ptr<UnresolvedEntry>& ue, const Entry& entry);
   void initUnresolvedEntry(const Fwk::Ptr<UnresolvedEntry>& ue);
   // Turns the unresolved entry into the key's resolved entry (may throw std::range_error when
   // the needed index does not fit the dependent field; nothing is lost then).
   void doResolve(UnresolvedEntry* ue);
   void setResolvedEntry(const Key& key, const OptionalEntry& entry) const;
   void deleteResolvedEntry(const Key& key) const;
   void markFailedNeededEntry(UnresolvedEntry* ue) const;
   Index hwIndexForDependentField(const EntryHandle* handle) const;

   // --- processing: runs on every change of a key's resolved entry ---
   void handleEntry(const Key& key);
   // The entry-state hook: traces the state and checks it against the entry type.
   void handleEntryState(const EntryHandle* entryHandle, const Key& key) const;
   [[gnu::noinline, gnu::cold]] void handleEntryStateTraced(const EntryHandle* entryHandle,
                                                            const Key& key) const;
   // Asserts what a handle's entry state allows of its entry type.
   void checkEntryState(const EntryHandle& entryHandle) const;

   // --- hardware programming ---
   void programHwEntry(const Key& key, SwTableBase::EntryState entryState);
   void hwTableEntryIs(const Util* util, const Key& key, std::optional<Index> hwIndex);
   void hwTableEntryDel(const Util* util, const Key& key, std::optional<Index> hwIndex);
   void doCompleteEntryHandleForTesting(const Key& key);
   // The process-wide switch "PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE", read once.
   static bool publishEntryHandleProgrammedState();
   // How the switch's value reads (base-10, leading blanks and a sign allowed, stops at the
   // first non-digit; nothing parsed is 0; on when not 0).
   static bool switchValueOn(const char* value) noexcept;

   // --- removal ---
   // Client removal: a committed entry becomes reference-only; its row goes when the last client
   // reference goes. Never throws.
   void entryRemove(const Key& key);
   // Clean-up of a handle whose last client has gone: removes it at once, or begins the delete
   // dance (rewrite the row empty, wait for the acknowledgement).
   void cleanup(EntryHandle* entryHandle);
   // The hook run when hardware answers for a handle.
   void handleResolvedEntryState(EntryHandle* entryHandle);

   // --- reads: never change the table, never trace ---
   Entry entry(const Key& key) const;
   bool entryHas(const Key& key) const;
   bool entryInHwTable(const Key& key) const;
   std::optional<Index> doRetrieveHwIndex(const Key& key) const;

   // --- index allocation ---
   void doCreateAllocator();
   template <class Allocator>
   void initAllocator();

   // --- restart: read-back, reconciliation, suggestions, end of initialisation ---
   void syncEntries();
   void bindKeyToIndex(const Key& key, Index& hwIndex);
   bool reconcileUsingHwIndex(const Key& key, Index hwIndex, bool compareHwEntry) const;
   Index reconcileUsingIndexHelper(const Key& key, bool syncedOnly) const;
   SwTable::ReconciliationStatus reconcileSyncedEntry(const Key& key) const;
   void suggestIndexToNeededTable(const Entry& swEntry, const Entry& syncedEntry);
   void handleIndexSuggestions(const EntryHandle* eh, IndexSet suggestions);
   bool processIndexSuggestion(const EntryHandle* eh, Index hwIndex);
   void doInitComplete();
   void purgeStaleEntries();
   void syncedEntryRemoveAll();
   void handleStaleEntries();

   // --- bulk removal and teardown ---
   void entryRemoveAll();
   void entryHandleRemoveAll(bool unsetOnly);
   void cleanup();

   // The Util, or null while the platform has given the table none.
   const Util* utilIfExists() const noexcept;

 private:
   enum class WriteKind : std::uint8_t { ref, commit };
   HandlePtr write(const Key& key, const Entry& entry, WriteKind kind);
   void holdForWrite(EntryHandle* handle, WriteKind kind, bool newValue) const noexcept;
   void suggestFromSyncedEntries(UnresolvedEntry* ue);
   void emptyRowDuringReplay(const Key& key);
   void releaseUnclaimedBindings();
   void programExhaustedEntries();
   bool undecidedAtInitComplete(const Key& key, const EntryHandle& handle) const;
   void programValueInForce(const Key& key, EntryHandle& handle,
                            SwTableBase::EntryState entryState);
   // A restart runs from the read-back until the purge: read-back rows may still wait for the
   // key that claims them.
   bool restartInProgress() const noexcept;
   // The row read back at the index now belongs to the key bound to it (reconciled, adopted or
   // rewritten): it leaves the synced entries, and the allocator's hold on the index ends. The one
   // place that ends a hold short of the purge.
   void readBackRowClaimed(Index hwIndex) const;
   // The key's bound index still holds a read-back row that nobody claimed.
   bool unclaimedReadBackRowAt(const Key& key) const;
   void adoptReconciledIndex(const Key& key, Index hwIndex, bool match);
   void retireSyncedEntry(Index hwIndex);
   void removeAtOnce(EntryHandle* entryHandle);
   void releaseBoundIndex(const Key& key);
   void entryTypeIs(EntryHandle* handle, std::uint8_t type) const noexcept;

   Table* swTable_;
};

// A walk over a table's entries: first every key with an unresolved entry, then every key with a
// valued resolved entry and no unresolved entry, each in its collection's order.
template <class Table>
class SwTable::EntryIteratorConst {
 public:
   using Entry = typename Table::Entry;
   using Key = typename Table::Key;

   EntryIteratorConst(const Table* table);  // NOLINT: from the first entry
   EntryIteratorConst(const Table* table, const Key& key);

   bool done() const noexcept { return std::holds_alternative<std::monostate>(position_); }
   Key key() const;
   // The value entry(key) gives at this position.
   Entry entry() const;
   void advance();

 private:
   using UnresolvedIt = typename std::remove_reference_t<
       decltype(std::declval<const Table&>().unresolvedEntryMap())>::const_iterator;
   using ResolvedIt = typename std::remove_reference_t<
       decltype(std::declval<const Table&>().resolvedEntryMap())>::const_iterator;
   void skipInResolved();

   const Table* table_;
   std::variant<std::monostate, UnresolvedIt, ResolvedIt> position_;
};

}  // namespace Asic
