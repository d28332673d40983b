#!/usr/bin/env bash
# Sets up, builds and runs qo's example program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install-deps.sh --linux-only
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQO_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo --target qo-demo
./build/demo/bin/qo-demo
