#!/usr/bin/env bash
# The libFuzzer targets (fuzz/*Fuzz.cpp), built with clang into ${FUZZ_BUILD_DIR:-build-fuzz}
# and seeded from the shared corpus, the generated seeds, fuzz/seeds/<target>/ and
# fuzz/seeds/<target>.zip (with the libFuzzer dictionary fuzz/<target>.dict where there is one).
#   scripts/fuzz.sh smoke [SECONDS]          build every target; run each for SECONDS (5) on its
#                                            seeds, then replay fuzz/regressions/<target>/
#   scripts/fuzz.sh run TARGET SECONDS DIR   one long run (nice 10); DIR/corpus keeps what the
#                                            fuzzer finds across runs, DIR/artifacts any crash
#                                            or time-out, DIR/log the output
#   scripts/fuzz.sh minimise TARGET DIR      fold DIR/corpus into fuzz/seeds/TARGET.zip
# Fails when a target does not build, crashes, hangs, leaks or fails one of its checks.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build="${FUZZ_BUILD_DIR:-$here/build-fuzz}"
corpus="${VELMORA_CORPUS:-$here/../shared/corpus}"
FUZZ_FLAGS=(-timeout=10 -rss_limit_mb=2048 -max_len=65536)

fail() { echo "fuzz: $*" >&2; exit 1; }

# The flags of target $1: the common ones, and its dictionary when fuzz/<target>.dict exists.
flags_of() {
  printf '%s\n' "${FUZZ_FLAGS[@]}"
  if [ -f "$here/fuzz/$1.dict" ]; then echo "-dict=$here/fuzz/$1.dict"; fi
}

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
  # The inputs of earlier long runs, minimised to those that each reach an edge of their own.
  if [ -f "$here/fuzz/seeds/$target.zip" ]; then
    unzip -q -o "$here/fuzz/seeds/$target.zip" -d "$dest"
  fi
}

smoke() {
  local seconds=${1:-5} t flags
  [ -d "$corpus/appcasts" ] || fail "the shared corpus is missing at $corpus"
  build_targets
  scratch=$(mktemp -d)
  trap 'rm -rf "${scratch:-}"' EXIT
  for t in $(targets); do
    [ -x "$build/fuzz/$t" ] || fail "$t was not built"
    prepare_seeds "$t" "$scratch/$t/seeds"
    mkdir -p "$scratch/$t/new"
    # New inputs go to the scratch folder, never into the seeds' sources.
    mapfile -t flags < <(flags_of "$t")
    if ! "$build/fuzz/$t" "${flags[@]}" -max_total_time="$seconds" -artifact_prefix="$scratch/$t/" \
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
  local target=$1 seconds=$2 dir=$3 flags
  [ -x "$build/fuzz/$target" ] || fail "$target is not built (scripts/fuzz.sh smoke builds it)"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  rm -rf "$dir/seeds"
  prepare_seeds "$target" "$dir/seeds"
  cd "$dir"
  mapfile -t flags < <(flags_of "$target")
  nice -n 10 "$build/fuzz/$target" "${flags[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" "$dir/corpus" "$dir/seeds" >"$dir/log" 2>&1
}

# Folds what a long run in $2 found into fuzz/seeds/$1.zip: the seeds, the zip's inputs and
# the run's corpus merged down to the inputs that each reach an edge of their own.
minimise() {
  local target=$1 dir=$2 merged
  [ -d "$dir/corpus" ] || fail "no corpus in $dir"
  merged=$(mktemp -d)
  prepare_seeds "$target" "$merged/seeds"
  mkdir "$merged/min"
  "$build/fuzz/$target" -merge=1 -use_counters=0 -max_len=65536 "$merged/min" "$merged/seeds" "$dir/corpus" \
    >"$merged/log" 2>&1 || { tail -n 20 "$merged/log" >&2; fail "merging $target failed"; }
  rm -f "$here/fuzz/seeds/$target.zip"
  (cd "$merged/min" && zip -q -9 -X "$here/fuzz/seeds/$target.zip" ./*)
  echo "fuzz: $target: $(ls "$merged/min" | wc -l) inputs, $(grep -o '[0-9]* new coverage edges' "$merged/log")"
  rm -rf "$merged"
}

main() {
  case "${1:-}" in
    smoke) smoke "${2:-5}" ;;
    run) [ $# -eq 4 ] || fail "usage: scripts/fuzz.sh run TARGET SECONDS DIR"; long_run "$2" "$3" "$(realpath -m "$4")" ;;
    minimise) [ $# -eq 3 ] || fail "usage: scripts/fuzz.sh minimise TARGET DIR"; minimise "$2" "$(realpath -m "$3")" ;;
    *) fail "usage: scripts/fuzz.sh smoke [SECONDS] | run TARGET SECONDS DIR | minimise TARGET DIR" ;;
  esac
}

# One line, so that bash has read the whole file before a long run starts: editing the
# script during a run cannot change what the running copy does next.
main "$@"; exit $?
