#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, then builds and runs a small program against
# it twice: with pkg-config alone, and with CMake's find_package(TrackerUtil).
set -euo pipefail
cmake=$1 build=$2 consumer=$3 cxx=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

"$cmake" --install "$build" --prefix "$prefix" >/dev/null
pcdir=$(dirname "$(find "$prefix" -name trackerutil.pc)")
libdir=$(PKG_CONFIG_PATH=$pcdir pkg-config --variable=libdir trackerutil)

# shellcheck disable=SC2046
"$cxx" "$consumer/main.cpp" -o "$work/by-pkg-config" \
    $(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs trackerutil)
LD_LIBRARY_PATH=$libdir "$work/by-pkg-config"

"$cmake" -S "$consumer" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" >"$work/configure.log" || { cat "$work/configure.log"; exit 1; }
"$cmake" --build "$work/cmake-build" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/cmake-build/consumer"
echo "consumer built and ran against $prefix"
