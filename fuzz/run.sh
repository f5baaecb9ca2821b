#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for a bounded time on a scratch copy
# of its seed corpus (the seeds in fuzz/corpus/ are only read). A crash, a sanitizer report, a
# leak or a broken property stops the run with a non-zero status and leaves the input that did
# it in the build directory as crash-*, leak-* or timeout-*.
#
#   bash fuzz/run.sh [SECONDS]      SECONDS per target, default 45 (or $FUZZ_SECONDS)
#
# Needs clang and libclang-rt-14-dev (libFuzzer); FUZZ_BUILD_DIR overrides build-fuzz.
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."
SECONDS_PER_TARGET=${1:-${FUZZ_SECONDS:-45}}
BUILD_DIR=${FUZZ_BUILD_DIR:-build-fuzz}

generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
if [ ! -f "$BUILD_DIR/CMakeCache.txt" ]; then
  cmake -S fuzz -B "$BUILD_DIR" "${generator[@]}" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
cmake --build "$BUILD_DIR"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Absolute paths throughout: the node targets make their device root the working directory.
build=$(readlink -f "$BUILD_DIR")
corpus=$(readlink -f fuzz/corpus)

# target name -> seed folder under fuzz/corpus
run_target() {
  local target=$1 seeds=$2
  mkdir -p "$scratch/$target"
  echo "fuzz: $target for ${SECONDS_PER_TARGET}s"
  # The node targets' device roots go to the scratch folder too, so a crashed run leaves none.
  TMPDIR="$scratch" "$build/$target" -max_total_time="$SECONDS_PER_TARGET" -max_len=4096 -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$build/" "$scratch/$target" "$corpus/$seeds"
}

run_target persistparser_fuzz persist
run_target persistrewrite_fuzz persistrewrite
run_target runsummary_fuzz runsummary
run_target nodeproperties_fuzz nodeproperties
run_target noderecords_fuzz noderecords
run_target nodeimages_fuzz nodeimages
run_target nodedebugimages_fuzz nodedebugimages
run_target oishighfps_fuzz oishighfps
