#!/usr/bin/env bash
# The long fuzzing campaign: every fuzz target for RUNS executions (10 million
# unless set), one after the other, from the kept corpus in fuzz/corpus.
# Prints executions and crash files per target; crash files stay in
# build-fuzz/campaign/<target>/artifacts. Run it niced on a shared machine:
#   nice -n 19 scripts/fuzz-campaign.sh
# Usage: scripts/fuzz-campaign.sh [target-name...]   (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${RUNS:-10000000}

scripts/deps.sh test
cmake --preset fuzz >build-fuzz.configure.log 2>&1 || { cat build-fuzz.configure.log; exit 1; }

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for src in fuzz/*.cpp; do names+=("$(basename "$src" .cpp)"); done
fi
cmake --build build-fuzz --target "${names[@]/#/fuzz_}"
# The campaign runs copies, so that build-fuzz can be rebuilt while it runs.
bin=build-fuzz/campaign/bin
mkdir -p "$bin"
for name in "${names[@]}"; do cp "build-fuzz/fuzz/fuzz_$name" "$bin/"; done

status=0
for name in "${names[@]}"; do
  work="build-fuzz/campaign/$name"
  log="$work.log"
  mkdir -p "$(dirname "$log")"
  fuzz/run.sh "$PWD/$bin/fuzz_$name" "$PWD/fuzz/corpus/$name" "$PWD/$work" -runs="$runs" \
    >"$log" 2>&1 || status=1
  executed=$(sed -nE 's/^stat::number_of_executed_units: ([0-9]+)/\1/p' "$log" | tail -n 1)
  crashes=$(find "$work/artifacts" -type f | wc -l)
  echo "$name: ${executed:-?} executions, $crashes crash files ($log)"
  [ "$crashes" -eq 0 ] || status=1
done
exit $status
