#!/usr/bin/env bash
# Builds and runs the whole test suite three times: a plain optimised build
# (with the benchmarks compiled), AddressSanitizer + UBSan (leak detection
# on), and ThreadSanitizer; then builds the libFuzzer targets of fuzz/ with
# clang and runs each for UVT_FUZZ_SECONDS (default 30) seconds.
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

# Each fuzzer keeps its corpus in build/fuzz/corpus/<name> between runs and
# also reads the seeds the build wrote for it (build/fuzz/fuzz/seeds/<name>);
# a finding stops the script and leaves the input in build/fuzz/crash-*.
run_fuzzers() {
    local build="$root/build/fuzz" seconds=${UVT_FUZZ_SECONDS:-30}
    echo "=== fuzz build"
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DUVT_BUILD_FUZZERS=ON \
        -DUVT_BUILD_TESTS=OFF -DUVT_BUILD_EXAMPLES=OFF -DUVT_BUILD_BENCHMARKS=OFF >/dev/null
    cmake --build "$build" -j"$jobs"
    local fuzzer name corpus
    for fuzzer in "$build"/fuzz/*_fuzz; do
        name=$(basename "$fuzzer")
        echo "=== fuzz $name (${seconds}s)"
        mkdir -p "$build/corpus/$name"
        corpus=("$build/corpus/$name")
        if [[ -d "$build/fuzz/seeds/$name" ]]; then
            corpus+=("$build/fuzz/seeds/$name")
        fi
        if ! "$fuzzer" -max_total_time="$seconds" -rss_limit_mb=512 -artifact_prefix="$build/" "${corpus[@]}" \
                >"$build/$name.log" 2>&1; then
            tail -n 40 "$build/$name.log"
            echo "fuzzer $name found a failure"
            exit 1
        fi
        grep -E '^Done [0-9]+ runs' "$build/$name.log"
    done
}
run_fuzzers
echo "all suites passed"
