# SPDX-License-Identifier: Apache-2.0
# Cross build for the ECU's arm64 application processors with Debian's cross toolchain
# (g++-aarch64-linux-gnu) and the arm64 libraries installed side by side through
# multiarch (scripts/setup --arm64). Used by scripts/cross-arm64:
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake ...
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(STRATA_TRIPLET aarch64-linux-gnu)

set(CMAKE_C_COMPILER ${STRATA_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${STRATA_TRIPLET}-g++)
# The compiler reports the multiarch directory, so find_package and find_library look
# in /usr/lib/aarch64-linux-gnu; stating it keeps the search right before the compiler
# has been asked.
set(CMAKE_LIBRARY_ARCHITECTURE ${STRATA_TRIPLET})

# The arm64 .pc files only: the host's would hand amd64 link lines to the cross linker.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${STRATA_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# CTest and test discovery run the arm64 test programs through the user-mode emulator.
# With the arm64 C library installed through multiarch its loader sits at the usual
# path and the emulator needs no prefix; otherwise fall back to the cross sysroot.
find_program(STRATA_QEMU_AARCH64 qemu-aarch64-static qemu-aarch64)
if(STRATA_QEMU_AARCH64)
  if(EXISTS /lib/ld-linux-aarch64.so.1)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${STRATA_QEMU_AARCH64})
  else()
    set(CMAKE_CROSSCOMPILING_EMULATOR ${STRATA_QEMU_AARCH64} -L /usr/${STRATA_TRIPLET})
  endif()
endif()

# The Debian package is for arm64; dpkg-shlibdeps reads the arm64 binary with the
# cross binutils to compute its dependencies.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
