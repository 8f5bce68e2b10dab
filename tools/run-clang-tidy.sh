#!/usr/bin/env bash
# Runs clang-tidy, with the project's .clang-tidy, on every source file of ours that a build's
# compile_commands.json compiles, in parallel, and fails if it reports anything.
#
#   tools/run-clang-tidy.sh [BUILD_DIR] [FILE_REGEX]
#     BUILD_DIR   a configured build (default: build/debug); its compile_commands.json says
#                 which files are compiled and how
#     FILE_REGEX  checks only the files whose path relative to the repository matches
#
# Our sources are those under TalvikL3Decap/, AsicSwTable/, platform/, sim/, tools/, tests/ and
# examples/ (each only as far as the build compiles it). Findings in our headers are reported
# through the sources that include them (HeaderFilterRegex in .clang-tidy). The compile commands
# are GCC's: clang-tidy ignores the warning options only GCC knows.
# JOBS sets the parallelism (default: the number of cores).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$root/build/debug}")
filter=${2:-}
jobs=${JOBS:-$(nproc)}
database=$build/compile_commands.json

[[ -f $database ]] ||
   { echo "run-clang-tidy: no $database (configure that build first)" >&2; exit 2; }
command -v clang-tidy >/dev/null ||
   { echo "run-clang-tidy: clang-tidy is not installed" >&2; exit 2; }

mapfile -t files < <(python3 - "$database" "$root" "$filter" <<'EOF'
import json, os, re, sys
database, root, pattern = sys.argv[1], sys.argv[2], sys.argv[3]
ours = ("TalvikL3Decap/", "AsicSwTable/", "platform/", "sim/", "tools/", "tests/", "examples/")
files = set()
for command in json.load(open(database)):
    path = os.path.normpath(os.path.join(command["directory"], command["file"]))
    relative = os.path.relpath(path, root)
    if relative.startswith(ours) and (not pattern or re.search(pattern, relative)):
        files.add(path)
print("\n".join(sorted(files)))
EOF
)
((${#files[@]})) || { echo "run-clang-tidy: no source file of ours in $database" >&2; exit 2; }

out=$(mktemp -d "${TMPDIR:-/tmp}/clang-tidy.XXXXXX")
trap 'rm -rf "$out"' EXIT
echo "clang-tidy: ${#files[@]} files, $jobs at a time"
start=$SECONDS

# One clang-tidy per file; each writes its report, its time and whether it found anything to
# files of its own, named by the file's number.
export build out
printf '%s\n' "${files[@]}" | nl -w1 -s' ' |
   xargs -P "$jobs" -L 1 bash -c '
      began=$SECONDS
      if ! clang-tidy -p "$build" --quiet --extra-arg=-Wno-unknown-warning-option "$1" \
         >"$out/$0.log" 2>&1; then
         touch "$out/$0.failed"
      fi
      echo "$((SECONDS - began)) $1" >"$out/$0.time"'

failed=0
for ((i = 1; i <= ${#files[@]}; i++)); do
   if [[ -f $out/$i.failed ]]; then
      failed=$((failed + 1))
      echo "--- ${files[i - 1]#"$root"/}"
      grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter|^Use -system-headers' \
         "$out/$i.log" || true
   fi
done
echo "clang-tidy: slowest files (s):" $(cat "$out"/*.time | sort -rn | head -n 3 |
   sed "s|$root/||" | awk '{printf " %s (%s s)", $2, $1}')
echo "clang-tidy: ${#files[@]} files in $((SECONDS - start)) s, $failed with findings"
((failed == 0))
