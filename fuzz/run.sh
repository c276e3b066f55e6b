#!/usr/bin/env bash
# Runs one fuzz target from its kept corpus. New inputs and crash files go to
# WORK (its corpus/ and artifacts/), never into the kept corpus.
# Usage: fuzz/run.sh TARGET KEPT_CORPUS WORK [libFuzzer options...]
set -euo pipefail
target=$1 kept=$2 work=$3
shift 3
mkdir -p "$work/corpus" "$work/artifacts" "$work/tmp"
cd "$work"
# The targets that read files make them under TMPDIR.
export TMPDIR="$work/tmp"
exec "$target" -artifact_prefix="$work/artifacts/" -print_final_stats=1 "$@" "$work/corpus" "$kept"
