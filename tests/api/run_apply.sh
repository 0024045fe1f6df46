#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_apply.sh ZOTCONF SAMPLE SCRIPT
# The apply script applies all changes to its target in one step, including deletions. It refuses
# what it cannot read, and the configuration is then rolled back.
set -euo pipefail

zotconf=$1 sample=$2 script=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

target="$work/target folder"
cycle() {
  local want=$1
  expect "$want" "$zotconf" cycle --index "$index" --apply "'$script' '$target'"
}
is_installed() {
  diff -r "$1" "$target/" >"$work/difference" 2>&1 || fail "$(<"$work/difference")"
  # Only the link and the folder that it names remain.
  [[ $(find "$work" -maxdepth 1 -name 'target folder*' | wc -l) == 2 ]] || fail "$(ls "$work")"
}

cp -R "$sample" "$work/source"
publish "$zotconf" "$work/source"
start_service "$zotconf"
cycle 0
shows '^apply: .* is [0-9]+ files$'
shows '^committed$'
is_installed "$work/source"

echo 'rate-limit=none' >>"$work/source/Wlan/guest"
echo 'name=value' >"$work/source/Wlan/with space"
rm "$work/source/Schedule/always"
publish "$zotconf" "$work/source"
cycle 0
find "$target/" -type d -empty -delete
find "$work/source" -type d -empty -delete
is_installed "$work/source"

cp -R "$work/source" "$work/good"
echo 'no assignment' >>"$work/source/Wlan/guest"
echo 'name=other' >"$work/source/Wlan/with space"
publish "$zotconf" "$work/source"
cycle 5
shows '^apply: not made of lines name=value:$'
shows 'Wlan/guest$'
shows '^rolled back; to accept it again: zotconf forget$'
is_installed "$work/good"

mkdir -p "$work/changed/Wlan"
echo 'name=last' >"$work/changed/Wlan/with space"
expect 0 env -u ZOTCONF_CHANGES ZOTCONF_DIR="$work/changed" "$script" "$target"
[[ $(<"$target/Wlan/with space") == name=last ]] || fail "a run without a list changes nothing"
stop_service
