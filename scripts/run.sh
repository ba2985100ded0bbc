#!/usr/bin/env bash
# The project's main job: sets up, builds tracker-sim and runs it, by default on its built-in
# scenario (about 15 s). Arguments go to tracker-sim (try --help).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tracker-sim
exec build/default/tools/tracker-sim/tracker-sim "$@"
