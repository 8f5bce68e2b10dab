// The agent's whole job against a simulated chip: one agent life that programs a configuration
// of profiles and tunnel interfaces. With a new chip it is a cold start; with a chip that already
// holds rows it is a hitless restart in the order an agent uses: hardware-table recovery,
// read-back (syncEntries), binding every key to the index the previous instance reported (kept in
// the agent's state file beside the chip file), configuration replay with reconciliation, end of
// initialisation, purge of stale rows. The agent then ends as a process does: the chip keeps its
// rows.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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
   std::size_t keysBound = 0;       // bindings taken from the state file
   std::size_t handlesNotInHardware = 0;  // committed entries that did not reach hardware
   double seconds = 0;
   std::vector<RowFate> rows;       // per decap row
   // The row each configured key uses, as the agent reports it to its next instance.
   std::map<std::uint64_t, std::uint32_t> keyIndices;
   // With RunOptions::recordChip: in-memory copies of the chip's tables as they were before the
   // run and as the run left them (a dry run's only trace of what it would write).
   std::shared_ptr<const ChipState> chipBefore;
   std::shared_ptr<const ChipState> chipAfter;
};

// The agent's own state store: key to index, as the previous instance reported them.
struct KeyIndexStore {
   static std::string pathFor(const std::string& chipFile) { return chipFile + ".keys"; }
   // Reads a store; nothing when the file does not exist. Throws std::runtime_error naming the
   // file, the line and the problem for a damaged one.
   static std::optional<std::map<std::uint64_t, std::uint32_t>> read(const std::string& path,
                                                                    std::uint32_t rows);
   // Replaces the store atomically (write a temporary file, then rename).
   static void write(const std::string& path, const std::map<std::uint64_t, std::uint32_t>& keys);
};

struct RunOptions {
   std::string chipFile;
   std::uint32_t rows = ChipState::kDefaultDecapRows;  // for a new chip file
   AckPolicy ackPolicy;
   bool useKeyStore = true;
   bool dryRun = false;  // run on an in-memory copy of the chip; write nothing
   bool recordChip = false;  // fill RunReport::chipBefore and chipAfter
   // Called now and then with (done, total) while the configuration is replayed.
   std::function<void(std::size_t, std::size_t)> progress;
};

// Runs one agent life. Throws ChipStateError or std::runtime_error (with the file and the
// problem) before anything is written when the chip file or the state file cannot be used.
RunReport runAgent(const Config& config, const RunOptions& options);

}  // namespace Sim
