#!/usr/bin/env bash
# Checks the installed package the way a consumer meets it: installs a build into a fresh
# temporary prefix, moves the prefix elsewhere (nothing may depend on where it was installed),
# runs the installed tools, builds examples/consumer against the prefix with find_package and
# with pkg-config, runs both builds, and removes everything it made.
#
#   examples/check-install.sh [BUILD_DIR]     default: build/release (configured, e.g. by
#                                             `cmake --preset release`); what the install
#                                             copies is built here first
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${1:-$root/build/release}")

fail() {
   echo "check-install: $*" >&2
   exit 1
}

[[ -f $build/CMakeCache.txt ]] ||
   fail "$build is not a configured build directory (run 'cmake --preset release' first)"
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$build/CMakeCache.txt")
[[ -n $libdir ]] || fail "$build/CMakeCache.txt names no CMAKE_INSTALL_LIBDIR"

work=$(mktemp -d "${TMPDIR:-/tmp}/l3decap-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
# Nothing from the caller's environment may help the installed files find each other.
unset L3DECAP_PLUGIN_PATH LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH

echo "== install $build into a temporary prefix"
cmake --build "$build" --target l3decap_installables -j "$(nproc)" >"$work/build.log" ||
   { cat "$work/build.log" >&2; fail "building what the install copies failed"; }
cmake --install "$build" --prefix "$work/staged" >"$work/install.log" ||
   { cat "$work/install.log" >&2; fail "cmake --install failed"; }
mv "$work/staged" "$work/prefix"
prefix=$work/prefix

for f in include/l3decap/Asic/SwTable.h include/l3decap/Fwk/Ptr.h \
   include/l3decap/AsicSwTable/SwTableAccessor.h \
   include/l3decap/TalvikL3Decap/IngL3IifDecapTable.h include/l3decap/sim/SimChip.h \
   "$libdir/libl3decap.so" "$libdir/libl3decap_sim.so" \
   "$libdir/l3decap/plugins/libAsicFeature-TalvikL3Decap-IngL3IifTable.so" \
   "$libdir/cmake/L3Decap/L3DecapConfig.cmake" "$libdir/cmake/L3Decap/L3DecapConfigVersion.cmake" \
   "$libdir/pkgconfig/l3decap.pc" bin/rbtrace-print; do
   [[ -e $prefix/$f ]] || fail "the install has no $f"
done

# The installed programs find their libraries and the simulated chip's plug-in from where they
# are, with no environment to help them.
rc=0
"$prefix/bin/rbtrace-print" >/dev/null 2>"$work/rbtrace.err" || rc=$?
[[ $rc -eq 2 ]] && grep -q '^usage: rbtrace-print' "$work/rbtrace.err" ||
   { cat "$work/rbtrace.err" >&2; fail "installed rbtrace-print did not run (exit $rc)"; }
if [[ -x $build/tools/l3decap/l3decap ]]; then
   [[ -x $prefix/bin/l3decap ]] || fail "the install has no bin/l3decap"
   (cd "$work" && "$prefix/bin/l3decap" demo --tunnels 40) >"$work/demo.out" 2>&1 ||
      { cat "$work/demo.out" >&2; fail "installed l3decap demo failed"; }
   grep -q 'made 0 row writes and 0 row deletes' "$work/demo.out" ||
      { cat "$work/demo.out" >&2; fail "installed l3decap demo did not adopt its rows"; }
   echo "installed l3decap demo: $(tail -n 1 "$work/demo.out")"
fi

# Runs one build of the example and checks what it says it did.
run_consumer() {
   local how=$1 dir=$2
   local out=$work/$how.out
   L3DECAP_PLUGIN_PATH=$dir/plugins "$dir/consumer" >"$out" 2>&1 ||
      { cat "$out" >&2; fail "the consumer built with $how failed"; }
   local expected
   for expected in \
      "plug-in: $dir/plugins/libAsicFeature-TalvikL3Decap-IngL3IifTable.so" \
      "chip: write row 1 empty" "chip: delete row 1" \
      "adopted row 0 without writing it" \
      "consumer: done: life 1 wrote 3 row(s) and deleted 1; life 2 wrote 0 and deleted 0"; do
      grep -qF -- "$expected" "$out" ||
         { cat "$out" >&2; fail "the consumer built with $how did not print '$expected'"; }
   done
   echo "consumer built with $how: $(tail -n 1 "$out")"
}

echo "== the consumer, built with find_package(L3Decap)"
cp -r "$root/examples/consumer" "$work/with-cmake"
cmake -S "$work/with-cmake" -B "$work/with-cmake/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
   -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/cmake.log" 2>&1 ||
   { cat "$work/cmake.log" >&2; fail "configuring the consumer with find_package failed"; }
found=$(sed -n 's/^L3Decap_DIR:PATH=//p' "$work/with-cmake/build/CMakeCache.txt")
[[ $found == "$prefix/"* ]] || fail "find_package found L3Decap in '$found', not in the prefix"
cmake --build "$work/with-cmake/build" >>"$work/cmake.log" 2>&1 ||
   { cat "$work/cmake.log" >&2; fail "building the consumer with find_package failed"; }
run_consumer find_package "$work/with-cmake/build"

echo "== the simulator library, through L3Decap::l3decap_sim"
mkdir -p "$work/sim"
cat >"$work/sim/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(SimConsumer LANGUAGES CXX)
find_package(L3Decap CONFIG REQUIRED)
add_executable(sim_consumer main.cpp)
target_link_libraries(sim_consumer PRIVATE L3Decap::l3decap_sim)
CMAKE
cat >"$work/sim/main.cpp" <<'CPP'
#include <cstdio>

#include "sim/SimChip.h"

int main() {
   Sim::SimChip chip(Sim::ChipState::inMemory(64));
   chip.decapRowIs(3, Sim::DecapRow{Sim::RowState::valued, 1, true, false, false, 7});
   std::printf("simulated chip: %u decap rows, %llu written\n", chip.state().decapRows(),
               static_cast<unsigned long long>(chip.counters().decapWrites));
   return chip.counters().decapWrites == 1 ? 0 : 1;
}
CPP
{ cmake -S "$work/sim" -B "$work/sim/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" &&
   cmake --build "$work/sim/build"; } >"$work/sim.log" 2>&1 ||
   { cat "$work/sim.log" >&2; fail "building against L3Decap::l3decap_sim failed"; }
"$work/sim/build/sim_consumer" >"$work/sim.out" 2>&1 &&
   grep -q 'simulated chip: 64 decap rows, 1 written' "$work/sim.out" ||
   { cat "$work/sim.out" >&2; fail "the program linked with L3Decap::l3decap_sim failed"; }
cat "$work/sim.out"

echo "== the consumer, built with pkg-config"
cp -r "$root/examples/consumer" "$work/with-pkg-config"
PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig" make -C "$work/with-pkg-config" -j 2 \
   >"$work/make.log" 2>&1 ||
   { cat "$work/make.log" >&2; fail "building the consumer with pkg-config failed"; }
run_consumer pkg-config "$work/with-pkg-config"

echo "check-install: the installed package works"
