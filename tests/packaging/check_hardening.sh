#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_hardening.sh LIBRARY OBJECT_FOLDER
# Checks that the library is hardened, so that a memory error ends the process: read-only link tables, a
# stack that is not executable, stack canaries, and landing pads where the machine has them.
set -euo pipefail

library=$1 objects=$2
status=0

refuse() {
  echo "$*" >&2
  status=1
}

headers=$(readelf -lW "$library")
dynamic=$(readelf -dW "$library")
symbols=$(readelf --dyn-syms -W "$library")

grep -q 'GNU_RELRO' <<<"$headers" || refuse "the link tables are writable"
grep -qE 'FLAGS.*(BIND_)?NOW' <<<"$dynamic" || refuse "the link tables are filled in lazily"
grep 'GNU_STACK' <<<"$headers" | grep -q 'RW ' || refuse "the stack is executable"
grep -q 'TEXTREL' <<<"$dynamic" && refuse "the code has text relocations"
grep -qE ' LOAD .* RWE ' <<<"$headers" && refuse "a segment is writable and executable"
grep -q '__stack_chk_fail' <<<"$symbols" || refuse "no function has a canary"
# musl has no fortified calls.
if grep -q 'libc\.so\.6' <<<"$dynamic"; then
  grep -qE '__(v?snprintf|memcpy|read|fread)_chk' <<<"$symbols" || refuse "no call is fortified"
fi

# The linker marks a library only if the start files of the C library have the mark too, and those of
# Debian 12 do not. So the objects are checked instead.
if readelf -hW "$library" | grep -q 'X86-64'; then
  count=0
  while IFS= read -r object; do
    count=$((count + 1))
    readelf -nW "$object" | grep -q 'x86 feature: IBT, SHSTK' ||
      refuse "${object##*/} has no landing pads"
  done < <(find "$objects" -name '*.o')
  ((count > 0)) || refuse "$objects contains no object"
fi
exit "$status"
