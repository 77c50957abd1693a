#!/usr/bin/env bash
# Builds and runs the whole test suite three times: a plain optimised build
# (with the benchmarks compiled), AddressSanitizer + UBSan (leak detection
# on), and ThreadSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/ensure-packages.sh"
ensure_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

jobs=$(nproc)
run_suite() {
    local name=$1; shift
    local build="$root/build/$name"
    echo "=== $name build"
    cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
    cmake --build "$build" -j"$jobs"
    echo "=== $name tests"
    (cd "$build" && ctest --output-on-failure -j"$jobs" --timeout 600)
}

run_suite plain -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUVT_BUILD_BENCHMARKS=ON
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_suite asan -DCMAKE_BUILD_TYPE=Debug -DUVT_SANITIZE=address
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUVT_SANITIZE=thread
echo "all suites passed"
