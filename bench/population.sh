#!/usr/bin/env bash
# The production-line figures: "oisverify population" over MODULES calibrated modules whose ideal
# gains spread +-12 % (one search setting, then two side by side), and "oisverify stats" over
# REPORTS generated station reports. Prints wall time, CPU time and peak memory of each, the
# yield before and after calibration, the share of modules whose selected gains are the search
# step nearest their ideal gains, and the population's CPU time per module (rendering, node,
# emulator).
#
#   bash bench/population.sh                       everything, with the tree in ./build
#   MODULES=50 REPORTS=10000 bash bench/population.sh
#   BUILD_DIR=build-bench JOBS=4 bash bench/population.sh
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."
BUILD_DIR=${BUILD_DIR:-build}
MODULES=${MODULES:-200}
REPORTS=${REPORTS:-100000}
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}
WORK=${WORK:-$(mktemp -d "${TMPDIR:-/tmp}/oisverify-population-bench-XXXXXX")}
TOOL="$BUILD_DIR/bin/oisverify"

if [ ! -x "$TOOL" ]; then
  echo "build the tool first: cmake --build $BUILD_DIR --target oisverify" >&2
  exit 1
fi

# Runs the command under GNU time; its own output goes to FILE.out, wall time and peak memory
# are printed.
timed() {
  local name=$1
  shift
  /usr/bin/time -f "%e %M %U %S" -o "$WORK/$name.time" "$@" >"$WORK/$name.out" 2>"$WORK/$name.err" || true
  read -r wall peak user system <"$WORK/$name.time"
  printf "%-20s %8.1f s wall %8.1f s CPU %8.1f MiB peak\n" "$name" "$wall" "$(echo "$user + $system" | bc -l)" "$(echo "$peak / 1024" | bc -l)"
}

mkdir -p "$WORK"
echo "work folder: $WORK (jobs: $JOBS)"
timed population-one "$TOOL" population --modules "$MODULES" --gain-spread 0.12 --calibrate -j "$JOBS" \
  --out "$WORK/one"
grep -E "yield|nearest|^time" "$WORK/population-one.out"
timed population-two "$TOOL" population --modules "$MODULES" --gain-spread 0.12 --calibrate \
  --search 0.05,0.2 --search 0.03,0.15 -j "$JOBS" --out "$WORK/two"
grep -E "^step|yield|nearest|^time" "$WORK/population-two.out"

timed generate-reports python3 bench/generate_reports.py "$WORK/reports" "$REPORTS"
timed stats "$TOOL" stats --out "$WORK/stats" "$WORK/reports"
head -1 "$WORK/stats.out"
grep -E "yield" "$WORK/stats.out"
