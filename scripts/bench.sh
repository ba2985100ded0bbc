#!/usr/bin/env bash
# Builds the default preset and runs a benchmark program: executor (the default), base64, field
# (JSONBuilder and randomUUID), scan, distance or idle; or `all`, every benchmark one after the
# other, ending with all their ratio tables together.
# Further arguments go to the program (Google Benchmark flags such as --benchmark_repetitions=5,
# or the idle probe's window in seconds).
set -euo pipefail
cd "$(dirname "$0")/.."

program=executor_bench
case "${1:-}" in
    executor) program=executor_bench; shift ;;
    base64) program=base64_bench; shift ;;
    field) program=field_bench; shift ;;
    all) program=all; shift ;;
    scan) program=scan_bench; shift ;;
    distance) program=distance_bench; shift ;;
    idle) program=idle_probe; shift ;;
esac

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
if [ "$program" != all ]; then
    exec "build/default/bench/$program" "$@"
fi
tables=$(mktemp)
trap 'rm -f "$tables"' EXIT
for each in executor_bench base64_bench field_bench scan_bench distance_bench; do
    echo "== $each"
    # The ratio tables follow the runs: keep from the first table's title on.
    "build/default/bench/$each" "$@" | tee /dev/stderr | sed -n '/ \/ baseline /,$p' >> "$tables"
done 2>&1
echo
echo "All ratios (machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'))"
cat "$tables"
