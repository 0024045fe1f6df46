#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_symbols.sh LIBRARY SYMBOL_MAP HEADER C_COMPILER
# Checks that the library exports exactly what its map names, and that the map names exactly what the
# header declares.
set -euo pipefail

library=$1 map=$2 header=$3 compiler=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C

nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' |
  sort -u >"$work/exported"
sed -n '/global:/,/local:/s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$map" | sort -u >"$work/mapped"

# The compiler lists the functions that are declared by the header and by the library's headers that it
# includes, each with its file.
"$compiler" -std=c11 -x c -fsyntax-only -aux-info "$work/prototypes" "$header"
sed -nE 's|^/\* [^ ]*zot_conf(_ext)?\.h:.*\*/ extern [^(]*[ *]([A-Za-z_0-9]*) \(.*|\2|p' \
  "$work/prototypes" | sort -u >"$work/declared"

status=0
for list in exported mapped declared; do
  if [[ ! -s $work/$list ]]; then
    echo "no symbol is $list" >&2
    status=1
  fi
done
diff -u --label "in the map" --label "exported" "$work/mapped" "$work/exported" || status=1
diff -u --label "in the map" --label "in the header" "$work/mapped" "$work/declared" || status=1
exit "$status"
