#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_needed.sh LIBRARY
# Checks that a C process on a small device can load the library: it needs no C++ runtime, and its
# soname is right.
set -euo pipefail

dynamic=$(readelf -d "$1")
needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p' <<<"$dynamic")
soname=$(sed -n 's/.*(SONAME).*\[\(.*\)\]$/\1/p' <<<"$dynamic")
status=0

if [[ $soname != libzotconf.so.1 ]]; then
  echo "the soname is '$soname'" >&2
  status=1
fi
for required in libcurl libcrypto libcjson libc; do
  if ! grep -q "^$required\.so" <<<"$needed"; then
    echo "the library does not need $required" >&2
    status=1
  fi
done
allowed='^(lib(curl|crypto|cjson|c)|ld-linux[a-z0-9-]*|ld-musl-[a-z0-9_]+)\.so'
if surplus=$(grep -Ev "$allowed" <<<"$needed"); then
  echo "needed, but not allowed: $surplus" >&2
  status=1
fi
exit "$status"
