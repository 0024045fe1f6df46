#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run.sh ZOTCONF [FOLDER]
# Measures `zotconf publish --fleet`: the first publication of a generated fleet, a repeat without a
# change, and a repeat after one common file changed. FOLDER is on the medium to measure (default:
# /var/tmp). ELEMENTS, ENTRIES and OWN give the size of the fleet: 10000, 500 and 5.
set -euo pipefail

readonly zotconf=$1 parent=${2:-/var/tmp}
readonly elements=${ELEMENTS:-10000} entries=${ENTRIES:-500} own=${OWN:-5}

work=$(mktemp -d "$parent/zotconf-fleet-XXXXXX")
trap 'rm -rf "$work"' EXIT

# file NAME NUMBER: some hundred bytes, different for each number.
file() {
  printf 'name = "%s"\nnumber = %d\n%0256d\n' "$1" "$2" "$2" >"$3"
}

# The own files replace common ones, so each of these objects has as many versions as elements.
make_fleet() {
  local fleet=$work/fleet element folder index i
  mkdir -p "$fleet/common/Wlan" "$fleet/common/Zone"
  for ((i = 0; i < entries; ++i)); do
    folder=$fleet/common/Wlan
    ((i % 2)) || folder=$fleet/common/Zone
    file common "$i" "$folder/entry-$i"
  done
  for ((element = 0; element < elements; ++element)); do
    printf -v index '%012X' "$((element * 7919 + 1))"
    folder=$fleet/elements/$index/Wlan
    mkdir -p "$folder"
    for ((i = 0; i < own; ++i)); do
      file "$index" "$((element * own + i))" "$folder/entry-$((2 * i + 1))"
    done
  done
}

load() {
  cut -d' ' -f1 /proc/loadavg
}

# measure NAME: prints the seconds, the peak of the memory and the load of the machine.
measure() {
  local before
  before=$(load)
  /usr/bin/time -f '%e %U %S %M' -o "$work/time" "$zotconf" publish --fleet "$work/fleet" \
    --out "$work/pub" --cluster 7d0b6a52 >"$work/result"
  read -r seconds user system kilobytes <"$work/time"
  printf '%-26s %7s s (user %s s, system %s s), %4d MB, load %s to %s; %s\n' "$1" "$seconds" \
    "$user" "$system" "$((kilobytes / 1024))" "$before" "$(load)" "$(cat "$work/result")"
}

make_fleet
printf '%d elements, %d entries, %d own files each, %d processors\n' \
  "$elements" "$entries" "$own" "$(nproc)"
measure "first publication"
measure "no change"
echo changed >>"$work/fleet/common/Zone/entry-0"
measure "one common file changed"
