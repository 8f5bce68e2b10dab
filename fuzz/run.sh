#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, `fuzz` preset) and runs each for a bounded time on a copy
# of its seed corpus. Usage: fuzz/run.sh [seconds per target, default 20]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" --target entry_text_fuzzer chip_state_fuzzer \
   ring_trace_fuzzer api_sequence_fuzzer config_file_fuzzer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
for target in entry_text chip_state ring_trace api_sequence config_file; do
   cp -r "fuzz/corpus/$target" "$work/$target"
   echo "fuzzing $target for ${seconds}s"
   if ! (cd "$work" && "$OLDPWD/build/fuzz/fuzz/${target}_fuzzer" -max_total_time="$seconds" \
         -print_final_stats=1 "$target" 2>"$work/$target.log"); then
      echo "FAILED: $target (reproducer and report below)"
      tail -n 60 "$work/$target.log"
      ls "$work"/crash-* "$work"/leak-* "$work"/timeout-* 2>/dev/null || true
      status=1
   fi
done
exit $status
