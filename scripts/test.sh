#!/usr/bin/env bash
# The whole test suite: set-up (packages), build, every test through CTest, then every fuzz
# target built with clang and run for a few seconds on its seeds (scripts/fuzz.sh smoke).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bash "$here/scripts/setup.sh"
export CCACHE_BASEDIR="$here"
BUILD_DIR="${BUILD_DIR:-$here/build}" bash "$here/scripts/build.sh"
(cd "${BUILD_DIR:-$here/build}" && ctest --output-on-failure -j2 --timeout 600)
bash "$here/scripts/fuzz.sh" smoke
