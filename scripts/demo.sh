#!/usr/bin/env bash
# Builds the library and its demo program, then runs the demo.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/ensure-packages.sh"
ensure_packages "${BUILD_PACKAGES[@]}"

build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DUVT_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
"$build/examples/demo"
