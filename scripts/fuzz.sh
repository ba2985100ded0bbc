#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each on its seed corpus for a while (default 20 s each;
# give another number of seconds as the first argument). New inputs go to a scratch directory,
# not into the committed corpus; an input that crashes a target is kept in
# build/fuzz/artifacts/<name>/.
#
# The targets are the fuzz/fuzz_<name>.cpp files, each with its corpus in fuzz/corpus/<name>: a
# file that fuzz/CMakeLists.txt does not build, or a target without a corpus, stops the run. A
# target that crashes does not keep the others from running; the script then fails at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}

scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=()
for source in fuzz/fuzz_*.cpp; do
    target=$(basename "$source" .cpp)
    name=${target#fuzz_}
    if [[ ! -x build/fuzz/fuzz/$target ]]; then
        echo "$target: not built; register it in fuzz/CMakeLists.txt" >&2
        exit 1
    fi
    if [[ ! -d fuzz/corpus/$name ]]; then
        echo "$target: no seed corpus in fuzz/corpus/$name" >&2
        exit 1
    fi
    mkdir -p "$scratch/$name" "build/fuzz/artifacts/$name"
    echo "$target: ${seconds}s"
    # -close_fd_mask=2 drops the library's log lines, which would otherwise cost a third of the
    # runs; libFuzzer's and the sanitizers' reports still come through.
    if ! build/fuzz/fuzz/$target -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 \
        -close_fd_mask=2 -artifact_prefix="build/fuzz/artifacts/$name/" \
        "$scratch/$name" "fuzz/corpus/$name" 2>&1 | tail -n 3; then
        failed+=("$target")
    fi
done
if ((${#failed[@]} > 0)); then
    echo "crashed: ${failed[*]} (inputs in build/fuzz/artifacts/)" >&2
    exit 1
fi
