// The table's benchmark suite: per-entry costs of its hot paths at 4,096, 65,536 and 1,048,576
// entries, each next to the hand-written baseline (Baseline.h) measured in the same run.
//
// Every measurement is one parameterised benchmark, registered once per size (and variant) as
// "<measurement>/<ours|baseline|variant>/<entries>[/<percent changed>]". The baseline of a
// measurement runs just before ours, so that ours can report `ratio` = ours / baseline.
//
// Counters: n (entries), ns_per_entry, allocs_per_entry and frees_per_entry (calls to operator
// new and delete per entry in the measured section), ratio; restart adds entries_per_s; memory reports bytes_per_entry,
// table_bytes_per_entry, alloc_min_per_commit, sync_bytes_per_row and their ratios.
//
// Built twice (bench/CMakeLists.txt): against the library as shipped, and against a copy of the
// library compiled with L3DECAP_TRACE_COMPILED_OUT, which registers only the commit path with
// tracing compiled out (and its baseline).
//
// `l3decap_bench --alloc-breakdown` prints the sizes of the allocations of one commit, one
// re-commit, one removal and one row read back, then exits.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "Baseline.h"
#include "BenchTable.h"
#include "Fwk/Trace.h"

namespace Bench {
namespace {

using S = Asic::SwTableBase;
using HandlePtr = Fwk::Ptr<const S::EntryHandle>;

#if defined(L3DECAP_TRACE_COMPILED_OUT)
constexpr bool kTraceCompiledOut = true;
#else
constexpr bool kTraceCompiledOut = false;
#endif

constexpr std::uint8_t kProfileIndex = 7;
constexpr std::uint32_t kSizes[] = {4096, 65536, 1048576};

// Iterations per size: about a quarter of a million entries per measurement, and one pass at a
// million entries, so the whole suite stays within a few minutes on a small machine.
// L3DECAP_BENCH_ITERATIONS overrides it (profiling runs under valgrind use 1).
int iterationsFor(std::uint32_t n) {
   if (const char* forced = std::getenv("L3DECAP_BENCH_ITERATIONS")) {
      return std::max(1, std::atoi(forced));
   }
   return n >= 1048576 ? 1 : static_cast<int>(262144 / n);
}

// Repetitions of a timed measurement (the report takes the fastest); one when profiling.
int repetitionsFor(std::uint32_t n, int belowAMillion, int atAMillion = 1) {
   if (std::getenv("L3DECAP_BENCH_ITERATIONS") != nullptr) {
      return 1;
   }
   return n < 1048576 ? belowAMillion : atAMillion;
}

// The i-th key: spread over the 64-bit space (an odd multiplier is a bijection).
L3TunnelIntfKey keyOf(std::uint64_t i) {
   return L3TunnelIntfKey((i + 1) * 0x9E3779B97F4A7C15ULL);
}

std::vector<L3TunnelIntfKey> keysFor(std::uint32_t n) {
   std::vector<L3TunnelIntfKey> keys;
   keys.reserve(n);
   for (std::uint32_t i = 0; i < n; ++i) {
      keys.push_back(keyOf(i));
   }
   return keys;
}

std::uint32_t vrfOf(std::uint64_t i, std::uint32_t generation) {
   return static_cast<std::uint32_t>(i) + generation * 0x01000000U;
}

// The i-th entry's value in a generation; every entry needs the ready profile entry.
Entry valueOf(const Fwk::Ptr<ProfileHandle>& profile, std::uint64_t i, std::uint32_t generation) {
   return Entry(profile, 0, true, (i & 1U) != 0, false, vrfOf(i, generation));
}

// The row the chip holds for that value.
Row rowFor(std::uint64_t i, std::uint32_t generation) {
   return Row{true, kProfileIndex, true, (i & 1U) != 0, false, vrfOf(i, generation)};
}

bool changedAt(std::uint64_t i, std::int64_t percent) {
   return percent >= 100 || (percent > 0 && i % (100 / static_cast<std::uint64_t>(percent)) == 0);
}

// --- measuring ---

struct Measure {
   double seconds = 0;
   std::uint64_t entries = 0;
   std::uint64_t allocations = 0;
   std::uint64_t frees = 0;
};

// Runs `body` (which handles `entries` entries) under the clock and the heap counters; returns
// its time in seconds for the manual-time benchmark. Never inlined: profiles collect exactly the
// measured sections with valgrind's --toggle-collect='*measured*'.
//
// The clock is the thread's CPU time: the machine is shared, and time spent waiting for a core
// while others run says nothing about the code (cache pollution by the others still shows).
double cpuSeconds() noexcept {
   timespec ts{};
   clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
   return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

template <class Body>
[[gnu::noinline]] double measured(Measure& m, std::uint64_t entries, Body&& body) {
   const Heap::Snapshot h0 = Heap::now();
   const double t0 = cpuSeconds();
   body();
   const double t1 = cpuSeconds();
   const Heap::Snapshot h1 = Heap::now();
   const double s = t1 - t0;
   m.seconds += s;
   m.entries += entries;
   m.allocations += h1.allocations - h0.allocations;
   m.frees += h1.frees - h0.frees;
   return s;
}

// Baseline nanoseconds per entry (or bytes) by measurement, filled as the baselines run.
std::map<std::string, double>& baselines() {
   static std::map<std::string, double> b;
   return b;
}

std::string slot(std::string_view measurement, const benchmark::State& state) {
   return std::string(measurement) + "/" + std::to_string(state.range(0));
}

// Publishes the counters of a time measurement; a baseline records itself under `baselineSlot`,
// ours reads it for the ratio.
void publish(benchmark::State& state, const std::string& baselineSlot, bool ours,
             const Measure& m) {
   if (m.entries == 0) {
      return;
   }
   const double ns = m.seconds * 1e9 / static_cast<double>(m.entries);
   state.counters["n"] = static_cast<double>(state.range(0));
   state.counters["ns_per_entry"] = ns;
   state.counters["allocs_per_entry"] =
       static_cast<double>(m.allocations) / static_cast<double>(m.entries);
   // Blocks freed in the measured section: transient allocations (and, rarely, a collection's
   // old bucket array when it grows).
   state.counters["frees_per_entry"] =
       static_cast<double>(m.frees) / static_cast<double>(m.entries);
   if (!ours) {
      baselines()[baselineSlot] = ns;
   } else if (const auto it = baselines().find(baselineSlot); it != baselines().end()) {
      state.counters["ratio"] = ns / it->second;
   }
}

#define BENCH_CHECK(state, condition)                                       \
   do {                                                                     \
      if (!(condition)) {                                                   \
         (state).SkipWithError("check failed: " #condition);                \
         return;                                                            \
      }                                                                     \
   } while (0)

// --- building blocks ---

// Commits every key (client holding the handles), delivering each write's completion right after
// its commit: the full life of an entry in normal operation.
void commitAll(Instance& in, const std::vector<L3TunnelIntfKey>& keys,
               const Fwk::Ptr<ProfileHandle>& profile, std::vector<HandlePtr>& handles,
               std::uint32_t generation = 0) {
   IngL3IifTable& t = *in.table;
   ChipUtil& util = *in.util;
   for (std::size_t i = 0; i < keys.size(); ++i) {
      handles.push_back(t.entryCommit(keys[i], valueOf(profile, i, generation)));
      util.ackAll(t);
   }
}

bool allAcknowledged(const Instance& in, std::uint64_t expected) {
   return in.table->writeResponseSm()->acknowledgements() == expected;
}

// --- measurements ---

// The full life of an entry: commit with a ready profile, programming, acknowledgement.
// `before` and `after` run just before and just after each measured section.
void commitLifeOurs(benchmark::State& state, const std::string& baselineSlot,
                    const std::function<void()>& before = {},
                    const std::function<void()>& after = {}) {
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const auto keys = keysFor(n);
   const auto profile = ProfileHandle::make(S::success, kProfileIndex);
   std::vector<HandlePtr> handles;
   handles.reserve(n);
   Measure m;
   for (auto _ : state) {
      Instance in(std::make_shared<Chip>(n), n, true);
      if (before) {
         before();
      }
      state.SetIterationTime(measured(m, n, [&] { commitAll(in, keys, profile, handles); }));
      if (after) {
         after();
      }
      BENCH_CHECK(state, allAcknowledged(in, n) && in.chip->writes == n);
      handles.clear();
   }
   publish(state, baselineSlot, true, m);
}

void commitLife(benchmark::State& state, bool ours) {
   if (ours) {
      commitLifeOurs(state, slot("commit_life", state));
      return;
   }
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const auto keys = keysFor(n);
   Measure m;
   for (auto _ : state) {
      auto chip = std::make_shared<Chip>(n);
      Baseline b(chip, n);
      state.SetIterationTime(measured(m, n, [&] {
         for (std::uint32_t i = 0; i < n; ++i) {
            b.commit(keys[i], rowFor(i, 0));
         }
      }));
      BENCH_CHECK(state, chip->writes == n && b.size() == n);
   }
   publish(state, slot("commit_life", state), false, m);
}

// Re-commit of a changed value, with its acknowledgement; every pass changes every value.
void recommit(benchmark::State& state, bool ours) {
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const auto keys = keysFor(n);
   Measure m;
   std::uint32_t generation = 0;
   if (ours) {
      const auto profile = ProfileHandle::make(S::success, kProfileIndex);
      Instance in(std::make_shared<Chip>(n), n, true);
      std::vector<HandlePtr> handles;
      handles.reserve(n);
      commitAll(in, keys, profile, handles);
      IngL3IifTable& t = *in.table;
      for (auto _ : state) {
         ++generation;
         state.SetIterationTime(measured(m, n, [&] {
            for (std::uint32_t i = 0; i < n; ++i) {
               t.entryCommit(keys[i], valueOf(profile, i, generation));
               in.util->ackAll(t);
            }
         }));
      }
      BENCH_CHECK(state, allAcknowledged(in, std::uint64_t{n} * (generation + 1)));
      BENCH_CHECK(state, in.chip->rows[t.hwIndexOnlyForCrossAgentCommunication(keys[n - 1])] ==
                             rowFor(n - 1, generation));
   } else {
      auto chip = std::make_shared<Chip>(n);
      Baseline b(chip, n);
      for (std::uint32_t i = 0; i < n; ++i) {
         b.commit(keys[i], rowFor(i, 0));
      }
      for (auto _ : state) {
         ++generation;
         state.SetIterationTime(measured(m, n, [&] {
            for (std::uint32_t i = 0; i < n; ++i) {
               b.commit(keys[i], rowFor(i, generation));
            }
         }));
      }
      BENCH_CHECK(state, chip->writes == std::uint64_t{n} * (generation + 1));
   }
   publish(state, slot("recommit", state), ours, m);
}

// Removal: entryRemove, the client's handle released, the delete dance to its end (the empty row
// acknowledged and the row deleted).
void removal(benchmark::State& state, bool ours) {
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const auto keys = keysFor(n);
   Measure m;
   for (auto _ : state) {
      auto chip = std::make_shared<Chip>(n);
      if (ours) {
         const auto profile = ProfileHandle::make(S::success, kProfileIndex);
         Instance in(chip, n, true);
         std::vector<HandlePtr> handles;
         handles.reserve(n);
         commitAll(in, keys, profile, handles);
         IngL3IifTable& t = *in.table;
         state.SetIterationTime(measured(m, n, [&] {
            for (std::uint32_t i = 0; i < n; ++i) {
               t.entryRemove(keys[i]);
               handles[i] = nullptr;
               in.util->ackAll(t);
            }
         }));
         BENCH_CHECK(state, t.entrys() == 0 && t.resolvedEntrys() == 0);
         BENCH_CHECK(state, t.indexAllocator()->totalUsedIndices() == 0);
         BENCH_CHECK(state, chip->deletes == n && chip->validRows() == 0);
         BENCH_CHECK(state, allAcknowledged(in, 2 * std::uint64_t{n}));
      } else {
         Baseline b(chip, n);
         for (std::uint32_t i = 0; i < n; ++i) {
            b.commit(keys[i], rowFor(i, 0));
         }
         state.SetIterationTime(measured(m, n, [&] {
            for (std::uint32_t i = 0; i < n; ++i) {
               b.remove(keys[i]);
            }
         }));
         BENCH_CHECK(state, b.size() == 0 && chip->validRows() == 0);
      }
   }
   publish(state, slot("remove", state), ours, m);
}

// A hitless restart of a table holding n entries: read-back, keys bound to the indices the
// previous instance reported, replay with `percent` of the values changed, end of
// initialisation, purge, and the acknowledgements of the rewritten rows.
void restart(benchmark::State& state, bool ours) {
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const std::int64_t percent = state.range(1);
   const auto keys = keysFor(n);
   std::uint64_t changed = 0;
   for (std::uint32_t i = 0; i < n; ++i) {
      changed += changedAt(i, percent) ? 1 : 0;
   }
   const auto generationOf = [percent](std::uint32_t i) { return changedAt(i, percent) ? 1U : 0U; };
   Measure m;
   for (auto _ : state) {
      auto chip = std::make_shared<Chip>(n);
      std::vector<Asic::Index> reported(n);
      if (ours) {
         const auto profile = ProfileHandle::make(S::success, kProfileIndex);
         {
            Instance before(chip, n, true);
            std::vector<HandlePtr> handles;
            handles.reserve(n);
            commitAll(before, keys, profile, handles);
            for (std::uint32_t i = 0; i < n; ++i) {
               reported[i] = before.table->hwIndexOnlyForCrossAgentCommunication(keys[i]);
            }
            handles.clear();
            before.dieQuietly();
         }
         const std::uint64_t writesBefore = chip->writes;
         Instance after(chip, n, false);
         IngL3IifTable& t = *after.table;
         state.SetIterationTime(measured(m, n, [&] {
            t.syncEntries();
            for (std::uint32_t i = 0; i < n; ++i) {
               t.bindKeyToIndex(keys[i], reported[i]);
            }
            for (std::uint32_t i = 0; i < n; ++i) {
               t.entryCommit(keys[i], valueOf(profile, i, generationOf(i)));
            }
            t.doInitComplete();
            t.purgeStaleEntries();
            after.util->ackAll(t);
         }));
         BENCH_CHECK(state, chip->writes - writesBefore == changed);
         BENCH_CHECK(state, t.syncedEntrys() == 0 && chip->validRows() == n);
         BENCH_CHECK(state, t.statistics().count(Asic::SwTable::reconciledMatch) == n - changed);
         BENCH_CHECK(state, allAcknowledged(after, changed));
         BENCH_CHECK(state, t.hwIndexOnlyForCrossAgentCommunication(keys[n / 2]) ==
                                reported[n / 2]);
      } else {
         std::vector<Row> wanted(n);
         {
            Baseline before(chip, n);
            for (std::uint32_t i = 0; i < n; ++i) {
               before.commit(keys[i], rowFor(i, 0));
               reported[i] = before.index(keys[i]);
               wanted[i] = rowFor(i, generationOf(i));
            }
         }
         const std::uint64_t writesBefore = chip->writes;
         Baseline after(chip, n);
         state.SetIterationTime(measured(m, n, [&] { after.restart(keys, reported, wanted); }));
         BENCH_CHECK(state, chip->writes - writesBefore == changed && chip->validRows() == n);
      }
   }
   publish(state, slot("restart", state) + "/" + std::to_string(percent), ours, m);
   if (m.seconds > 0) {
      state.counters["entries_per_s"] = static_cast<double>(m.entries) / m.seconds;
   }
}

// The commit path with tracing disabled, enabled to a memory sink, or compiled out (the second
// build); its ratio is against the hand-written commit of the same run.
enum TraceMode : int { traceDisabled = 0, traceToMemory = 1, traceCompiledOut = 2 };

void traceCommit(benchmark::State& state, TraceMode mode) {
   const std::string handleName(IngL3IifTable::kTypeName);
   std::shared_ptr<Fwk::Trace::MemorySink> sink;
   std::shared_ptr<Fwk::Trace::Sink> previous;
   if (mode == traceToMemory) {
      sink = std::make_shared<Fwk::Trace::MemorySink>();
      previous = Fwk::Trace::sinkIs(sink);
      Fwk::Trace::configure(handleName + "=0-31");
   } else {
      Fwk::Trace::configure(handleName + "=none");
   }
   std::uint64_t lines = 0;
   commitLifeOurs(
       state, slot("commit_life", state),
       [&] {
          if (sink) {
             sink->clear();  // what set-up and the previous teardown traced
          }
       },
       [&] {
          if (sink) {
             lines += sink->records().size();
          }
       });
   if (sink) {
      state.counters["trace_lines_per_entry"] =
          static_cast<double>(lines) /
          (static_cast<double>(state.range(0)) * static_cast<double>(state.iterations()));
      Fwk::Trace::configure(handleName + "=none");
      Fwk::Trace::sinkIs(previous);
   }
}

// Live heap bytes less the free space of the process-wide pool entry handles come from: earlier
// benchmarks leave freed handles there, which later commits reuse, and free space is no entry's.
std::int64_t heldBytes() {
   return Heap::now().liveBytes -
          static_cast<std::int64_t>(IngL3IifTable::EntryHandle::pool().bytesFree());
}

// Heap held per committed entry (live bytes after committing n entries, the table sized to n,
// divided by n), allocations per commit in steady state, and the extra heap per row read back
// during a restart.
void memory(benchmark::State& state, bool ours) {
   const auto n = static_cast<std::uint32_t>(state.range(0));
   const auto keys = keysFor(n);
   struct Tracking {
      Tracking() { Heap::trackBytesIs(true); }
      ~Tracking() { Heap::trackBytesIs(false); }
   } tracking;
   for (auto _ : state) {
      auto chip = std::make_shared<Chip>(n);
      double bytes = 0;
      double tableBytes = 0;
      double allocsPerEntry = 0;
      std::uint64_t minPerCommit = ~std::uint64_t{0};
      double syncBytes = 0;
      const auto profile = ProfileHandle::make(S::success, kProfileIndex);
      const Heap::Snapshot h0 = Heap::now();
      if (ours) {
         const std::int64_t held0 = heldBytes();
         {
            Instance in(chip, n, true);
            IngL3IifTable& t = *in.table;
            const Heap::Snapshot h1 = Heap::now();
            const std::int64_t held1 = heldBytes();
            for (std::uint32_t i = 0; i < n; ++i) {
               const Heap::Snapshot c0 = Heap::now();
               t.entryCommit(keys[i], valueOf(profile, i, 0));
               in.util->ackAll(t);
               minPerCommit = std::min(minPerCommit, Heap::now().allocations - c0.allocations);
            }
            const Heap::Snapshot h2 = Heap::now();
            const std::int64_t held2 = heldBytes();
            BENCH_CHECK(state, allAcknowledged(in, n));
            tableBytes = static_cast<double>(held1 - held0) / n;
            bytes = static_cast<double>(held2 - held0) / n;
            allocsPerEntry = static_cast<double>(h2.allocations - h1.allocations) / n;
            in.dieQuietly();
         }
         Instance after(chip, n, false);
         const Heap::Snapshot h3 = Heap::now();
         after.table->syncEntries();
         const Heap::Snapshot h4 = Heap::now();
         BENCH_CHECK(state, after.table->syncedEntrys() == n);
         syncBytes = static_cast<double>(h4.liveBytes - h3.liveBytes) / n;
      } else {
         {
            Baseline b(chip, n);
            const Heap::Snapshot h1 = Heap::now();
            for (std::uint32_t i = 0; i < n; ++i) {
               const Heap::Snapshot c0 = Heap::now();
               b.commit(keys[i], rowFor(i, 0));
               minPerCommit = std::min(minPerCommit, Heap::now().allocations - c0.allocations);
            }
            const Heap::Snapshot h2 = Heap::now();
            tableBytes = static_cast<double>(h1.liveBytes - h0.liveBytes) / n;
            bytes = static_cast<double>(h2.liveBytes - h0.liveBytes) / n;
            allocsPerEntry = static_cast<double>(h2.allocations - h1.allocations) / n;
         }
         // The hand-written restart's read-back: a copy of the rows and a taken flag per row.
         const Heap::Snapshot h3 = Heap::now();
         {
            const std::vector<Row> readBack = chip->rows;
            const std::vector<bool> taken(readBack.size(), false);
            syncBytes = static_cast<double>(Heap::now().liveBytes - h3.liveBytes) / n;
            benchmark::DoNotOptimize(readBack.data());
         }
      }
      state.counters["n"] = n;
      state.counters["bytes_per_entry"] = bytes;
      state.counters["table_bytes_per_entry"] = tableBytes;
      state.counters["allocs_per_entry"] = allocsPerEntry;
      state.counters["alloc_min_per_commit"] = static_cast<double>(minPerCommit);
      state.counters["sync_bytes_per_row"] = syncBytes;
      const std::string s = slot("memory", state);
      if (!ours) {
         baselines()[s + "/bytes"] = bytes;
         baselines()[s + "/sync"] = syncBytes;
      } else {
         if (const auto it = baselines().find(s + "/bytes"); it != baselines().end()) {
            state.counters["ratio"] = bytes / it->second;
         }
         if (const auto it = baselines().find(s + "/sync"); it != baselines().end()) {
            state.counters["sync_ratio"] = syncBytes / it->second;
         }
      }
   }
}

// --- the allocation breakdown ---

void printRecorded(const char* what, std::size_t count,
                   const std::size_t (&sizes)[Heap::kMaxRecorded]) {
   std::printf("%-28s %2zu allocation(s):", what, count);
   std::size_t total = 0;
   for (std::size_t i = 0; i < count && i < Heap::kMaxRecorded; ++i) {
      std::printf(" %zu", sizes[i]);
      total += sizes[i];
   }
   std::printf("  (%zu bytes)\n", total);
}

int allocBreakdown() {
   constexpr std::uint32_t n = 4096;
   const auto keys = keysFor(n);
   const auto profile = ProfileHandle::make(S::success, kProfileIndex);
   auto chip = std::make_shared<Chip>(n);
   std::size_t sizes[Heap::kMaxRecorded];
   std::vector<HandlePtr> handles;
   handles.reserve(n);
   {
      Instance in(chip, n, true);
      IngL3IifTable& t = *in.table;
      // Commit most keys first, so that no collection grows during the recorded operations, and
      // re-commit and remove one of them, so that what is built once per process is built.
      for (std::uint32_t i = 0; i + 2 < n; ++i) {
         handles.push_back(t.entryCommit(keys[i], valueOf(profile, i, 0)));
         in.util->ackAll(t);
      }
      t.entryCommit(keys[0], valueOf(profile, 0, 1));
      in.util->ackAll(t);
      t.entryRemove(keys[0]);
      handles[0] = nullptr;
      in.util->ackAll(t);
      const std::uint32_t last = n - 2;
      Heap::recordingBegin();
      handles.push_back(t.entryCommit(keys[last], valueOf(profile, last, 0)));
      printRecorded("commit", Heap::recordingEnd(sizes), sizes);
      Heap::recordingBegin();
      in.util->ackAll(t);
      printRecorded("  its acknowledgement", Heap::recordingEnd(sizes), sizes);
      Heap::recordingBegin();
      t.entryCommit(keys[last], valueOf(profile, last, 1));
      printRecorded("re-commit (changed value)", Heap::recordingEnd(sizes), sizes);
      Heap::recordingBegin();
      in.util->ackAll(t);
      printRecorded("  its acknowledgement", Heap::recordingEnd(sizes), sizes);
      Heap::recordingBegin();
      t.entryRemove(keys[last]);
      handles.back() = nullptr;
      printRecorded("removal and handle release", Heap::recordingEnd(sizes), sizes);
      Heap::recordingBegin();
      in.util->ackAll(t);
      printRecorded("  the delete dance's acks", Heap::recordingEnd(sizes), sizes);
      handles.clear();
      in.dieQuietly();
   }
   Instance after(chip, n, false);
   after.table->syncedEntryIs(n, Entry(nullptr, kProfileIndex, true, false, false, 1));
   after.table->hwTable()->indexUserTracker()->recoveredIndexIs(n);
   Heap::recordingBegin();
   after.table->syncedEntryIs(n + 1, Entry(nullptr, kProfileIndex, true, false, false, 1));
   after.table->hwTable()->indexUserTracker()->recoveredIndexIs(n + 1);
   printRecorded("one row read back", Heap::recordingEnd(sizes), sizes);
   return 0;
}

// --- the heap ---

// A fresh process pays a page fault for every page the heap touches first, and glibc gives freed
// memory back to the system: without this, the benchmark that happens to run first at a size
// pays the kernel's work, not the code's. The heap is grown once, touched, freed, and never
// trimmed; blocks up to 32 MB come from it.
void prefaultHeap() {
   mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
   mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
   constexpr std::size_t kChunk = 1 << 20;
   constexpr std::size_t kChunks = 1536;  // 1.5 GB: the largest measurement with its set-up
   std::vector<void*> chunks;
   chunks.reserve(kChunks);
   for (std::size_t i = 0; i < kChunks; ++i) {
      void* p = std::malloc(kChunk);
      if (p == nullptr) {
         break;
      }
      std::memset(p, 0, kChunk);
      chunks.push_back(p);
   }
   for (void* p : chunks) {
      std::free(p);
   }
}

// --- registration ---

// Manual (CPU) time, fixed iterations, three repetitions (two at a million entries); the report
// takes the fastest.
benchmark::internal::Benchmark* timed(benchmark::internal::Benchmark* b, std::uint32_t n) {
   return b->Iterations(iterationsFor(n))
       ->UseManualTime()
       ->Unit(benchmark::kMillisecond)
       ->Repetitions(repetitionsFor(n, 3, 2));
}

void registerAll() {
   for (const std::uint32_t n : kSizes) {
      timed(benchmark::RegisterBenchmark("commit_life/baseline", commitLife, false)->Arg(n),
            n);
      if (!kTraceCompiledOut) {
         timed(benchmark::RegisterBenchmark("commit_life/ours", commitLife, true)->Arg(n),
               n);
      }
   }
   if (kTraceCompiledOut) {
      for (const std::uint32_t n : kSizes) {
         timed(benchmark::RegisterBenchmark("trace_commit/compiled_out", traceCommit,
                                            traceCompiledOut)
                   ->Arg(n),
               n);
      }
      return;
   }
   for (const std::uint32_t n : kSizes) {
      timed(benchmark::RegisterBenchmark("trace_commit/disabled", traceCommit, traceDisabled)
                ->Arg(n),
            n);
      // Every line stays in the sink until the iteration ends (about 18 lines, 2 KB, per entry):
      // fewer passes, and none at a million entries, where the sink alone would hold gigabytes.
      if (n < 1048576) {
         timed(benchmark::RegisterBenchmark("trace_commit/memory_sink", traceCommit, traceToMemory)
                   ->Arg(n),
               n)
             ->Iterations(std::max(1, iterationsFor(n) / 8))
             ->Repetitions(1);
      }
   }
   for (const auto& [name, fn] :
        {std::pair{"recommit", &recommit}, std::pair{"remove", &removal}}) {
      for (const std::uint32_t n : kSizes) {
         for (const bool ours : {false, true}) {
            const std::string full = std::string(name) + (ours ? "/ours" : "/baseline");
            timed(benchmark::RegisterBenchmark(full.c_str(), fn, ours)->Arg(n), n);
         }
      }
   }
   for (const std::uint32_t n : kSizes) {
      for (const std::int64_t percent : {0, 10, 100}) {
         for (const bool ours : {false, true}) {
            timed(benchmark::RegisterBenchmark(ours ? "restart/ours" : "restart/baseline",
                                               restart, ours)
                      ->Args({n, percent}),
                  n)
                ->Iterations(std::min(2, iterationsFor(n)));
         }
      }
   }
   for (const std::uint32_t n : kSizes) {
      for (const bool ours : {false, true}) {
         benchmark::RegisterBenchmark(ours ? "memory/ours" : "memory/baseline", memory, ours)
             ->Arg(n)
             ->Iterations(1)
             ->Unit(benchmark::kMillisecond);
      }
   }
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
   if (argc > 1 && std::strcmp(argv[1], "--alloc-breakdown") == 0) {
      return Bench::allocBreakdown();
   }
   Bench::prefaultHeap();
   Bench::registerAll();
   benchmark::Initialize(&argc, argv);
   if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      return 1;
   }
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   return 0;
}
