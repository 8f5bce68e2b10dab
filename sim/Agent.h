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
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/ChipLock.h"
#include "sim/ChipState.h"
#include "sim/SimChip.h"
#include "sim/StateStore.h"

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

// What happened to one decap row in a run. A row may be purged and then given to a new entry in the
// same run: `replaced` is both, counted as purged and as new.
enum class RowFate : std::uint8_t { free, adopted, rewritten, created, purged, replaced };
const char* rowFateName(RowFate fate) noexcept;

// The configuration or the options do not fit the chip (too many tunnels for its rows, --rows
// against a chip of another size); found before either file is touched.
class ChipSizeError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

struct RunReport {
   bool restart = false;
   std::size_t entriesCommitted = 0;
   std::uint64_t rowWrites = 0;      // decap row writes (a row written twice counts twice)
   std::uint64_t rowDeletes = 0;     // decap row deletes
   std::uint64_t rowsAdopted = 0;    // rows taken over without a write
   std::uint64_t rowsRewritten = 0;  // rows rewritten in place
   std::uint64_t newEntries = 0;     // entries programmed as new (each on a row of its own)
   std::uint64_t rowsPurged = 0;     // stale rows deleted
   std::uint64_t profileRowWrites = 0;
   std::uint64_t profileRowDeletes = 0;
   std::uint64_t profileRowsAdopted = 0;
   std::size_t indicesInUse = 0;
   std::size_t keysBound = 0;             // bindings taken from the state store
   std::size_t entriesNotInHardware = 0;  // committed entries that did not reach hardware
   bool unboundRows = false;  // the chip held rows but had no state store: none was bound
   double seconds = 0;
   double storeSeconds = 0;    // of which in the state store
   std::vector<RowFate> rows;  // per decap row
   // With RunOptions::recordChip: the chip as the run found it (the file's read-only mapping, or
   // a new chip) and as it left it (a dry run's in-memory chip), and which key used each row
   // before (the state store's bindings) and after (the configured keys), both in row order.
   std::shared_ptr<const ChipState> chipBefore;
   std::shared_ptr<const ChipState> chipAfter;
   std::vector<Binding> keysBefore;
   std::vector<Binding> keysAfter;
   // With RunOptions::keepTable: the table as the life left it, without its Util (it can no
   // longer touch the chip). A caller about to end its process keeps it: tearing down a table
   // of a million entries costs about a second, and the process's end frees it anyway.
   std::shared_ptr<void> table;
};

struct RunOptions {
   std::string chipFile;
   // Decap rows of a new chip file; when given for an existing one, they must be its.
   std::optional<std::uint32_t> rows;
   AckPolicy ackPolicy;
   // Chip writes per state-store commit: the store's share of a run stays small while each
   // commit stays fast (docs/RELIABILITY.md).
   std::size_t writesPerCommit = 4096;
   bool dryRun = false;      // run on an in-memory copy of the chip; write nothing
   bool recordChip = false;  // fill RunReport::chipBefore, chipAfter, keysBefore and keysAfter
   bool keepTable = false;   // fill RunReport::table
   // Called now and then with (done, total) while the configuration is replayed.
   std::function<void(std::size_t, std::size_t)> progress;
};

// Runs one agent life under the chip's lock (exclusive; shared is enough for a dry run). Throws
// ChipStateError or StateStoreError (with the file and the problem), or ChipSizeError, before
// anything is written when the chip file or the state store cannot be used, do not belong
// together, or the configuration does not fit the chip.
RunReport runAgent(const Config& config, const RunOptions& options, const ChipLock& lock);

}  // namespace Sim
