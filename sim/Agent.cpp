#include "sim/Agent.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "Asic/ChipProfile.h"
#include "Asic/PluginLoader.h"
#include "Asic/Recovery.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"
#include "Vosk/StateDb.h"
#include "sim/ProfileTable.h"

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

// ===== the key store =====

std::optional<std::map<std::uint64_t, std::uint32_t>> KeyIndexStore::read(const std::string& path,
                                                                          std::uint32_t rows) {
   std::ifstream in(path);
   if (!in) {
      return std::nullopt;
   }
   std::map<std::uint64_t, std::uint32_t> keys;
   std::set<std::uint32_t> indices;
   std::string line;
   for (std::size_t number = 1; std::getline(in, line); ++number) {
      const auto fail = [&](const std::string& why) {
         // NOLINTNEXTLINE(performance-inefficient-string-concatenation): once, on the error path
         throw std::runtime_error(path + ":" + std::to_string(number) + ": " + why);
      };
      if (line.empty() || line.front() == '#') {
         continue;
      }
      std::istringstream fields(line);
      std::uint64_t key = 0;
      std::int64_t index = -1;
      std::string rest;
      if (!(fields >> key >> index) || (fields >> rest)) {
         fail("expected '<key> <index>', found '" + line + "'");
      }
      if (index < 0 || index >= static_cast<std::int64_t>(rows)) {
         fail("index " + std::to_string(index) + " is outside the table (0 to " +
              std::to_string(rows - 1) + ")");
      }
      if (!keys.emplace(key, static_cast<std::uint32_t>(index)).second) {
         fail("key " + std::to_string(key) + " appears twice");
      }
      if (!indices.insert(static_cast<std::uint32_t>(index)).second) {
         fail("index " + std::to_string(index) + " is given to two keys");
      }
   }
   return keys;
}

void KeyIndexStore::write(const std::string& path,
                          const std::map<std::uint64_t, std::uint32_t>& keys) {
   const std::string temporary = path + ".tmp";
   {
      std::ofstream out(temporary, std::ios::trunc);
      out << "# key index: the decap row each tunnel key used, for the next agent instance\n";
      for (const auto& [key, index] : keys) {
         out << key << ' ' << index << '\n';
      }
      if (!out.flush()) {
         throw std::runtime_error(temporary + ": cannot write the agent's key store");
      }
   }
   if (std::rename(temporary.c_str(), path.c_str()) != 0) {
      throw std::runtime_error(path + ": cannot replace the agent's key store");
   }
}

// ===== one agent life =====

namespace {

bool fileExists(const std::string& path) {
   struct stat st {};
   return ::stat(path.c_str(), &st) == 0;
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

ChipState openChip(const RunOptions& options, bool& restart) {
   restart = fileExists(options.chipFile);
   if (options.dryRun) {
      return restart ? ChipState::copyOf(ChipState::open(options.chipFile, false))
                     : ChipState::inMemory(options.rows);
   }
   return restart ? ChipState::open(options.chipFile) : ChipState::create(options.chipFile, options.rows);
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

RunReport runAgent(const Config& config, const RunOptions& options) {
   validate(config);
   if (Asic::UtilFactories::factory(IngL3IifTable::kTypeName) == nullptr) {
      throw std::runtime_error(
          "no chip plug-in for the simulated chip was loaded (see the plug-in search path in "
          "README.md)");
   }
   const auto start = std::chrono::steady_clock::now();
   RunReport report;
   const std::string storePath = KeyIndexStore::pathFor(options.chipFile);
   SimChip chip(openChip(options, report.restart));
   chip.ackPolicyIs(options.ackPolicy);
   const std::uint32_t rows = chip.state().decapRows();
   const auto bindings = report.restart && options.useKeyStore
                             ? KeyIndexStore::read(storePath, rows)
                             : std::nullopt;
   const std::vector<bool> before = valuedRows(chip.state());
   if (options.recordChip) {
      report.chipBefore = std::make_shared<const ChipState>(ChipState::copyOf(chip.state()));
   }

   ProfileTable profiles(chip);
   if (report.restart) {
      profiles.readBack();
   }
   auto table = TalvikL3Decap::ingL3IifTableFactory();
   table->setUp(Fwk::make<Asic::HwTable>("IngL3IifDecap", rows), simChipProfile(), rows);
   auto* completions =
       dynamic_cast<WriteCompletions*>(const_cast<IngL3IifTable::Util*>(table->util()));
   if (report.restart) {
      recover(*table);
      for (const auto& [key, index] : bindings.value_or(std::map<std::uint64_t, std::uint32_t>{})) {
         table->bindKeyToIndex(L3TunnelIntfKey(key), index);
         ++report.keysBound;
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
   }
   report.entriesCommitted = config.tunnels.size();

   profiles.initComplete();
   deliverAll(completions, profiles, false);
   table->doInitComplete();
   deliverAll(completions, profiles, false);
   table->purgeStaleEntries();
   profiles.purgeStale();
   deliverAll(completions, profiles, true);

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
      KeyIndexStore::write(storePath, reported);
   }
   report.keyIndices = std::move(reported);

   // The agent ends as a process does: the chip keeps every row.
   table->utilIs(nullptr);
   table->cleanup();
   table = nullptr;
   report.seconds =
       std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
   return report;
}

}  // namespace Sim
