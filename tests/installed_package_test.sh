#!/usr/bin/env bash
# Installs the library into a scratch prefix and checks the installed
# headers: each says in its opening comment whether it is for users, uvt/all
# reaches every one, and the consumer program (tests/consumer) uses something
# of every one. The consumer is then built and run twice, through the CMake
# package and through pkg-config, so a header whose functions the library
# does not export fails to link.
set -euo pipefail
lib=$1 source_dir=$2 binary_dir=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$binary_dir" --prefix "$scratch/prefix" >/dev/null
include_dir=$scratch/prefix/include
consumer=$source_dir/tests/consumer/consumer.cpp

reached=$(c++ -std=c++20 -M -x c++ -I"$include_dir" "$include_dir/uvt/all")
used=$(grep -o '<uvt/[a-z0-9_/]*>' "$consumer" | sort -u)
failed=0
for header in $(cd "$include_dir" && find uvt -type f | sort); do
    grep -Eq '^// (For users|Implementation detail of )' "$include_dir/$header" ||
        { echo "<$header> does not say whether it is for users"; failed=1; }
    [ "$header" = uvt/all ] || grep -q "include/$header\b" <<<"$reached" ||
        { echo "uvt/all does not reach <$header>"; failed=1; }
    grep -qx "<$header>" <<<"$used" || { echo "tests/consumer/consumer.cpp uses nothing of <$header>"; failed=1; }
done
[ "$failed" = 0 ]

cmake -S "$source_dir/tests/consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/cmake-build/consumer"

export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
c++ "$consumer" -o "$scratch/pc-consumer" $(pkg-config --cflags --libs wdbuvtbase)
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/pc-consumer"
