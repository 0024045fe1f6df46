#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_manual.sh MANUAL HEADER
# Checks that the manual page documents each status with its number, and each call for clients.
set -euo pipefail

manual=$1 header=$2
diff -u --label "the header" --label "the manual page" \
  <(sed -n 's/^  X(\(ZOT_[A-Z_]*\), \(-\{0,1\}[0-9]*\), .*/\1 \2/p' "$header" |
    grep -E '^ZOT_(OK|NO_UPDATE|ERR_)' | sort) \
  <(sed -n 's/^\.It Dv \(ZOT_[A-Z_]*\) Pq \\\{0,1\}\(-\{0,1\}[0-9]*\)$/\1 \2/p' "$manual" | sort)

mapfile -t calls < <(sed -nE 's/^[a-z][^(]*[ *](zot_[a-z0-9_]+)\(.*/\1/p' "$header" |
  grep -vE '^zot_(log_cb|transfer_cb)$' | sort -u)
((${#calls[@]} >= 30))
for call in "${calls[@]}"; do
  if ! grep -qE "^\.F[no] $call( |$)" "$manual"; then
    echo "the manual page does not document $call()" >&2
    exit 1
  fi
done
