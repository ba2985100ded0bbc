#!/usr/bin/env bash
# Builds the default preset and runs the Executor benchmark; extra arguments go to the benchmark
# (e.g. --benchmark_repetitions=5, --benchmark_filter=RoundTrip).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
exec build/default/bench/executor_bench "$@"
