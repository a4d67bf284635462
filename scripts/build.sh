#!/usr/bin/env bash
# Configures (once) and builds the tree into ${BUILD_DIR:-build} with Ninja.
# Extra arguments are passed to ninja (targets).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build="${BUILD_DIR:-$here/build}"
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$here" -B "$build" -G Ninja ${CMAKE_ARGS:-}
fi
cmake --build "$build" -- "$@"
