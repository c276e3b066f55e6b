#!/usr/bin/env bash
# Builds Jorvane and runs every test: the unit suite in a plain build, again
# under AddressSanitizer + UndefinedBehaviorSanitizer, the queue and timer
# tests under ThreadSanitizer, a short run of every fuzz target, and the
# end-to-end suite under Xvfb.
# Installs the Debian packages it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."

# ThreadSanitizer needs a fixed address layout on recent kernels; the whole
# run goes without address randomisation so that every child inherits it.
if [ -z "${JORVANE_TEST_NO_ASLR:-}" ] && setarch "$(uname -m)" -R true 2>/dev/null; then
  export JORVANE_TEST_NO_ASLR=1
  exec setarch "$(uname -m)" -R "$0" "$@"
fi

scripts/deps.sh test

jobs=$(nproc)
summary=()
passed_total=0
failed_total=0

configure() { # preset (CMakePresets.json), build dir
  local preset=$1 dir=$2
  cmake --preset "$preset" >"$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; exit 1; }
}

run_ctest() { # name, dir, ctest args...
  local name=$1 dir=$2; shift 2
  local log="$dir/ctest-$name.log" status=0
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" "$@" 2>&1 | tee "$log" || status=$?
  local line passed failed total
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1 || true)
  if [ -z "$line" ]; then
    echo "test.sh: ctest ran no tests for '$name'" >&2
    summary+=("$name: no tests")
    failed_total=$((failed_total + 1))
    return
  fi
  failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$line")
  passed=$((total - failed))
  passed_total=$((passed_total + passed))
  failed_total=$((failed_total + failed))
  summary+=("$name: $passed passed, $failed failed")
  [ "$status" -eq 0 ] || [ "$failed" -gt 0 ] || failed_total=$((failed_total + 1))
}

mkdir -p build build-asan build-tsan

echo "== plain build"
configure plain build
cmake --build build -j"$jobs"
run_ctest unit build -L 'unit|concurrency'

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
configure asan build-asan
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_ctest asan build-asan -L 'unit|concurrency'

echo "== ThreadSanitizer (queues and timers)"
configure tsan build-tsan
cmake --build build-tsan -j"$jobs" --target jorvane_concurrency_tests
TSAN_OPTIONS=halt_on_error=1 run_ctest tsan build-tsan -L concurrency

echo "== fuzz targets, a short run of each from the kept corpus"
mkdir -p build-fuzz
configure fuzz build-fuzz
fuzz_targets=()
for src in fuzz/*.cpp; do fuzz_targets+=("fuzz_$(basename "$src" .cpp)"); done
cmake --build build-fuzz -j"$jobs" --target "${fuzz_targets[@]}"
run_ctest fuzz build-fuzz -L fuzz

if [ "$(ctest --test-dir build -N -L e2e 2>/dev/null | sed -nE 's/^Total Tests: ([0-9]+)/\1/p')" != "0" ]; then
  echo "== end-to-end (Xvfb, openbox, Thunar)"
  # The program logs at debug level here, so that a failed test's output
  # (which ends with the program's last log lines) says what it did.
  JORVANE_E2E_LOG="${JORVANE_E2E_LOG:-debug}" run_ctest e2e build -L e2e -j1
fi

echo
printf '%s\n' "${summary[@]}"
echo "total: $passed_total passed, $failed_total failed"
[ "$failed_total" -eq 0 ]
