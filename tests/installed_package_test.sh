#!/usr/bin/env bash
# Installs the library into a scratch prefix, checks that uvt/all reaches
# every installed header, and builds a consumer against it twice: through
# the CMake package and through pkg-config.
set -euo pipefail
lib=$1 source_dir=$2 binary_dir=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$binary_dir" --prefix "$scratch/prefix" >/dev/null

# The umbrella header reaches every installed public header.
reached=$(c++ -std=c++20 -M -x c++ -I"$scratch/prefix/include" "$scratch/prefix/include/uvt/all")
missing=0
for header in $(cd "$scratch/prefix/include" && find uvt -type f ! -path uvt/all); do
    if ! grep -q "include/$header\b" <<<"$reached"; then
        echo "uvt/all does not reach <$header>"
        missing=1
    fi
done
[ "$missing" = 0 ]
cmake -S "$source_dir/tests/consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/cmake-build/consumer"

export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
c++ "$source_dir/tests/consumer/consumer.cpp" -o "$scratch/pc-consumer" $(pkg-config --cflags --libs wdbuvtbase)
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/pc-consumer"
