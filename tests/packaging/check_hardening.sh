#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_hardening.sh LIBRARY OBJECT_FOLDER
# What makes a mistake in memory end the process is in the library: link tables that nobody can
# write, a stack that holds no code, canaries, and landing pads where the machine has them.
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

grep -q 'GNU_RELRO' <<<"$headers" || refuse "the link tables can be written"
grep -qE 'FLAGS.*(BIND_)?NOW' <<<"$dynamic" || refuse "the link tables are filled in late"
grep 'GNU_STACK' <<<"$headers" | grep -q 'RW ' || refuse "nothing keeps code off the stack"
grep -q 'TEXTREL' <<<"$dynamic" && refuse "code is changed when it is loaded"
grep -qE ' LOAD .* RWE ' <<<"$headers" && refuse "a segment can be written and run"
grep -q '__stack_chk_fail' <<<"$symbols" || refuse "no function has a canary"
# musl has no fortified calls.
if grep -q 'libc\.so\.6' <<<"$dynamic"; then
  grep -qE '__(v?snprintf|memcpy|read|fread)_chk' <<<"$symbols" || refuse "no call is fortified"
fi

# The linker marks a library only when the start files of the C library have the mark too, which
# those of Debian 12 have not. So it is looked for in what is compiled here.
if readelf -hW "$library" | grep -q 'X86-64'; then
  count=0
  while IFS= read -r object; do
    count=$((count + 1))
    readelf -nW "$object" | grep -q 'x86 feature: IBT, SHSTK' ||
      refuse "${object##*/} has no landing pads"
  done < <(find "$objects" -name '*.o')
  ((count > 0)) || refuse "there is no object in $objects"
fi
exit "$status"
