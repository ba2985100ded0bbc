#!/usr/bin/env bash
# Builds the default preset and runs a benchmark program: executor (the default), base64, scan,
# distance or idle.
# Further arguments go to the program (Google Benchmark flags such as --benchmark_repetitions=5,
# or the idle probe's window in seconds).
set -euo pipefail
cd "$(dirname "$0")/.."

program=executor_bench
case "${1:-}" in
    executor) program=executor_bench; shift ;;
    base64) program=base64_bench; shift ;;
    scan) program=scan_bench; shift ;;
    distance) program=distance_bench; shift ;;
    idle) program=idle_probe; shift ;;
esac

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
exec "build/default/bench/$program" "$@"
