#!/usr/bin/env bash
# The built-in demo: set-up, build, then the updater's main job in a sandboxed Mac-like tree
# (build/demo) against a local HTTPS update server. See scripts/demo.py for what it shows.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bash "$here/scripts/setup.sh"
export CCACHE_BASEDIR="$here"
build="${BUILD_DIR:-$here/build}"
BUILD_DIR="$build" bash "$here/scripts/build.sh" SoftwareUpdate SoftwareUpdateHelper SoftwareUpdateScreenshots
/usr/bin/python3 "$here/scripts/demo.py" --build "$build" --out "$build/demo"
