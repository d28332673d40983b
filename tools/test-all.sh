#!/usr/bin/env bash
# Sets up, builds and runs every test of qo:
#   1. Windows x64 (MinGW-w64 cross build), tests run under Wine;
#   2. Linux with clang, AddressSanitizer and UndefinedBehaviorSanitizer,
#      with each libFuzzer target run for QO_FUZZ_SECONDS (default 20);
#   3. Linux with g++ and ThreadSanitizer;
#   4. Linux with g++ (Release), including the outside-consumer check that
#      builds a small project against the installed package.
# Stops at the first failing step; ends with ctest's summary of the last one.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc)
bash tools/install-deps.sh

step() { printf '\n== %s\n' "$*"; }

# --- Windows under Wine ---------------------------------------------------------
step "Windows x64 (MinGW-w64) build"
cmake -S . -B build/win64 -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" >/dev/null
cmake --build build/win64 -j "$jobs"
step "Windows x64 tests under Wine"
export WINEDEBUG=-all
# A prefix of the build's own, so that no other Wine user is disturbed by
# the persistent server started (and killed) here.
export WINEPREFIX="$root/build/wine-prefix"
wineboot --init >/dev/null 2>&1 || true
# Keep a server alive between test executables. wineboot's own server may
# still run, and then -p has nothing to do (waiting for that one to end
# first with -w made the next Wine process hang at exit).
wineserver -p || true
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
(cd build/win64 && ctest --output-on-failure -j "$jobs" --timeout 300)
wineserver -k >/dev/null 2>&1 || true
trap - EXIT

# --- Linux, clang with sanitizers ---------------------------------------------
step "Linux clang ASan+UBSan build"
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
  -DQO_SANITIZE=address -DQO_BUILD_FUZZERS=ON -DQO_FUZZ_SECONDS="${QO_FUZZ_SECONDS:-20}" >/dev/null
cmake --build build/asan -j "$jobs"
step "Linux clang ASan+UBSan tests"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
(cd build/asan && ctest --output-on-failure -j "$jobs" --timeout 600)

# --- Linux, g++ with ThreadSanitizer -----------------------------------------------
step "Linux g++ TSan build"
cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQO_SANITIZE=thread \
  -DQO_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/tsan -j "$jobs"
step "Linux g++ TSan tests"
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
(cd build/tsan && ctest --output-on-failure -j "$jobs" --timeout 600)

# --- Linux, g++ --------------------------------------------------------------------
step "Linux g++ build"
cmake -S . -B build/gcc -G Ninja -DCMAKE_BUILD_TYPE=Release -DQO_BUILD_BENCHMARKS=ON >/dev/null
cmake --build build/gcc -j "$jobs"
step "Linux g++ tests"
cd build/gcc
ctest --output-on-failure -j "$jobs" --timeout 300
