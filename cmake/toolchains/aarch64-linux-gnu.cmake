# Cross build for the devices' CPU, aarch64 Linux, with Debian's cross compiler
# (g++-aarch64-linux-gnu) and no sysroot: arm64 libraries come from Debian's arm64 packages
# (multiarch, /usr/lib/aarch64-linux-gnu and its android folder), headers are shared with the build
# machine's. Test programs, test discovery included, run under qemu-user.
#
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(ZELK_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${ZELK_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ZELK_CROSS_TRIPLET}-g++)
# The multiarch directory name: find_package and find_library look in /usr/lib/<this>, and the
# Android libraries are found in /usr/lib/<this>/android.
set(CMAKE_LIBRARY_ARCHITECTURE ${ZELK_CROSS_TRIPLET})

# No target root keeps the two architectures apart, the multiarch directories do: never take a
# library of the build machine's own, whatever a hint points at.
list(APPEND CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)

# qemu-user runs the arm64 programs. Debian's arm64 C library, which every arm64 library package
# here depends on, installs its loader as /lib/ld-linux-aarch64.so.1, so qemu needs no prefix and
# loader and libc come from one glibc build. The cross toolchain's own glibc copy under
# /usr/${ZELK_CROSS_TRIPLET} is a different build; qemu looks there only when no arm64 libc is
# installed.
find_program(ZELK_QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(ZELK_QEMU_AARCH64)
  if(EXISTS /lib/ld-linux-aarch64.so.1)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${ZELK_QEMU_AARCH64})
  else()
    set(CMAKE_CROSSCOMPILING_EMULATOR ${ZELK_QEMU_AARCH64} -L /usr/${ZELK_CROSS_TRIPLET})
  endif()
endif()
