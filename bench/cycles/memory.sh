#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: memory.sh BUILD OUT.json
# Measures the peak heap of a first get, and adds up the sizes of the records that a get needs: the
# minimum for any get.
# shellcheck disable=SC2154  # publication.sh sets site and port
set -euo pipefail
export LC_ALL=C

if (($# != 2)); then
  echo "usage: $0 BUILD OUT.json" >&2
  exit 2
fi
host=$(realpath "$1")
out=$(realpath "$2")
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d -p /dev/shm)
readonly host out here work index=001122334455

fail() {
  printf 'memory: %s\n' "$*" >&2
  exit 1
}

# shellcheck source=bench/cycles/publication.sh
source "$here/publication.sh"

clean_up() {
  stop_serving
  rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY ZOT_DEV_PATH

measure() {
  mkdir -p "$work/cache" "$work/scratch"
  ZOT_PREFIX_CONF_ROOT=$work/cache ZOT_PREFIX_TMP_ROOT=$work/scratch \
    ZOT_REMOTE_PORT=${port[a]} "$host/bench/footprint/footprint_heap" "$index" \
    sizes=sizes init=init get=get 2>"$work/log" || fail "$(cat "$work/log")"
}

# The size of a parsed K is that of its nodes (64 bytes each with 8-byte pointers) and their texts.
# Owners, size and checksum precede the bytes of a verified file.
readonly sum='
  80 as $verified_head |
  def text: utf8bytelength + 1;
  ($figures | split("\n") | map(split(" ") | select(length == 2) | {(.[0]): (.[1] | tonumber)})
   | add) as $figure
  | (.gpbs | length) as $entries
  | {
      handle: $figure["init.held.bytes"],
      k: ($k_bytes + 1),
      json: (([..] | length) * 64
        + ([.. | strings | text] | add)
        + ([.. | objects | keys_unsorted[] | text] | add)),
      records: (2 * $entries * $figure["sizeof.zot_gpb"]),
      paths: (2 * ([.gpbs[].path | text] | add)),
      contents: ([.gpbs[].size + $verified_head] | add),
      read_buffer: ([.gpbs[].size + $verified_head] | max),
      entries: ($entries * $figure["sizeof.zot_ret_data"])
    }
  | {entries: $entries, sum: (to_entries | map(.value) | add),
     peak: $figure["get.peak.bytes"], parts: .}'

prepare 10000 4096 100
serve
figures=$(measure)
readonly figures
jq -c --arg figures "$figures" --argjson k_bytes "$(stat -c %s "$(knowledge a).k")" \
  "$sum" "$(knowledge a).k" >"$out"
