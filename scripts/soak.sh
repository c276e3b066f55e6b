#!/usr/bin/env bash
# Long runs that the default test command leaves out: Thunar killed and
# started again JORVANE_SOAK_CYCLES times (100 by default) while the program
# runs, each restart followed by a title click, a folder and Return. Prints
# the failures, the program's memory and descriptors, and the time a cycle
# takes. Builds into build/ first.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target jorvane jorvane_e2e_tests jorvane_e2e_reaper
ctest --test-dir build -L soak --output-on-failure -V | grep -E '^[0-9]+: (soak:|\[  )|tests passed|failed'
