// A software table that owns a hardware table: entry handles with a resolved-entry state, the
// chip-specific utility object, the configuration-replay flag of a restart, the reconciliation
// statistics, and the attributes through which the engine's steps talk to each other.
//
// The engine that drives a concrete table is the class template SwTable::Accessor, defined in
// AsicSwTable/ and instantiated per table type.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <thread>

#include "Asic/Feature.h"
#include "Asic/SwTableBase.h"
#include "Asic/Types.h"
#include "Vosk/Forward.h"

namespace Asic {

class HwTable;
class ChipProfile;
class HwTableRecoverGroup;
struct ChipInfo;

class SwTable : public SwTableBase {
 public:
   static constexpr std::string_view kTypeName = "Asic::SwTable";

   enum ReconciliationStatus : std::uint8_t {
      unreconciled = 0,
      reconciledMatch = 1,
      reconciledMismatch = 2,
      noSyncedEntry = 3,
      hwEntryDeleted = 4,
   };
   // The status's name, e.g. "reconciledMatch".
   static const char* reconciliationStatusName(ReconciliationStatus status) noexcept;

   // What a key's resolved entry held just before its latest change.
   enum PriorResolvedEntry : std::uint8_t { absent = 0, empty = 1, valued = 2 };

   // Counts of reconciliation outcomes, one per status.
   struct Statistics {
      std::array<std::uint64_t, 5> counts{};
      std::uint64_t count(ReconciliationStatus s) const noexcept { return counts.at(s); }
   };

   class EntryHandle;
   class UnresolvedEntry;
   class Util;
   class IndexHelper;
   template <class Table, class Key = typename std::remove_const_t<Table>::Key>
   class Accessor;
   template <class Table>
   class EntryIteratorConst;

   // The platform's set-up of a table: its hardware table, the chip profile in force, its size,
   // the Util that a loaded chip plug-in registered for this table type (none if no plug-in
   // did), and then the table's allocator (doCreateAllocator).
   void setUp(const Fwk::Ptr<HwTable>& hwTable, const Fwk::Ptr<const ChipProfile>& profile,
              std::uint32_t numEntries);

   // --- the chip-specific utility object; null until the platform gives the table one ---
   const Util* util() const noexcept { return util_.get(); }
   // Gives the table its Util, or takes it away (null): without one the table touches no
   // hardware. An agent that ends and leaves its rows in hardware for its next life takes the
   // Util away before the table's clean-up.
   void utilIs(const Fwk::Ptr<Util>& util);

   // --- the platform hardware table; null until the platform creates it ---
   HwTable* hwTable() const noexcept { return hwTable_.get(); }
   void hwTableIs(const Fwk::Ptr<HwTable>& hwTable);

   // --- the chip profile in force and the table's size ---
   const ChipProfile* activeChipProfile() const noexcept { return chipProfile_.get(); }
   void activeChipProfileIs(const Fwk::Ptr<const ChipProfile>& profile);
   std::uint32_t numEntries() const noexcept { return numEntries_; }
   void numEntriesIs(std::uint32_t n) noexcept { numEntries_ = n; }

   // --- restart: false while the agent replays its configuration ---
   bool configReplayComplete() const noexcept { return configReplayComplete_; }
   bool configReplayInProgress() const noexcept { return !configReplayComplete_; }
   // Publishes a change; doInitComplete sets it.
   void configReplayCompleteIs(bool complete);

   // --- attributes that carry information between the engine's steps ---
   PriorResolvedEntry priorResolvedEntry() const noexcept { return priorResolvedEntry_; }
   void priorResolvedEntryIs(PriorResolvedEntry p) noexcept { priorResolvedEntry_ = p; }
   bool reconciledWrite() const noexcept { return reconciledWrite_; }
   void reconciledWriteIs(bool w) noexcept { reconciledWrite_ = w; }
   bool hwResponseNeeded() const noexcept { return hwResponseNeeded_; }
   void hwResponseNeededIs(bool needed) noexcept { hwResponseNeeded_ = needed; }

   // --- reconciliation statistics: outcomes counted since the table was made ---
   void updateStatistic(ReconciliationStatus status) noexcept { ++statistics_.counts.at(status); }
   const Statistics& statistics() const noexcept { return statistics_; }

   // Whether the calling thread is the table's owning thread, the one that made it: every
   // operation of the table and the last release of each of its handles run there
   // (docs/ARCHITECTURE.md, "Threads").
   bool onOwningThread() const noexcept { return std::this_thread::get_id() == owningThread_; }

   // The entry handle of a key given by address (the write-response path), or null.
   virtual Fwk::Ptr<EntryHandle> getEntryHandle(const void* key) const = 0;

   // --- operations the platform calls on every table ---
   virtual void doCreateAllocator() {}
   virtual void doInitComplete() {}
   virtual void syncEntries() {}
   virtual void purgeStaleEntries() {}

 protected:
   explicit SwTable(std::string name);
   ~SwTable() override;

 private:
   std::string name_;
   std::thread::id owningThread_ = std::this_thread::get_id();
   Fwk::Ptr<Util> util_;
   Fwk::Ptr<HwTable> hwTable_;
   Fwk::Ptr<const ChipProfile> chipProfile_;
   Statistics statistics_;
   std::uint32_t numEntries_ = 0;
   PriorResolvedEntry priorResolvedEntry_ = absent;
   bool configReplayComplete_ = false;
   bool reconciledWrite_ = false;
   bool hwResponseNeeded_ = false;
};

std::ostream& operator<<(std::ostream& os, SwTable::ReconciliationStatus status);
// "reconciledMatch:N reconciledMismatch:N noSyncedEntry:N hwEntryDeleted:N" (unreconciled is
// never counted).
std::ostream& operator<<(std::ostream& os, const SwTable::Statistics& statistics);

// A handle of a table that writes hardware: adds the state of the key's resolved entry in
// hardware.
class SwTable::EntryHandle : public SwTableBase::EntryHandle {
 public:
   // Stores the state and publishes it; when it changed, runs handleResolvedEntryState().
   void resolvedEntryStateIs(EntryState state);
   // The platform's hook for a handle whose references are being given up. Our handles keep
   // their references to other tables' handles in entries, which the engine releases itself,
   // so there is nothing for the platform to adjust; the handle stays fully usable.
   void doAmendReferences() noexcept {}

 protected:
   EntryHandle() = default;
   virtual void handleResolvedEntryState() {}
};

// Index suggestions received for one entry handle of an unknown-index table: candidate indices.
class SwTable::IndexHelper : public Fwk::PtrInterface {
 public:
   bool has(Index i) const noexcept;
   // Adds a candidate (once).
   void indexIs(Index i);
   void indexDel(Index i) noexcept;
   std::size_t size() const noexcept { return indices_.size(); }
   // Candidates in no particular order. Iterate over a copy if the walk may remove candidates.
   const std::vector<Index>& indices() const noexcept { return indices_; }

 private:
   std::vector<Index> indices_;  // a handful at most; a vector beats a hash set here
};

}  // namespace Asic

namespace Asic {

// An unresolved entry of a table that writes hardware; remembers the table that created it.
class SwTable::UnresolvedEntry : public SwTableBase::UnresolvedEntry {
 public:
   SwTable* swTableBase() const noexcept { return swTable_; }
   // Whether the table's Util publishes indices in handles (false without a Util).
   bool publishHwIndexInHandle() const override;

 protected:
   explicit UnresolvedEntry(SwTable* table) noexcept : swTable_(table) {}

 private:
   SwTable* swTable_;
};

// Base of every table's utility object: the feature through which the engine reaches the chip.
// A chip-specific plug-in derives the table's own Util from it.
class SwTable::Util : public Feature {
 public:
   static constexpr std::string_view kTypeName = "Asic::SwTable::Util";

   // When set, programming records the written index in the entry handle, and a needed handle
   // with a valid index counts as ready.
   bool publishHwIndexInHandle() const noexcept { return publishHwIndexInHandle_; }
   void publishHwIndexInHandleIs(bool publish) noexcept { publishHwIndexInHandle_ = publish; }

   // Recovery services of a restart, called by class-level table operations with the table's
   // (or its Util's) type descriptor. They record what they are given with the hardware-table
   // recovery registry (Asic/Recovery.h).
   static void doRecoverHwTable(const Fwk::TypeDescriptor& type,
                                const Fwk::Ptr<HwTableRecoverGroup>& rg, UnitId unitId,
                                const Fwk::Ptr<Vosk::EntityManager>& em, const ChipInfo& chipInfo,
                                const std::string& name);
   static void doMountHwTableMountInfo(const Fwk::TypeDescriptor& type,
                                       const Fwk::Ptr<Vosk::MountGroup>& mg,
                                       const std::string& name);
   static void doMountHwTableRecoveryStatus(const Fwk::TypeDescriptor& type,
                                            const Fwk::Ptr<Vosk::MountGroup>& mg,
                                            const std::string& name);

 protected:
   explicit Util(const std::string& name) : Feature(name) {}

 private:
   bool publishHwIndexInHandle_ = false;
};

namespace Trait {
// Whether a table's index allocator lives in another agent. Tables specialise this.
template <class Table>
inline constexpr bool hasRemoteAllocator = false;
}  // namespace Trait

}  // namespace Asic
