# SPDX-License-Identifier: Apache-2.0
# As toolchain.cmake, for 32-bit ARM. The caller sets MUSL_SYSROOT in the environment, also for the
# build.
include(${CMAKE_CURRENT_LIST_DIR}/toolchain.cmake)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER ${CMAKE_CURRENT_LIST_DIR}/musl-arm-gcc.sh)
set(CMAKE_AR arm-linux-gnueabihf-ar)
set(CMAKE_RANLIB arm-linux-gnueabihf-ranlib)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
