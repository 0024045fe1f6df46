#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: MUSL_SYSROOT=FOLDER musl-arm-gcc.sh ARGUMENT…
# musl-gcc for 32-bit ARM: the compiler for glibc, with the headers and the C library of the musl that is
# unpacked in the folder. What it links is always static.
set -euo pipefail

specs=$MUSL_SYSROOT/musl-gcc.specs
if [[ ! -e $specs ]]; then
  sed -E "s#/usr/(lib|include)/#$MUSL_SYSROOT&#g" \
    "$MUSL_SYSROOT/usr/lib/arm-linux-musleabihf/musl-gcc.specs" >"$specs.$$"
  mv "$specs.$$" "$specs"
fi
exec arm-linux-gnueabihf-gcc -static "$@" -specs "$specs"
