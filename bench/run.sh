#!/usr/bin/env bash
# The benchmark figures in one go: installs what is missing, configures and builds a separate
# optimised tree (build-bench), then runs
#   measurement_bench  plain read, centre crop, our measurement and the OpenCV contenders on the
#                      same 540 and 720 crops, repeated, median of the repetitions reported
#   accuracy_compare   centre error against the simulator's truth, ours against OpenCV
#   request_bench      the node's whole per-request cost through the emulator
# and closes with a summary of the medians. Everything runs on one thread. The summary gives CPU
# time: on a machine shared with other builds, wall time also counts the time the scheduler gave
# to others (the full listings show both), and medians of repetitions damp what remains.
#
#   bash bench/run.sh                  everything
#   REPETITIONS=20 bash bench/run.sh   more repetitions per benchmark (default 10)
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."
BUILD_DIR=${BUILD_DIR:-build-bench}
JOBS=$(nproc 2>/dev/null || echo 2)
REPETITIONS=${REPETITIONS:-10}
MIN_TIME_S=${MIN_TIME_S:-0.2}

# The project's own build dependencies, Google Benchmark and OpenCV (core, imgproc, features2d).
PACKAGES=(
  g++ make cmake ninja-build
  libcjson-dev android-liblog-dev android-libcutils-dev
  libbenchmark-dev libopencv-dev
)

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"
  elif command -v sudo >/dev/null 2>&1; then sudo "$@"
  else echo "bench/run.sh: installing packages needs root (missing: ${MISSING[*]})" >&2; exit 1
  fi
}

install_missing() {
  MISSING=()
  for pkg in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      MISSING+=("$pkg")
    fi
  done
  if [ ${#MISSING[@]} -gt 0 ]; then
    echo "bench/run.sh: installing ${MISSING[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
      "${MISSING[@]}"
  fi
}

# Release (-O3, no assertions), the benchmarks on, the tests off: they are not needed here, and
# the tree then configures even while someone's test changes are half done.
configure_and_build() {
  local generator=()
  command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
  if [ -f "$BUILD_DIR/CMakeCache.txt" ]; then generator=(); fi
  cmake -S . -B "$BUILD_DIR" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DZELK_BUILD_BENCH=ON -DZELK_BUILD_TESTS=OFF >/dev/null
  cmake --build "$BUILD_DIR" -j "$JOBS" --target measurement_bench accuracy_compare
  # The node's request benchmark builds the node and the emulator; a half-finished change there
  # should not cost the measurement figures.
  REQUEST_BENCH=1
  cmake --build "$BUILD_DIR" -j "$JOBS" --target request_bench || {
    echo "bench/run.sh: request_bench did not build; its figures are skipped" >&2
    REQUEST_BENCH=0
  }
}

REPEATED=(--benchmark_repetitions="$REPETITIONS" --benchmark_report_aggregates_only=true
          --benchmark_min_time="$MIN_TIME_S" --benchmark_color=false)

# Median CPU time (us) of one benchmark from the console output in $1: name, time, unit, CPU
# time, unit. Every benchmark summarised here reports in microseconds.
median_us() {
  awk -v name="$2_median" '$1 == name { print $4; exit }' "$1"
}

summarise() {
  local out=$1 ours540 hough540 fine540 lean540
  echo
  echo "== Summary: median CPU time per frame, us, one thread"
  printf "%-40s %10s %10s\n" "" "540x540" "720x720"
  local label name
  while IFS='|' read -r label name; do
    printf "%-40s %10s %10s\n" "$label" "$(median_us "$out" "$name/540")" \
      "$(median_us "$out" "$name/720")"
  done <<'ROWS'
plain read (memory floor)|PlainRead
centre crop|CentreCrop
ours: measurement|Measure
ours: crop + measurement|CropAndMeasure
OpenCV HoughCircles|OpenCvHoughCircles
ROWS
  for levels in 13 1; do
    printf "%-40s %10s %10s\n" "OpenCV SimpleBlobDetector, $levels level(s)" \
      "$(median_us "$out" "OpenCvSimpleBlobDetector/side:540/levels:$levels")" \
      "$(median_us "$out" "OpenCvSimpleBlobDetector/side:720/levels:$levels")"
  done
  ours540=$(median_us "$out" Measure/540)
  hough540=$(median_us "$out" OpenCvHoughCircles/540)
  fine540=$(median_us "$out" "OpenCvSimpleBlobDetector/side:540/levels:13")
  lean540=$(median_us "$out" "OpenCvSimpleBlobDetector/side:540/levels:1")
  [ -n "$ours540" ] && [ -n "$hough540" ] || return 0
  awk -v o="$ours540" -v h="$hough540" -v f="$fine540" -v l="$lean540" 'BEGIN {
    printf "Speed, OpenCV time / our time at 540: Hough %.1fx, blob 13 levels %.1fx, blob 1 level %.2fx\n",
      h / o, f / o, l / o
  }'
}

install_missing
configure_and_build

BIN="$BUILD_DIR/bin"
MEASUREMENT_OUT="$BUILD_DIR/measurement_bench.txt"
echo "== measurement_bench ($REPETITIONS repetitions, aggregates)"
"$BIN/measurement_bench" "${REPEATED[@]}" | tee "$MEASUREMENT_OUT"

echo
echo "== accuracy_compare"
"$BIN/accuracy_compare" 20

if [ "$REQUEST_BENCH" -eq 1 ]; then
  echo
  echo "== request_bench (3 repetitions of 2000 requests, aggregates)"
  "$BIN/request_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
    --benchmark_color=false
fi

summarise "$MEASUREMENT_OUT"
