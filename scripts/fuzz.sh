#!/usr/bin/env bash
# The libFuzzer targets (fuzz/*Fuzz.cpp), built with clang into ${FUZZ_BUILD_DIR:-build-fuzz}
# and seeded from the shared corpus, the generated seeds and fuzz/seeds/<target>/.
#   scripts/fuzz.sh smoke [SECONDS]          build every target; run each for SECONDS (5) on its
#                                            seeds, then replay fuzz/regressions/<target>/
#   scripts/fuzz.sh run TARGET SECONDS DIR   one long run (nice 10); DIR/corpus keeps what the
#                                            fuzzer finds across runs, DIR/artifacts any crash
#                                            or time-out, DIR/log the output
# Fails when a target does not build, crashes, hangs, leaks or fails one of its checks.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build="${FUZZ_BUILD_DIR:-$here/build-fuzz}"
corpus="${VELMORA_CORPUS:-$here/../shared/corpus}"
FUZZ_FLAGS=(-timeout=10 -rss_limit_mb=2048 -max_len=65536)

fail() { echo "fuzz: $*" >&2; exit 1; }

build_targets() {
  if [ ! -f "$build/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$here" -B "$build" -G Ninja -DVELMORA_FUZZ=ON -DVELMORA_BENCH=OFF >/dev/null
  fi
  cmake --build "$build" --target fuzz_all -- -j2
}

targets() {
  for f in "$here"/fuzz/*Fuzz.cpp; do basename "$f" .cpp; done
}

# Copies the seeds of target $1 into the empty folder $2.
prepare_seeds() {
  local target=$1 dest=$2
  mkdir -p "$dest"
  case "$target" in
    XmlPlistFuzz) cp "$corpus"/plists/xml/* "$corpus"/keyed-archives/*.plist "$dest"/ ;;
    BinaryPlistFuzz) cp "$corpus"/plists/binary/* "$corpus"/keyed-archives/*.bplist "$dest"/ ;;
    KeyedArchiveFuzz) cp "$corpus"/keyed-archives/* "$dest"/ ;;
    SparkleFeedFuzz) cp "$corpus"/appcasts/* "$dest"/ ;;
    XmlParserFuzz)
      cp "$corpus"/appcasts/* "$dest"/
      # A query line ahead of a real appcast (see XmlParserFuzz.cpp).
      { printf '#//item[1]/enclosure/@url\n'; cat "$corpus"/appcasts/maccy-*.xml; } > "$dest"/query-appcast ;;
    OpenStepPlistFuzz | MacBinaryDecoderFuzz | BinHexDecoderFuzz)
      local generated
      generated=$(mktemp -d)
      "$build"/fuzz/FuzzSeeds "$corpus" "$generated"
      cp "$generated/$target"/* "$dest"/
      rm -rf "$generated" ;;
    *) fail "no seeds are known for $target" ;;
  esac
  if [ -d "$here/fuzz/seeds/$target" ]; then
    cp "$here/fuzz/seeds/$target"/* "$dest"/
  fi
}

smoke() {
  local seconds=${1:-5} t
  [ -d "$corpus/appcasts" ] || fail "the shared corpus is missing at $corpus"
  build_targets
  scratch=$(mktemp -d)
  trap 'rm -rf "${scratch:-}"' EXIT
  for t in $(targets); do
    [ -x "$build/fuzz/$t" ] || fail "$t was not built"
    prepare_seeds "$t" "$scratch/$t/seeds"
    mkdir -p "$scratch/$t/new"
    # New inputs go to the scratch folder, never into the seeds' sources.
    if ! "$build/fuzz/$t" "${FUZZ_FLAGS[@]}" -max_total_time="$seconds" -artifact_prefix="$scratch/$t/" \
        "$scratch/$t/new" "$scratch/$t/seeds" >"$scratch/$t/log" 2>&1; then
      tail -n 40 "$scratch/$t/log" >&2
      fail "$t failed on its seeds or within $seconds seconds"
    fi
    echo "fuzz: $t $(grep -E '^#[0-9]+[[:space:]]+DONE' "$scratch/$t/log" | tail -n 1)"
    if [ -d "$here/fuzz/regressions/$t" ]; then
      "$build/fuzz/$t" "${FUZZ_FLAGS[@]}" "$here/fuzz/regressions/$t"/* >"$scratch/$t/replay" 2>&1 \
        || { tail -n 40 "$scratch/$t/replay" >&2; fail "$t fails a regression input again"; }
    fi
  done
}

long_run() {
  local target=$1 seconds=$2 dir=$3
  [ -x "$build/fuzz/$target" ] || fail "$target is not built (scripts/fuzz.sh smoke builds it)"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  rm -rf "$dir/seeds"
  prepare_seeds "$target" "$dir/seeds"
  cd "$dir"
  nice -n 10 "$build/fuzz/$target" "${FUZZ_FLAGS[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" "$dir/corpus" "$dir/seeds" >"$dir/log" 2>&1
}

case "${1:-}" in
  smoke) smoke "${2:-5}" ;;
  run) [ $# -eq 4 ] || fail "usage: scripts/fuzz.sh run TARGET SECONDS DIR"; long_run "$2" "$3" "$(realpath -m "$4")" ;;
  *) fail "usage: scripts/fuzz.sh smoke [SECONDS] | run TARGET SECONDS DIR" ;;
esac
