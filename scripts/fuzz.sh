#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each on its seed corpus for a while (default 20 s each;
# give another number of seconds as the first argument). New inputs go to a scratch directory,
# not into the committed corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}

scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for target in advertisement text scenario inloc_event capture; do
    mkdir -p "$scratch/$target"
    echo "fuzz_$target: ${seconds}s"
    build/fuzz/fuzz/fuzz_$target -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 \
        "$scratch/$target" "fuzz/corpus/$target" 2>&1 | tail -n 3
done
