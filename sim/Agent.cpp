#include "sim/Agent.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <stdexcept>
#include <utility>

#include "Asic/ChipProfile.h"
#include "Asic/PluginLoader.h"
#include "Asic/Recovery.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"
#include "Vosk/StateDb.h"
#include "sim/ProfileTable.h"
#include "sim/StateStore.h"

namespace Sim {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;

const char* rowFateName(RowFate fate) noexcept {
   switch (fate) {
      case RowFate::free: return "free";
      case RowFate::adopted: return "adopted";
      case RowFate::rewritten: return "rewritten";
      case RowFate::created: return "new";
      case RowFate::purged: return "purged";
      case RowFate::kept: return "kept";
   }
   return "free";
}

// ===== one agent life =====

namespace {

bool pathExists(const std::string& path) {
   struct stat st {};
   return ::lstat(path.c_str(), &st) == 0;
}

void validate(const Config& config) {
   const std::set<std::uint32_t> profiles(config.profiles.begin(), config.profiles.end());
   std::set<std::uint64_t> keys;
   for (const auto& t : config.tunnels) {
      if (!profiles.contains(t.profileId)) {
         throw std::runtime_error("tunnel " + std::to_string(t.key) + " needs profile " +
                                  std::to_string(t.profileId) + ", which is not configured");
      }
      if (!keys.insert(t.key).second) {
         throw std::runtime_error("tunnel " + std::to_string(t.key) + " is configured twice");
      }
   }
}

struct ChipAndStore {
   ChipState chip;
   std::unique_ptr<StateStore> store;  // null in a dry run without a store
   bool restart = false;
   bool storeMade = false;
};

// Both files are checked, and whether they belong together, before either is changed: a store
// that cannot be read or written, or is damaged, or is another chip's, stops the run here.
ChipAndStore openChipAndStore(const RunOptions& options) {
   const std::string storePath = StateStore::pathFor(options.chipFile);
   const bool restart = pathExists(options.chipFile);
   std::unique_ptr<StateStore> store;
   std::optional<ChipState> existing;
   try {
      store = StateStore::open(storePath, options.dryRun);
      if (restart) {
         existing = ChipState::open(options.chipFile, !options.dryRun);
         if (store) {
            store->checkBelongsTo(*existing);
         }
         if (options.dryRun) {
            existing = ChipState::copyOf(*existing);
         }
      } else if (store) {
         store->checkFreeForNewChip(options.chipFile);
      }
   } catch (const StateStoreError& e) {
      throw StateStoreError(std::string(e.what()) + "; both files are left as they are");
   }
   ChipState chip = restart         ? std::move(*existing)
                    : options.dryRun ? ChipState::inMemory(options.rows)
                                     : ChipState::create(options.chipFile, options.rows);
   bool storeMade = false;
   if (!options.dryRun && store) {
      store->chipIs(chip);
   } else if (!options.dryRun) {
      store = StateStore::create(storePath, chip);
      storeMade = restart;
   }
   return ChipAndStore{std::move(chip), std::move(store), restart, storeMade};
}

// A run changes its chip only under the chip's exclusive lock.
void checkLock(const ChipLock& lock, const RunOptions& options) {
   if (lock.chipFile() != options.chipFile || (!lock.exclusive() && !options.dryRun)) {
      throw std::logic_error(options.chipFile + ": the agent runs without the chip's lock");
   }
}

// However a life ends, even by an exception, it ends as a process does: the chip keeps every row
// (the table's clean-up with its Util would delete them).
class EndOfLife {
  public:
   explicit EndOfLife(Fwk::Ptr<IngL3IifTable>& table) : table_(table) {}
   ~EndOfLife() { now(); }
   EndOfLife(const EndOfLife&) = delete;
   EndOfLife& operator=(const EndOfLife&) = delete;

   void now() {
      if (table_) {
         table_->utilIs(nullptr);
         table_->cleanup();
         table_ = nullptr;
      }
   }

  private:
   Fwk::Ptr<IngL3IifTable>& table_;
};

// After a failed commit of the state store the chip takes no more writes: the run stops.
void checkChip(const SimChip& chip) {
   if (chip.failure()) {
      throw std::runtime_error(*chip.failure() +
                               "; the chip holds the writes of every earlier commit, from which "
                               "the next run goes on");
   }
}

std::vector<bool> valuedRows(const ChipState& state) {
   std::vector<bool> valued(state.decapRows());
   for (std::uint32_t i = 0; i < state.decapRows(); ++i) {
      valued[i] = state.decapRow(i).state == RowState::valued;
   }
   return valued;
}

std::vector<RowFate> rowFates(const SimChip& chip, const std::vector<bool>& before) {
   const std::vector<bool> after = valuedRows(chip.state());
   std::vector<RowFate> fates(after.size(), RowFate::free);
   for (std::size_t i = 0; i < after.size(); ++i) {
      const bool written = (chip.decapTouch(static_cast<std::uint32_t>(i)) & SimChip::written) != 0;
      if (before[i] && after[i]) {
         fates[i] = written ? RowFate::rewritten : RowFate::adopted;
      } else if (after[i]) {
         fates[i] = RowFate::created;
      } else if (before[i]) {
         fates[i] = RowFate::purged;
      }
   }
   return fates;
}

Fwk::Ptr<const Asic::ChipProfile> simChipProfile() {
   auto profile = Fwk::make<Asic::ChipProfile>("simulated-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
   return profile;
}

void recover(IngL3IifTable& table) {
   auto mountGroup = Fwk::make<Vosk::MountGroup>("l3decap");
   IngL3IifTable::doRecoverHwTable(Fwk::make<Asic::HwTableRecoverGroup>("l3decap"), 0,
                                   Fwk::make<Vosk::EntityManager>("l3decap-agent"),
                                   Asic::ChipInfo{"simulated-chip", 1});
   IngL3IifTable::doMountHwTableMountInfo(mountGroup);
   IngL3IifTable::doMountHwTableRecoveryStatus(mountGroup);
   table.syncEntries();
}

// Delivers every write completion both tables are able to take now.
void deliverAll(WriteCompletions* decap, ProfileTable& profiles, bool flush) {
   for (bool progress = true; progress;) {
      progress = profiles.deliverAcks(SIZE_MAX, flush) > 0;
      if (decap != nullptr) {
         progress = decap->deliverAcks(SIZE_MAX, flush) > 0 || progress;
      }
   }
}

}  // namespace

RunReport runAgent(const Config& config, const RunOptions& options, const ChipLock& lock) {
   validate(config);
   checkLock(lock, options);
   if (Asic::UtilFactories::factory(IngL3IifTable::kTypeName) == nullptr) {
      throw std::runtime_error(
          "no chip plug-in for the simulated chip was loaded (see the plug-in search path in "
          "README.md)");
   }
   const auto start = std::chrono::steady_clock::now();
   RunReport report;
   ChipAndStore opened = openChipAndStore(options);
   const std::unique_ptr<StateStore> store = std::move(opened.store);
   report.restart = opened.restart;
   SimChip chip(std::move(opened.chip));
   chip.ackPolicyIs(options.ackPolicy);
   chip.journalIs(options.dryRun ? nullptr : store.get(), options.writesPerCommit);
   const std::uint32_t rows = chip.state().decapRows();
   const std::vector<bool> before = valuedRows(chip.state());
   report.unboundRows = opened.storeMade && std::find(before.begin(), before.end(), true) != before.end();
   if (options.recordChip) {
      report.chipBefore = std::make_shared<const ChipState>(ChipState::copyOf(chip.state()));
   }

   ProfileTable profiles(chip);
   if (report.restart) {
      profiles.readBack();
   }
   auto table = TalvikL3Decap::ingL3IifTableFactory();
   EndOfLife end(table);
   table->setUp(Fwk::make<Asic::HwTable>("IngL3IifDecap", rows), simChipProfile(), rows);
   auto* completions =
       dynamic_cast<WriteCompletions*>(const_cast<IngL3IifTable::Util*>(table->util()));
   if (report.restart) {
      recover(*table);
      for (const Binding& b : store ? store->bindings() : std::vector<Binding>{}) {
         table->bindKeyToIndex(L3TunnelIntfKey(b.key), b.row);
         ++report.keysBound;
         if (options.recordChip) {
            report.keyIndicesBefore.emplace(b.key, b.row);
         }
      }
   }

   for (const std::uint32_t id : config.profiles) {
      profiles.profileCommit(id);
   }
   for (std::size_t i = 0; i < config.tunnels.size(); ++i) {
      const TunnelConfig& t = config.tunnels[i];
      table->entryCommit(L3TunnelIntfKey(t.key),
                         IngL3IifTable::Entry(profiles.profile(t.profileId), 0, t.ipv4UcEnable,
                                              t.ipv6UcEnable, t.trustDscp, t.vrf));
      if (options.progress && (i % 1024 == 0 || i + 1 == config.tunnels.size())) {
         options.progress(i + 1, config.tunnels.size());
      }
      profiles.deliverAcks(SIZE_MAX);
      checkChip(chip);
   }
   report.entriesCommitted = config.tunnels.size();

   profiles.initComplete();
   deliverAll(completions, profiles, false);
   table->doInitComplete();
   deliverAll(completions, profiles, false);
   table->purgeStaleEntries();
   profiles.purgeStale();
   deliverAll(completions, profiles, true);
   chip.applyQueued();
   checkChip(chip);

   const auto& stats = table->statistics();
   report.adopted = stats.count(Asic::SwTable::reconciledMatch);
   report.rewritten = stats.count(Asic::SwTable::reconciledMismatch);
   report.created = stats.count(Asic::SwTable::noSyncedEntry);
   report.purged = stats.count(Asic::SwTable::hwEntryDeleted);
   report.rowsWritten = chip.counters().decapWrites;
   report.rowsDeleted = chip.counters().decapDeletes;
   report.profileRowsWritten = chip.counters().profileWrites;
   report.profileRowsDeleted = chip.counters().profileDeletes;
   report.profilesAdopted = profiles.statistics().adopted;
   report.indicesInUse = table->indexAllocator()->totalUsedIndices();
   std::map<std::uint64_t, std::uint32_t> reported;
   for (const auto& t : config.tunnels) {
      const L3TunnelIntfKey key(t.key);
      if (!table->entryInHwTable(key)) {
         ++report.handlesNotInHardware;
      }
      const Asic::Index index = table->hwIndexOnlyForCrossAgentCommunication(key);
      if (index != Asic::kInvalidIndex) {
         reported.emplace(t.key, index);
      }
   }
   report.rows = rowFates(chip, before);
   if (options.recordChip) {
      report.chipAfter = std::make_shared<const ChipState>(ChipState::copyOf(chip.state()));
   }
   if (!options.dryRun) {
      chip.state().sync();
      // A binding of a row valued at the start is in use, or went when the purge deleted it.
      store->finish([&](const Binding& b) {
         return before[b.row] ||
                table->hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey(b.key)) == b.row;
      });
   }
   report.keyIndices = std::move(reported);
   report.storeSeconds = store ? store->seconds() : 0;

   end.now();
   report.seconds =
       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   return report;
}

}  // namespace Sim
