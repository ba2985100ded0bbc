#!/usr/bin/env bash
# The project's main job: sets up, builds the library and the simulated platform, and shows
# what was built.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
echo
echo "Built (build/default):"
find build/default -maxdepth 3 -name '*.so*' -type f -printf '  %p (%s bytes)\n' | sort
echo "Public headers: $(find include -name '*.h' | wc -l), umbrella include/tracker/tracker.h"
