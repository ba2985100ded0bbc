#!/usr/bin/env bash
# Line and branch coverage of the library (src/) and the simulated platform (sim/src) by the
# whole test suite: a gcc build with --coverage, the suite, then gcovr. Prints each part's files
# below full coverage and its summary, writes build/coverage/html/index.html, and fails if less
# than 90 % of the lines of src/ ran.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage >/dev/null

common=(--root . --object-directory build/coverage --exclude-unreachable-branches
        --exclude-throw-branches --sort-percentage --print-summary)
echo "== src/ =="
gcovr "${common[@]}" --filter 'src/' --exclude 'sim/' --txt --fail-under-line 90 | grep -v '100%$'
echo "== sim/src/ =="
gcovr "${common[@]}" --filter 'sim/src/' --txt | grep -v '100%$'
mkdir -p build/coverage/html
gcovr "${common[@]}" --filter 'src/' --filter 'sim/src/' \
    --html-details build/coverage/html/index.html >/dev/null
echo "report: build/coverage/html/index.html"
