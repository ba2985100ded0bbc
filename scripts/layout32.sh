#!/usr/bin/env bash
# Compiles the platform's InLoc interface for a 32-bit target, where its static_asserts check
# every record's offsets and size against the device's layout; as C and as C++.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

source=$(mktemp --suffix=.c)
trap 'rm -f "$source"' EXIT
printf '#include <inloc/ixa_inloc.h>\n' >"$source"
gcc -m32 -std=c11 -Wall -Wextra -Werror -fsyntax-only -Isim/include "$source"
g++ -m32 -std=c++17 -Wall -Wextra -Werror -fsyntax-only -x c++ -Isim/include "$source"
echo "layout32: the InLoc records have the 32-bit device layout"
