#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds a consumer against
# it twice: through the CMake package and through pkg-config.
set -euo pipefail
lib=$1 source_dir=$2 binary_dir=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$binary_dir" --prefix "$scratch/prefix" >/dev/null
cmake -S "$source_dir/tests/consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/cmake-build/consumer"

export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
c++ "$source_dir/tests/consumer/consumer.cpp" -o "$scratch/pc-consumer" $(pkg-config --cflags --libs wdbuvtbase)
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/pc-consumer"
