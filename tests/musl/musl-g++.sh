#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: musl-g++.sh ARGUMENT…
# The C++ counterpart of musl-gcc: compiles C++ against musl's headers only, without those of glibc. The
# templates in libstdc++'s headers do not need its library as long as no function of it is called. With
# MUSL_SYSROOT in the environment it compiles for 32-bit ARM, with the musl that is unpacked there.
set -euo pipefail

root=${MUSL_SYSROOT:-}
compiler=${REALGXX:-${root:+arm-linux-gnueabihf-}g++}
machine=$("$compiler" -dumpmachine)
musl_include=$root/usr/include/${machine/-gnu/-musl}
if [[ ! -e $musl_include/stdio.h ]]; then
  echo "musl-g++.sh: $musl_include has no headers of musl" >&2
  exit 1
fi

# libstdc++'s folders come first: its wrappers include the C library's files with #include_next.
mapfile -t folders < <("$compiler" -E -v -x c++ /dev/null 2>&1 >/dev/null |
  sed -n 's|^ \(/.*/c++/.*\)|\1|p')
folders+=("$musl_include" "$("$compiler" -print-file-name=include)")

exec "$compiler" -nostdinc -nostdinc++ "${folders[@]/#/-isystem}" \
  -include "$(dirname "$0")/libstdcxx_on_musl.h" "$@"
