#!/usr/bin/env bash
# Builds the tree with a sanitizer (Debug, its own build folder) and runs the whole suite
# under it. Any report ends the process that made it with a failure status, so it fails the
# test that ran it (the programs the end-to-end tests start included).
#
#   bash scripts/sanitize.sh thread     # ThreadSanitizer                       -> build-tsan/
#   bash scripts/sanitize.sh address    # AddressSanitizer + UBSan + leak check -> build-asan/
#
# Extra arguments go to ctest (for example -R Network). The options below are added in front
# of any TSAN_OPTIONS / ASAN_OPTIONS / UBSAN_OPTIONS already set, so those can override them.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-}
case "$kind" in
  thread)
    build="$here/build-tsan"
    # Qt and the libraries under it are not built with the checker: tests/tsan.supp names
    # each of them and says why; it is the one place for a suppression.
    export TSAN_OPTIONS="suppressions=$here/tests/tsan.supp halt_on_error=1 exitcode=66 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
    ;;
  address)
    build="$here/build-asan"
    # No strict_string_checks: the X keyboard library hands strndup a counted buffer without a
    # terminating NUL (legal), which that option reports in every windowed run under Xvfb.
    export ASAN_OPTIONS="detect_leaks=1 halt_on_error=1 detect_stack_use_after_return=1 ${ASAN_OPTIONS:-}"
    export UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1 ${UBSAN_OPTIONS:-}"
    ;;
  *)
    echo "usage: $0 thread|address [ctest arguments]" >&2
    exit 2
    ;;
esac
shift

bash "$here/scripts/setup.sh"
export CCACHE_BASEDIR="$here"
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELMORA_SANITIZE="$kind"
fi
cmake --build "$build"
cd "$build"
ctest --output-on-failure -j2 --timeout 900 "$@"
