#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_plain_names.sh ARCHIVE SYMBOL_MAP
# Checks that the archive defines each plain name of the interface (a name without zot_) as a weak symbol
# and has no undefined reference to it, so that a program may define a function by that name. Every
# other name that the archive defines is the library's own.
set -euo pipefail

archive=$1 map=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
status=0

sed -nE '/global:/,/local:/s/^ *([A-Za-z_0-9]*);$/\1/p' "$map" | grep -vE '^_*zot_' |
  sort -u >"$work/plain"
nm --defined-only "$archive" | awk 'NF == 3 && $2 == "W" { print $3 }' | sort -u >"$work/weak"
nm --defined-only "$archive" | awk 'NF == 3 && $2 ~ /[A-U]/ { print $3 }' | sort -u >"$work/strong"
nm --undefined-only "$archive" | awk 'NF == 2 { print $2 }' | sort -u >"$work/asked"

if [[ ! -s $work/plain || ! -s $work/strong || ! -s $work/asked ]]; then
  echo "$map or $archive has no names to check" >&2
  exit 1
fi
if missing=$(comm -23 "$work/plain" "$work/weak" | grep .); then
  printf 'not weak in the archive:\n%s\n' "$missing" >&2
  status=1
fi
if asked=$(comm -12 "$work/plain" "$work/asked" | grep .); then
  printf 'called by a name that a program may define:\n%s\n' "$asked" >&2
  status=1
fi
if foreign=$(grep -vE '^(_*zot_|_Z.*zot)' "$work/strong"); then
  printf 'defined by a name that a program may define:\n%s\n' "$foreign" >&2
  status=1
fi
exit "$status"
