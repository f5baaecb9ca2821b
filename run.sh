#!/usr/bin/env bash
# One entry point for a fresh Debian 12 machine: installs what is missing, configures, builds,
# then runs the main job or the whole test suite.
#
#   bash run.sh demo    the main job: an off-device session of the node in the host emulator (builds
#                       only the command line and what it loads at run time)
#   bash run.sh test    every test (unit, contract, integration, sim); the concurrency tests under
#                       ThreadSanitizer; every test under AddressSanitizer and UndefinedBehavior-
#                       Sanitizer; the tests cross-built for aarch64 under qemu; a bounded fuzz run
#   bash run.sh fuzz    the fuzz targets only (FUZZ_SECONDS per target, default 45)
#   bash run.sh build   install and build only
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")"
BUILD_DIR=${BUILD_DIR:-build}
JOBS=$(nproc 2>/dev/null || echo 2)

PACKAGES=(
  g++ make cmake ninja-build
  libgtest-dev libgmock-dev
  libcjson-dev android-liblog-dev android-libcutils-dev
  libpng-dev
)
# The fuzz targets build with clang, whose libFuzzer comes in compiler-rt.
FUZZ_PACKAGES=(clang libclang-rt-14-dev)
# The aarch64 step: Debian's cross compiler, qemu-user to run the arm64 programs, and the arm64
# builds of the libraries the project links, installed beside the build machine's own (multiarch).
AARCH64_PACKAGES=(
  g++-aarch64-linux-gnu qemu-user
  libgtest-dev:arm64 libgmock-dev:arm64
  libcjson-dev:arm64 android-liblog-dev:arm64 android-libcutils-dev:arm64
  libpng-dev:arm64
)

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"
  elif command -v sudo >/dev/null 2>&1; then sudo "$@"
  else echo "run.sh: installing packages needs root (missing: ${MISSING[*]})" >&2; exit 1
  fi
}

# install_missing [PACKAGE...]   (default: PACKAGES)
install_missing() {
  local wanted=("$@")
  [ ${#wanted[@]} -gt 0 ] || wanted=("${PACKAGES[@]}")
  MISSING=()
  for pkg in "${wanted[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      MISSING+=("$pkg")
    fi
  done
  if [ ${#MISSING[@]} -gt 0 ]; then
    echo "run.sh: installing ${MISSING[*]}"
    # A package named NAME:ARCH needs ARCH known to dpkg before the package lists are fetched.
    local arch
    for arch in $(printf '%s\n' "${MISSING[@]}" | sed -n 's/^[^:]*://p' | sort -u); do
      if [ "$arch" != "$(dpkg --print-architecture)" ] &&
         ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
        as_root dpkg --add-architecture "$arch"
      fi
    done
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${MISSING[@]}"
  fi
}

# run_ctest ARGS...: ctest with its output shown, adding its counts to the totals printed at the
# end of a test run.
TESTS_PASSED=0
TESTS_FAILED=0
run_ctest() {
  local log rc counts
  log=$(mktemp)
  set +e
  ctest "$@" 2>&1 | tee "$log"
  rc=${PIPESTATUS[0]}
  set -e
  counts=$(sed -n 's/.*tests passed, \([0-9]*\) tests\{0,1\} failed out of \([0-9]*\).*/\1 \2/p' "$log" | tail -1)
  rm -f "$log"
  if [ -n "$counts" ]; then
    TESTS_FAILED=$((TESTS_FAILED + ${counts% *}))
    TESTS_PASSED=$((TESTS_PASSED + ${counts#* } - ${counts% *}))
  fi
  return "$rc"
}

# configure_and_build DIR [TARGET] [CMAKE OPTIONS...]
configure_and_build() {
  local dir=$1 target=${2:-all}
  shift 2 || shift $#
  local generator=()
  command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
  if [ ! -f "$dir/CMakeCache.txt" ]; then
    cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
  fi
  cmake --build "$dir" -j "$JOBS" --target "$target"
}

# The concurrency tests again, built with ThreadSanitizer.
run_thread_sanitizer_tests() {
  local dir="$BUILD_DIR-tsan"
  configure_and_build "$dir" zelk_concurrency_tests -DZELK_SANITIZE=thread
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    run_ctest --test-dir "$dir" --output-on-failure --no-tests=error -j "$JOBS" -R _concurrency_
}

# The whole suite again with AddressSanitizer and UndefinedBehaviorSanitizer.
run_address_sanitizer_tests() {
  local dir="$BUILD_DIR-asan"
  configure_and_build "$dir" all -DZELK_SANITIZE=address
  ASAN_OPTIONS="detect_leaks=1" UBSAN_OPTIONS="print_stacktrace=1" \
    run_ctest --test-dir "$dir" --output-on-failure --no-tests=error -j "$JOBS"
}

# The devices' architecture: the node, calibration, measurement library, simulator and host kit
# cross-built for aarch64, and their tests run under qemu-user (cmake/toolchains/
# aarch64-linux-gnu.cmake), the cross-architecture golden values among them. Left out: the command
# line, a host tool, with the test folders that build it (unit/oisverify, cli,
# integration/calibration; some start the arm64 tool, which qemu-user cannot do without
# binfmt_misc), and the calibration-loop sessions, twelve minutes of emulated CPU on their own.
run_aarch64_tests() {
  local dir="$BUILD_DIR-aarch64"
  configure_and_build "$dir" tests/all \
    -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
    "-DZELK_EXCLUDE_TEST_DIRS=unit/oisverify;cli;integration/calibration"
  run_ctest --test-dir "$dir" --output-on-failure --no-tests=error -j "$JOBS" \
    -E '^calibration_loop_integration[.]'
}

# The libFuzzer targets (persist-file parser, node properties, host records, images, debug-image
# folders, measurement library) with the address and undefined-behaviour sanitizers.
run_fuzz_targets() {
  FUZZ_BUILD_DIR="$BUILD_DIR-fuzz" bash fuzz/run.sh "${FUZZ_SECONDS:-45}"
}

case "${1:-}" in
  demo)
    install_missing
    # The tool's target depends on the node and the libraries the emulated device loads.
    configure_and_build "$BUILD_DIR" oisverify
    "$BUILD_DIR/bin/oisverify" run
    ;;
  test)
    install_missing "${PACKAGES[@]}" "${FUZZ_PACKAGES[@]}" "${AARCH64_PACKAGES[@]}"
    configure_and_build "$BUILD_DIR"
    run_ctest --test-dir "$BUILD_DIR" --output-on-failure --no-tests=error -j "$JOBS"
    run_thread_sanitizer_tests
    run_address_sanitizer_tests
    run_aarch64_tests
    run_fuzz_targets
    echo "tests: $TESTS_PASSED passed, $TESTS_FAILED failed"
    ;;
  fuzz)
    install_missing "${PACKAGES[@]}" "${FUZZ_PACKAGES[@]}"
    run_fuzz_targets
    ;;
  build)
    install_missing
    configure_and_build "$BUILD_DIR"
    ;;
  *)
    echo "usage: bash run.sh demo|test|fuzz|build" >&2
    exit 2
    ;;
esac
