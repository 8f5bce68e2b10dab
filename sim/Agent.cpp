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
      case RowFate::free:
         return "free";
      case RowFate::adopted:
         return "adopted";
      case RowFate::rewritten:
         return "rewritten";
      case RowFate::created:
         return "new";
      case RowFate::purged:
         return "purged";
      case RowFate::replaced:
         return "replaced";
   }
   return "free";
}

// ===== one agent life =====

namespace {

bool pathExists(const std::string& path) {
   struct stat st {};
   return ::lstat(path.c_str(), &st) == 0;
}

// The configuration's own checks (the configuration file's parser makes them too, with lines).
void validate(const Config& config) {
   std::vector<std::uint32_t> profiles = config.profiles;
   std::sort(profiles.begin(), profiles.end());
   std::vector<std::uint64_t> keys;
   keys.reserve(config.tunnels.size());
   for (const auto& t : config.tunnels) {
      if (!std::binary_search(profiles.begin(), profiles.end(), t.profileId)) {
         throw std::runtime_error("tunnel " + std::to_string(t.key) + " needs profile " +
                                  std::to_string(t.profileId) + ", which is not configured");
      }
      keys.push_back(t.key);
   }
   std::sort(keys.begin(), keys.end());
   if (const auto twice = std::adjacent_find(keys.begin(), keys.end()); twice != keys.end()) {
      throw std::runtime_error("tunnel " + std::to_string(*twice) + " is configured twice");
   }
}

// Every tunnel needs a row of its own: a configuration that cannot fit is refused before either
// file is touched. --rows, which sizes a new chip, must agree with an existing one.
void checkFits(const Config& config, const RunOptions& options, std::uint32_t chipRows,
               bool existing) {
   if (existing && options.rows && *options.rows != chipRows) {
      throw ChipSizeError("--rows " + std::to_string(*options.rows) + ": " + options.chipFile +
                          " has " + std::to_string(chipRows) +
                          " decap rows (--rows only sizes a new chip file; to start over with " +
                          std::to_string(*options.rows) + " rows, remove " + options.chipFile +
                          " and " + StateStore::pathFor(options.chipFile) + ")");
   }
   if (config.tunnels.size() > chipRows) {
      throw ChipSizeError("the configuration has " + std::to_string(config.tunnels.size()) +
                          " tunnels, more than the chip's " + std::to_string(chipRows) +
                          " decap rows; nothing was written" +
                          (existing ? "" : " (--rows sizes a new chip)"));
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
ChipAndStore openChipAndStore(const Config& config, const RunOptions& options) {
   const std::string storePath = StateStore::pathFor(options.chipFile);
   const bool restart = pathExists(options.chipFile);
   const std::uint32_t newRows = options.rows.value_or(ChipState::kDefaultDecapRows);
   std::unique_ptr<StateStore> store;
   std::optional<ChipState> existing;
   try {
      store = StateStore::open(storePath, options.dryRun);
      if (restart) {
         existing = ChipState::open(options.chipFile, !options.dryRun);
         if (store) {
            store->checkBelongsTo(*existing);
         }
      } else if (store) {
         store->checkFreeForNewChip(options.chipFile);
      }
   } catch (const StateStoreError& e) {
      throw StateStoreError(std::string(e.what()) + "; both files are left as they are");
   }
   checkFits(config, options, restart ? existing->decapRows() : newRows, restart);
   ChipState chip = restart          ? std::move(*existing)
                    : options.dryRun ? ChipState::inMemory(newRows)
                                     : ChipState::create(options.chipFile, newRows);
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
   // The table, unable to touch the chip any more, left to the caller instead of torn down.
   std::shared_ptr<void> leave() {
      table_->utilIs(nullptr);
      auto kept = std::make_shared<Fwk::Ptr<IngL3IifTable>>(std::move(table_));
      table_ = nullptr;
      return kept;
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

RowFate rowFate(bool before, bool after, std::uint8_t touch) {
   if (before && after) {
      if ((touch & SimChip::deleted) != 0) {
         return RowFate::replaced;
      }
      return (touch & SimChip::written) != 0 ? RowFate::rewritten : RowFate::adopted;
   }
   return after ? RowFate::created : before ? RowFate::purged : RowFate::free;
}

std::vector<RowFate> rowFates(const SimChip& chip, const std::vector<bool>& before) {
   const ChipState& state = chip.state();
   std::vector<RowFate> fates(state.decapRows(), RowFate::free);
   for (std::uint32_t i = 0; i < state.decapRows(); ++i) {
      fates[i] =
          rowFate(before[i], state.decapRow(i).state == RowState::valued, chip.decapTouch(i));
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

// Bindings of the keys the agent remembers: each key goes back to its row.
void bindRemembered(IngL3IifTable& table, const StateStore* store, const RunOptions& options,
                    RunReport& report) {
   if (store == nullptr) {
      return;
   }
   for (const Binding& b : store->bindings()) {
      table.bindKeyToIndex(L3TunnelIntfKey(b.key), b.row);
   }
   report.keysBound = store->bindings().size();
   if (options.recordChip) {
      report.keysBefore = store->bindings();
   }
}

void replay(IngL3IifTable& table, ProfileTable& profiles, const SimChip& chip, const Config& config,
            const RunOptions& options) {
   for (const std::uint32_t id : config.profiles) {
      profiles.profileCommit(id);
   }
   for (std::size_t i = 0; i < config.tunnels.size(); ++i) {
      const TunnelConfig& t = config.tunnels[i];
      table.entryCommit(L3TunnelIntfKey(t.key),
                        IngL3IifTable::Entry(profiles.profile(t.profileId), 0, t.ipv4UcEnable,
                                             t.ipv6UcEnable, t.trustDscp, t.vrf));
      if (options.progress && (i % 1024 == 0 || i + 1 == config.tunnels.size())) {
         options.progress(i + 1, config.tunnels.size());
      }
      profiles.deliverAcks(SIZE_MAX);
      checkChip(chip);
   }
}

// Initialisation completes, stale rows go, and every write completes.
void finishInitialisation(IngL3IifTable& table, ProfileTable& profiles, SimChip& chip,
                          WriteCompletions* completions) {
   profiles.initComplete();
   deliverAll(completions, profiles, false);
   table.doInitComplete();
   deliverAll(completions, profiles, false);
   table.purgeStaleEntries();
   profiles.purgeStale();
   deliverAll(completions, profiles, true);
   chip.applyQueued();
   checkChip(chip);
}

void countOutcome(const IngL3IifTable& table, const SimChip& chip, const ProfileTable& profiles,
                  RunReport& report) {
   const auto& stats = table.statistics();
   report.rowsAdopted = stats.count(Asic::SwTable::reconciledMatch);
   report.rowsRewritten = stats.count(Asic::SwTable::reconciledMismatch);
   report.newEntries = stats.count(Asic::SwTable::noSyncedEntry);
   report.rowsPurged = stats.count(Asic::SwTable::hwEntryDeleted);
   report.rowWrites = chip.counters().decapWrites;
   report.rowDeletes = chip.counters().decapDeletes;
   report.profileRowWrites = chip.counters().profileWrites;
   report.profileRowDeletes = chip.counters().profileDeletes;
   report.profileRowsAdopted = profiles.statistics().adopted;
   report.indicesInUse = table.indexAllocator()->totalUsedIndices();
}

std::size_t entriesNotInHardware(const IngL3IifTable& table, const Config& config) {
   return static_cast<std::size_t>(std::count_if(
       config.tunnels.begin(), config.tunnels.end(),
       [&](const TunnelConfig& t) { return !table.entryInHwTable(L3TunnelIntfKey(t.key)); }));
}

// The row each configured key uses, in row order.
std::vector<Binding> configuredRows(const IngL3IifTable& table, const Config& config) {
   std::vector<Binding> rows;
   rows.reserve(config.tunnels.size());
   for (const auto& t : config.tunnels) {
      const Asic::Index index = table.hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey(t.key));
      if (index != Asic::kInvalidIndex) {
         rows.push_back(Binding{t.key, index});
      }
   }
   std::sort(rows.begin(), rows.end(),
             [](const Binding& a, const Binding& b) { return a.row < b.row; });
   return rows;
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
   ChipAndStore opened = openChipAndStore(config, options);
   const std::unique_ptr<StateStore> store = std::move(opened.store);
   report.restart = opened.restart;
   // A dry run works on a copy; the chip as it was found stays as it is.
   SimChip chip(options.dryRun ? ChipState::copyOf(opened.chip) : std::move(opened.chip));
   if (options.recordChip && options.dryRun) {
      report.chipBefore = std::make_shared<const ChipState>(std::move(opened.chip));
   }
   chip.ackPolicyIs(options.ackPolicy);
   chip.journalIs(options.dryRun ? nullptr : store.get(), options.writesPerCommit);
   const std::uint32_t rows = chip.state().decapRows();
   const std::vector<bool> before = valuedRows(chip.state());
   report.unboundRows =
       opened.storeMade && std::find(before.begin(), before.end(), true) != before.end();

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
      bindRemembered(*table, store.get(), options, report);
   }
   replay(*table, profiles, chip, config, options);
   report.entriesCommitted = config.tunnels.size();
   finishInitialisation(*table, profiles, chip, completions);

   countOutcome(*table, chip, profiles, report);
   report.entriesNotInHardware = entriesNotInHardware(*table, config);
   if (options.recordChip) {
      report.keysAfter = configuredRows(*table, config);
   }
   report.rows = rowFates(chip, before);
   if (!options.dryRun) {
      chip.state().sync();
      // A binding of a row valued at the start is in use, or went when the purge deleted it.
      store->finish([&](const Binding& b) {
         return before[b.row] ||
                table->hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey(b.key)) == b.row;
      });
   }
   report.storeSeconds = store ? store->seconds() : 0;
   if (options.keepTable) {
      report.table = end.leave();
   } else {
      end.now();
   }
   if (options.recordChip && options.dryRun) {
      report.chipAfter = std::make_shared<const ChipState>(std::move(chip.state()));
   }
   report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   return report;
}

}  // namespace Sim
