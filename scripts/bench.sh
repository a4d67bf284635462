#!/usr/bin/env bash
# Runs every benchmark: builds the bench targets, then runs each bench/*Bench executable found
# in the build folder, one after the other. Each prints one line per figure, ending in its
# ratio against the reference it names; nothing is asserted.
#
#   scripts/bench.sh                          build into ${BUILD_DIR:-build}, run all at full size
#   VELMORA_BENCH_BYTES=104857600 scripts/bench.sh   smaller files for a quick run
#   scripts/bench.sh FileHash                 only benchmarks whose name contains "FileHash"
#
# A new benchmark needs no change here: add bench/<Name>Bench.cpp and it is built and run.
# Large files go to $TMPDIR (default /tmp) and are removed by the benchmarks themselves.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build="${BUILD_DIR:-$here/build}"
filter="${1:-}"
export CCACHE_BASEDIR="$here"

mapfile -t targets < <(cd "$here/bench" && ls -1 *Bench.cpp 2>/dev/null | sed 's/\.cpp$//')
if [ "${#targets[@]}" -eq 0 ]; then
  echo "no benchmarks found in $here/bench" >&2
  exit 1
fi
status=0
for name in "${targets[@]}"; do
  case "$name" in *"$filter"*) ;; *) continue ;; esac
  # Each benchmark is built on its own, so one that does not build does not stop the others.
  log=$(mktemp)
  if ! BUILD_DIR="$build" bash "$here/scripts/build.sh" -j2 "$name" >"$log" 2>&1; then
    echo "$name: does not build (is Google Benchmark installed?)" >&2
    tail -n 20 "$log" >&2
    rm -f "$log"
    status=1
    continue
  fi
  # Log lines of the program go to stderr; only the figures go to stdout. The errors of a
  # failed run are shown.
  if ! "$build/bench/$name" 2>"$log"; then
    echo "$name: failed" >&2
    tail -n 20 "$log" >&2
    status=1
  fi
  rm -f "$log"
done
exit $status
