// The agent's whole job against a simulated chip: one agent life that programs a configuration
// of profiles and tunnel interfaces. With a new chip it is a cold start; with a chip that already
// holds rows it is a hitless restart in the order an agent uses: hardware-table recovery,
// read-back (syncEntries), binding every key to the index the previous instance reported (kept in
// the agent's state store beside the chip file, StateStore.h), configuration replay with
// reconciliation, end of initialisation, purge of stale rows. The agent then ends as a process
// does: the chip keeps its rows. A life killed at any moment leaves a chip and a store from which
// the next life adopts every row whose content is right.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/ChipLock.h"
#include "sim/ChipState.h"
#include "sim/SimChip.h"

namespace Sim {

struct TunnelConfig {
   std::uint64_t key = 0;
   std::uint32_t profileId = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;
   bool operator==(const TunnelConfig&) const = default;
};

struct Config {
   std::vector<std::uint32_t> profiles;
   std::vector<TunnelConfig> tunnels;
};

// What happened to one decap row in a run.
enum class RowFate : std::uint8_t { free, adopted, rewritten, created, purged, kept };
const char* rowFateName(RowFate fate) noexcept;

struct RunReport {
   bool restart = false;
   std::size_t entriesCommitted = 0;
   std::uint64_t rowsWritten = 0;   // decap row writes
   std::uint64_t rowsDeleted = 0;   // decap row deletes
   std::uint64_t adopted = 0;       // rows taken over without a write
   std::uint64_t rewritten = 0;     // rows rewritten in place
   std::uint64_t created = 0;       // entries programmed as new
   std::uint64_t purged = 0;        // stale rows deleted
   std::uint64_t profileRowsWritten = 0;
   std::uint64_t profileRowsDeleted = 0;
   std::uint64_t profilesAdopted = 0;
   std::size_t indicesInUse = 0;
   std::size_t keysBound = 0;       // bindings taken from the state store
   std::size_t handlesNotInHardware = 0;  // committed entries that did not reach hardware
   bool unboundRows = false;        // the chip held rows but had no state store: none was bound
   double seconds = 0;
   double storeSeconds = 0;         // of which in the state store
   std::vector<RowFate> rows;       // per decap row
   // The row each configured key uses, as the agent reports it to its next instance.
   std::map<std::uint64_t, std::uint32_t> keyIndices;
   // With RunOptions::recordChip: in-memory copies of the chip's tables as they were before the
   // run and as the run left them (a dry run's only trace of what it would write), and the
   // bindings the state store held before.
   std::shared_ptr<const ChipState> chipBefore;
   std::shared_ptr<const ChipState> chipAfter;
   std::map<std::uint64_t, std::uint32_t> keyIndicesBefore;
};

struct RunOptions {
   std::string chipFile;
   std::uint32_t rows = ChipState::kDefaultDecapRows;  // for a new chip file
   AckPolicy ackPolicy;
   // Chip writes per state-store commit: the store's share of a run stays small while each
   // commit stays fast (docs/RELIABILITY.md).
   std::size_t writesPerCommit = 4096;
   bool dryRun = false;  // run on an in-memory copy of the chip; write nothing
   bool recordChip = false;  // fill RunReport::chipBefore, chipAfter and keyIndicesBefore
   // Called now and then with (done, total) while the configuration is replayed.
   std::function<void(std::size_t, std::size_t)> progress;
};

// Runs one agent life under the chip's lock (exclusive; shared is enough for a dry run). Throws
// ChipStateError or StateStoreError (with the file and the problem) before anything is written
// when the chip file or the state store cannot be used, or do not belong together.
RunReport runAgent(const Config& config, const RunOptions& options, const ChipLock& lock);

}  // namespace Sim
