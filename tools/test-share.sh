#!/usr/bin/env bash
# Prints the lines of test code (tests/ and fuzz/), the lines of the rest of the code, and the
# tests' share of the rest, counting non-blank lines that are not `//` comments in the C++, CMake
# and script files git tracks. Exits 1 when the share is above --max PERCENT.
# Usage: tools/test-share.sh [--max PERCENT]
set -euo pipefail
cd "$(dirname "$0")/.."
max=""
while [[ $# -gt 0 ]]; do
   case $1 in
      --max)
         [[ $# -ge 2 && $2 =~ ^[0-9]+([.][0-9]+)?$ ]] || {
            echo "test-share.sh: --max needs a percentage, e.g. --max 35" >&2
            exit 2
         }
         max=$2
         shift 2
         ;;
      *)
         echo "test-share.sh: unknown argument '$1' (usage: tools/test-share.sh [--max PERCENT])" >&2
         exit 2
         ;;
   esac
done

# The code files git tracks, one per line.
code_files() {
   git ls-files -z -- '*.cpp' '*.h' '*.hpp' '*.cc' 'CMakeLists.txt' '*/CMakeLists.txt' '*.cmake' \
      '*.sh' '*.py' | tr '\0' '\n' | grep -v '/corpus/' || true
}
# Counts the measured lines of the files named on stdin.
count() {
   local total=0 file
   while IFS= read -r file; do
      [[ -f $file ]] || continue
      total=$((total + $(grep -cvE '^[[:space:]]*(//.*)?$' "$file" || true)))
   done
   echo "$total"
}

tests=$(code_files | grep -E '^(tests|fuzz)/' | count)
rest=$(code_files | grep -vE '^(tests|fuzz)/' | count)
share=$(awk -v t="$tests" -v r="$rest" 'BEGIN { printf "%.1f", r ? 100 * t / r : 0 }')
echo "test lines: $tests"
echo "other code lines: $rest"
echo "tests' share of the other code: $share %"
if [[ -n $max ]] && awk -v s="$share" -v m="$max" 'BEGIN { exit !(s > m) }'; then
   echo "above the limit of $max %" >&2
   exit 1
fi
