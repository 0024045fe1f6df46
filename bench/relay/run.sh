#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run.sh BUILD OUT.jsonl
# Measures what a change of 1 % of the files costs: the bytes that cross the network and the time, of
# `zotconf relay` and of other tools that bring a copy of the previous state up to date. Needs root,
# for network namespaces. The first line of OUT.jsonl describes the machine, the line of each case
# states what changed, and each other line has the figures of one update.
set -euo pipefail
export LC_ALL=C

# Number of files, bytes per file, rounds.
readonly cases=("1000 4096 5" "10000 4096 5")
# Milliseconds.
readonly round_trips=(0 50)

(($# == 2)) || {
  echo "usage: $0 BUILD OUT.jsonl" >&2
  exit 2
}
host=$(realpath "$1")
out=$(realpath "$2")
here=$(dirname "$(readlink -f "$0")")
readonly host out here index=001122334455
readonly zotconf=$host/tools/zotconf

((EUID == 0)) || {
  echo "$0: network namespaces need root" >&2
  exit 1
}
umask 022
export TMPDIR=/dev/shm
# shellcheck source=tests/delivery/common.sh
source "$here/../../tests/delivery/common.sh"
# shellcheck source=bench/cycles/machine.sh
source "$here/../cycles/machine.sh"
# shellcheck source=bench/relay/packages.sh
source "$here/packages.sh"
# shellcheck source=bench/relay/network.sh
source "$here/network.sh"
# shellcheck source=bench/relay/site.sh
source "$here/site.sh"
# shellcheck source=bench/relay/contenders.sh
source "$here/contenders.sh"

unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY ZOT_DEV_PATH
trap 'close_network; clean_up' EXIT

# Connections close in the background.
settled_traffic() {
  sleep 0.3
  traffic
}

# update WHO ROUND_TRIP: restores the previous state, updates it, and appends the figures if the
# result is the new state.
update() {
  local who=$1 command before after
  rm -rf "$element"
  cp -a "$previous/$who" "$element"
  "command_$who"
  before=$(settled_traffic)
  on_client "$host/bench/cycles/bench_measure" "$who" update -- "${command[@]}" \
    >"$work/update.log" 2>&1 || fail "$who: cannot update"
  after=$(settled_traffic)
  "expect_$who" >"$work/expect.log" 2>&1 || fail "$who: the result is not the new state"
  tail -n 1 "$work/update.log" | jq -c --argjson round_trip "$2" --arg before "$before" \
    --arg after "$after" --argjson load "$(cut -d ' ' -f 1 /proc/loadavg)" \
    -f "$here/figures.jq" >>"$work/figures"
}

# Keeps a copy of the first state for each contender.
fetch_first() {
  local who
  rm -rf "$previous"
  mkdir "$previous"
  for who in "${contenders[@]}"; do
    rm -rf "$element"
    "first_$who"
    mv "$element" "$previous/$who"
  done
}

describe_case() {
  local k_sent
  k_sent=$(on_client curl -fsS "${tls[@]}" -H 'Accept-Encoding: gzip' -o "$work/k.log" \
    -w '%{size_download}' "$secure_url/$latest.k")
  jq -cn --argjson files "$1" --argjson size "$2" --argjson k_sent_bytes "$k_sent" \
    --argjson k_bytes "$(stat -c %s "$publication/$latest.k")" \
    --argjson archive_bytes "$(stat -c %s "$site/config.tar.gz")" \
    '{case: {$files, $size, changed_bytes: ($files / 100 * $size), $k_bytes, $k_sent_bytes,
             $archive_bytes}}'
}

# run_case FILES SIZE ROUNDS
run_case() {
  local rounds=$3 round_trip who
  export BENCH_FILES=$1 BENCH_SIZE=$2 BENCH_ROUND
  connect 0
  publish_first "$1" "$2"
  fetch_first
  publish_second "$1" "$2"
  describe_case "$1" "$2" >>"$work/figures"
  for round_trip in "${round_trips[@]}"; do
    connect "$round_trip"
    for ((BENCH_ROUND = 1; BENCH_ROUND <= rounds; ++BENCH_ROUND)); do
      printf 'relay: %s files of %s bytes, %s ms, round %s of %s, after %s s\n' "$1" "$2" \
        "$round_trip" "$BENCH_ROUND" "$rounds" "$SECONDS" >&2
      for who in "${contenders[@]}"; do
        update "$who" "$round_trip"
      done
    done
  done
}

export BENCH_MEDIUM=tmpfs
describe_machine "${relay_versions[@]}" >"$work/figures"
# The relay gives up root, and reads its certificate after that.
chmod 711 "$work"
make_certificates
chmod 644 "$work/element.key"
open_network
serve
for case in "${cases[@]}"; do
  # shellcheck disable=SC2086  # the numbers of a case
  run_case $case
done
cp "$work/figures" "$out"
printf 'relay: %s has %s lines, after %s s\n' "$out" "$(wc -l <"$out")" "$SECONDS" >&2
