#!/usr/bin/env bash
# Where the CPU time of one verification + calibration session goes: runs
#   oisverify run --calibrate --ideal-gain 1.08   (533 frames: verification, then the gain search)
# under perf and prints the CPU share per library (the simulator is linked into oisverify; libm's
# sin and asin are its motion and disc edges; libc's copies are mostly the cached paper rows and
# the node's crop), plus the busiest functions. Needs perf (Debian linux-perf) and a built tree.
#
#   bash bench/session_breakdown.sh [BUILD_DIR]     default: build
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."
BUILD_DIR=${1:-build}
TOOL="$BUILD_DIR/bin/oisverify"
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

command -v perf >/dev/null 2>&1 || { echo "session_breakdown.sh: perf is not installed" >&2; exit 1; }
[ -x "$TOOL" ] || { echo "session_breakdown.sh: build $TOOL first" >&2; exit 1; }

/usr/bin/time -f "CPU %U s user, %S s system, %e s wall" \
  perf record -q -o "$WORK/perf.data" "$TOOL" run --calibrate --ideal-gain 1.08 --out "$WORK/out" \
  > "$WORK/run.txt" 2> "$WORK/time.txt" || true
grep -E "after [0-9]+ frames" "$WORK/run.txt" || true
tail -1 "$WORK/time.txt"
echo
echo "== CPU share per library"
perf report -i "$WORK/perf.data" --stdio --sort dso 2>/dev/null | grep -v '^#' | grep -v '^$' | head -12
echo
echo "== busiest functions"
perf report -i "$WORK/perf.data" --stdio --sort sym 2>/dev/null | grep -v '^#' | grep -v '^$' | head -15
