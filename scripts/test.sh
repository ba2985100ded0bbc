#!/usr/bin/env bash
# Builds and runs the whole test suite for one preset: default (plain), asan, tsan or clang.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}

scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
