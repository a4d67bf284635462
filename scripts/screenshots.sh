#!/usr/bin/env bash
# Renders every window and sheet of the windowed application, from the demo tree, into
# docs/screenshots/ (or the folder given): the main window with a selected update, both progress
# sheets, the single-update prompt, the preferences window and an alert, each in the light
# theme, in a dark theme (-dark) and at 150 % scale (-150). Runs on Qt's offscreen platform, so
# no display is needed.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
out="${1:-$here/docs/screenshots}"
bash "$here/scripts/setup.sh"
export CCACHE_BASEDIR="$here"
build="${BUILD_DIR:-$here/build}"
BUILD_DIR="$build" bash "$here/scripts/build.sh" SoftwareUpdate SoftwareUpdateHelper SoftwareUpdateScreenshots
/usr/bin/python3 "$here/scripts/demo.py" --build "$build" --out "$build/demo-screenshots" --screenshots "$out"
