#!/usr/bin/env bash
# Profiles of the hot paths under valgrind's callgrind, on a reduced run (one pass per
# measurement, collection limited to the measured sections), for docs/PERFORMANCE.md.
#
#   bench/profile.sh [BUILD_DIR] [--cache]    BUILD_DIR defaults to build/bench (bench preset)
#
# For each profile it writes BUILD_DIR/profile/<name>.out (open it with callgrind_annotate or
# kcachegrind), <name>.inclusive.txt and <name>.self.txt (functions by cost, demangled), and
# prints the instructions per entry and the atomic read-modify-write instructions executed.
# --cache profiles instead the commit path (ours and the baseline) at 65,536 and 1,048,576
# entries with the cache simulator (slow: many minutes), for the cache misses per entry.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/bench}
out=$build/profile
mkdir -p "$out"
export L3DECAP_BENCH_ITERATIONS=1

profile() {
   local name=$1 bin=$2 filter=$3 entries=$4
   shift 4
   valgrind --tool=callgrind --toggle-collect='*measured*' --dump-instr=yes --demangle=no "$@" \
      --callgrind-out-file="$out/$name.out" "$build/bench/$bin" --benchmark_filter="$filter" \
      >"$out/$name.log" 2>&1
   callgrind_annotate --inclusive=yes "$out/$name.out" | c++filt >"$out/$name.inclusive.txt"
   callgrind_annotate "$out/$name.out" | c++filt >"$out/$name.self.txt"
   local events totals
   events=$(grep -m1 '^events:' "$out/$name.out" | cut -d' ' -f2-)
   totals=$(grep -m1 '^summary:' "$out/$name.out" | cut -d' ' -f2-)
   echo "$name: per entry:" $(python3 -c "
import sys
events, totals, n = sys.argv[1].split(), sys.argv[2].split(), int(sys.argv[3])
print(', '.join(f'{e} {int(t) / n:,.1f}' for e, t in zip(events, totals)))" "$events" "$totals" "$entries")
   python3 bench/callgrind_locks.py "$out/$name.out"
}

if [[ ${2:-} == --cache ]]; then
   for n in 65536 1048576; do
      profile "commit_cache_$n" l3decap_bench "^commit_life/ours/$n/" "$n" --cache-sim=yes
      profile "baseline_cache_$n" l3decap_bench "^commit_life/baseline/$n/" "$n" --cache-sim=yes
   done
   exit 0
fi

for n in 4096 65536; do
   profile "commit_$n" l3decap_bench "^commit_life/ours/$n/" "$n"
done
profile commit_traceout_65536 l3decap_bench_traceout "^trace_commit/compiled_out/65536/" 65536
profile recommit_65536 l3decap_bench '^recommit/ours/65536/' 65536
profile remove_65536 l3decap_bench '^remove/ours/65536/' 65536
for percent in 0 100; do
   profile "restart${percent}_65536" l3decap_bench "^restart/ours/65536/$percent/" 65536
done
profile baseline_commit_65536 l3decap_bench '^commit_life/baseline/65536/' 65536
