// The ingress L3 incoming-interface table consulted by decapsulated tunnel packets.
//
// The table model: the entry record, the table entity with its four keyed collections, entry
// handles with their pending-entry queues, unresolved and synced entries, and the Util through
// which the engine reaches the chip. Behaviour lives in the generic engine
// (Asic::SwTable::Accessor, AsicSwTable/); the table's operations build an accessor over the table
// and call the engine operation of the same name.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "Asic/EntryBase.h"
#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/HwTable.h"
#include "Asic/PluginLoader.h"
#include "Asic/Recovery.h"
#include "Asic/SwUnknownIndexTable.h"
#include "Asic/WriteResponseSm.h"
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
class VekSyncedEntry;

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

   IngL3IifTable();
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<IngL3IifTable>(); }

   // --- entry handle factory ---
   static Fwk::Ptr<EntryHandle> entryHandleFactory(L3TunnelIntfKey key, IngL3IifTable* table);

   // --- collections: exact create, replace, delete and notification rules in the .cpp ---
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryIs(L3TunnelIntfKey key);
   Fwk::Ptr<UnresolvedEntry> unresolvedEntryDel(L3TunnelIntfKey key);
   void unresolvedEntryDelAll();
   Fwk::Ptr<UnresolvedEntry> unresolvedEntry(L3TunnelIntfKey key) const;
   std::uint32_t unresolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(unresolvedEntry_.size());
   }

   // Fails with Fwk::ReinstantiationError when the key's handle belongs to another table.
   Fwk::Ptr<EntryHandle> entryHandleIs(L3TunnelIntfKey key, IngL3IifTable* table);
   Fwk::Ptr<EntryHandle> entryHandleDel(L3TunnelIntfKey key);
   void entryHandleDelAll();
   Fwk::Ptr<EntryHandle> entryHandle(L3TunnelIntfKey key) const;
   bool entryHandleHas(L3TunnelIntfKey key) const { return entryHandle_.contains(key); }
   // Number of entry handles.
   std::uint32_t entrys() const noexcept { return static_cast<std::uint32_t>(entryHandle_.size()); }

   void resolvedEntryIs(L3TunnelIntfKey key, const std::optional<Entry>& value);
   std::optional<Entry> resolvedEntryDel(L3TunnelIntfKey key);
   void resolvedEntryDelAll();
   // The key's resolved entry: null when absent, else a pointer to the stored optional.
   const std::optional<Entry>* resolvedEntry(L3TunnelIntfKey key) const;
   bool resolvedEntryHas(L3TunnelIntfKey key) const { return resolvedEntry_.contains(key); }
   std::uint32_t resolvedEntrys() const noexcept {
      return static_cast<std::uint32_t>(resolvedEntry_.size());
   }

   // Synced entries: rows read back from hardware after a restart, by index.
   void syncedEntryIs(Asic::Index index, const Entry& entry);
   Entry syncedEntryDel(Asic::Index index);
   void syncedEntryDelAll();
   Entry syncedEntry(Asic::Index index) const;
   std::optional<Entry> syncedEntryGet(Asic::Index index) const;
   bool syncedEntryHas(Asic::Index index) const { return syncedEntry_.contains(index); }
   std::uint32_t syncedEntrys() const noexcept {
      return static_cast<std::uint32_t>(syncedEntry_.size());
   }
   class SyncedEntryIterator;
   // A walk in ascending index order from the first member whose index is not below `from`.
   SyncedEntryIterator syncedEntryIter(Asic::Index from = 0) const;
   Entry syncedEntryDel(const SyncedEntryIterator& it);

   const Fwk::Ptr<Asic::FirstFreeIndexAllocator>& indexAllocator() const noexcept {
      return indexAllocator_;
   }
   void indexAllocatorIs(const Fwk::Ptr<Asic::FirstFreeIndexAllocator>& allocator);
   // Installs without publishing (the engine's own-allocator path).
   void indexAllocatorSet(Fwk::Ptr<Asic::FirstFreeIndexAllocator> allocator) noexcept {
      indexAllocator_ = std::move(allocator);
   }

   const Fwk::Ptr<Asic::WriteResponseSm>& writeResponseSm() const noexcept {
      return writeResponseSm_;
   }
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSmIs(Asic::SwTable* swTable);
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSmDel();

   const Util* util() const noexcept;

   // --- client operations ---
   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> entryRef(const L3TunnelIntfKey& key,
                                                           const Entry& entry);
   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> entryCommit(const L3TunnelIntfKey& key,
                                                              const Entry& entry);
   void entryRemove(L3TunnelIntfKey key);
   void handleEntry(L3TunnelIntfKey key);
   Entry entry(const L3TunnelIntfKey& key) const;
   bool entryHas(const L3TunnelIntfKey& key) const;
   bool entryInHwTable(const L3TunnelIntfKey& key) const;
   using EntryIteratorConst = Asic::SwTable::EntryIteratorConst<IngL3IifTable>;
   EntryIteratorConst entryIteratorConst() const;
   EntryIteratorConst entryIteratorConst(L3TunnelIntfKey key) const;
   void entryRemoveAll();
   void cleanup();

   // --- restart ---
   static void doRecoverHwTable(const Fwk::Ptr<Asic::HwTableRecoverGroup>& rg,
                                Asic::UnitId unitId, const Fwk::Ptr<Vosk::EntityManager>& em,
                                const Asic::ChipInfo& chipInfo);
   static void doMountHwTableMountInfo(const Fwk::Ptr<Vosk::MountGroup>& mg);
   static void doMountHwTableRecoveryStatus(const Fwk::Ptr<Vosk::MountGroup>& mg);
   void bindKeyToIndex(L3TunnelIntfKey key, Asic::Index hwIndex);
   Asic::Index hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey key) const;
   std::optional<L3TunnelIntfKey> swKeyFromHwIndex(Asic::Index hwIndex) const;

   // --- operations the platform calls ---
   void doCreateAllocator() override;
   void doInitAllocator();
   void doInitComplete() override;
   void syncEntries() override;
   void purgeStaleEntries() override;
   Fwk::Ptr<Asic::SwTable::EntryHandle> getEntryHandle(const void* key) const override;

   // The table's "SwTableStat" trace handle (statistics line of the purge).
   static const Fwk::Trace::Handle& statisticsTrace();

   // Iteration over the keyed collections (engine and tests).
   const auto& unresolvedEntryMap() const noexcept { return unresolvedEntry_; }
   const auto& entryHandleMap() const noexcept { return entryHandle_; }
   const auto& resolvedEntryMap() const noexcept { return resolvedEntry_; }

  protected:
   ~IngL3IifTable() override;

  private:
   template <class, class>
   friend class Asic::SwTable::Accessor;

   Fwk::Ptr<Asic::FirstFreeIndexAllocator> indexAllocator_;
   Fwk::Ptr<Asic::WriteResponseSm> writeResponseSm_;
   std::unordered_map<L3TunnelIntfKey, Fwk::Ptr<UnresolvedEntry>> unresolvedEntry_;
   std::unordered_map<L3TunnelIntfKey, Fwk::Ptr<EntryHandle>> entryHandle_;
   std::unordered_map<L3TunnelIntfKey, std::optional<Entry>> resolvedEntry_;
   std::map<Asic::Index, Fwk::Ptr<VekSyncedEntry>> syncedEntry_;
   std::uint64_t syncedEntryVersion_ = 0;  // bumped by every membership change
};

Fwk::Ptr<IngL3IifTable> ingL3IifTableFactory();

// --- the entry record ---

class IngL3IifTable::Entry : public Asic::EntryBase {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Entry";
   static constexpr bool getBlockSizeDefinedByUser = false;
   static constexpr std::uint64_t numDependentFields = 1;

   Entry() noexcept : EntryBase(sizeof(Entry)) {}
   Entry(Fwk::Ptr<const Asic::SwTableBase::EntryHandle> handle, std::uint8_t profileIndex,
         bool ipv4UcEnable, bool ipv6UcEnable, bool trustDscp, std::uint32_t vrf) noexcept;
   Entry(const Entry&) = default;
   Entry& operator=(const Entry&) = default;
   Entry(Entry&& o) noexcept;
   Entry& operator=(Entry&& o) noexcept;
   ~Entry() override = default;
   // Parses the text form; see strepToValue for whole strings.
   explicit Entry(Fwk::CharRange& text);

   static bool isEq(const void* a, const void* b) noexcept;
   bool operator==(const Entry& o) const noexcept { return isEq(this, &o); }
   std::strong_ordering operator<=>(const Entry& o) const noexcept;

   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> l3IifProfileIndexHandle;
   std::uint8_t l3IifProfileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;
};

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

   EntryHandle(L3TunnelIntfKey key, IngL3IifTable* table);
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<EntryHandle>(); }
   // Handles alive in the process, of every table instance (leak checks). Handles live on their
   // table's thread, so a plain count does.
   static std::size_t liveHandles() noexcept { return live_; }
   std::string entityText() const override;

   L3TunnelIntfKey key() const noexcept { return key_; }
   IngL3IifTable* swTable() const noexcept { return swTable_.get(); }
   void swTableIs(IngL3IifTable* table);

   void cleanup();

   // --- pending-entry queue ---
   void pendingEntryEnq(const Entry& entry);
   Entry pendingEntryDeq();
   Entry pendingEntryFront() const;
   Entry pendingEntryBack() const;
   Entry pendingEntry(Position position) const;
   bool pendingEntryHas(Position position) const;
   void pendingEntryDelAll();
   std::uint32_t pendingEntrys() const noexcept { return pending_.size(); }
   const PendingEntryQueue<Entry>& pendingQueue() const noexcept { return pending_; }

   Asic::Index hwIndexForDependentField() const override;
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

// --- unresolved entry ---

class IngL3IifTable::UnresolvedEntry : public Asic::SwTable::UnresolvedEntry {
  public:
   static constexpr std::string_view kTypeName =
       "TalvikL3Decap::IngL3IifTable::UnresolvedEntry";

   UnresolvedEntry(L3TunnelIntfKey key, IngL3IifTable* table);
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<UnresolvedEntry>();
   }
   L3TunnelIntfKey key() const noexcept { return key_; }
   IngL3IifTable* swTable() const noexcept {
      return static_cast<IngL3IifTable*>(swTableBase());
   }

   void doResolve() override;
   void markFailedNeededEntry() override;

   Entry entry;

  private:
   L3TunnelIntfKey key_;
};

// --- synced entry: a row read back from hardware ---

class VekSyncedEntry : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "VekSyncedEntry";
   VekSyncedEntry(Asic::Index index, const IngL3IifTable::Entry& entry)
       : index(index), entry(entry) {}
   const Asic::Index index;
   IngL3IifTable::Entry entry;
};

// A walk over synced entries in ascending index order. It holds its current member; when the
// collection changed since the walk last moved, it finds the successor by index instead of
// following the map's links, so members may be removed while walking.
class IngL3IifTable::SyncedEntryIterator {
  public:
   bool done() const noexcept { return !current_; }
   Asic::Index index() const noexcept { return current_->index; }
   const Entry& entry() const noexcept { return current_->entry; }
   void advance();

  private:
   friend class IngL3IifTable;
   SyncedEntryIterator(const IngL3IifTable* table, Asic::Index from);
   const IngL3IifTable* table_;
   Fwk::Ptr<VekSyncedEntry> current_;
   std::map<Asic::Index, Fwk::Ptr<VekSyncedEntry>>::const_iterator it_;
   std::uint64_t version_;
};

// --- utility object: the chip-specific plug-in implements the pure operations ---

class IngL3IifTable::Util : public Asic::SwTable::Util {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Util";
   explicit Util(const std::string& name) : Asic::SwTable::Util(name) {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Util>(); }

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
   std::string prefixPath() const override { return "AsicFeature"; }
   std::string suffixPath() const override { return "TalvikL3Decap::IngL3IifTable"; }

   // The process's loader, created and run once (thread-safe) on first use.
   static Fwk::Ptr<UtilLoader> loaderSingletonIs();
};

}  // namespace TalvikL3Decap

#include "AsicSwTable/SwTableAccessor.h"

// The engine is instantiated once, in the table's translation unit.
extern template class Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>;
extern template class Asic::SwTable::EntryIteratorConst<TalvikL3Decap::IngL3IifTable>;
