#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: count.sh BUILD
# Prints the number of instructions that the library executes for some operations and for the calls
# of a cycle, as lines "NAME COUNT". An emulator counts them. Libraries that select code by processor
# are set to the plainest code, so the counts are the same on every machine with the same libraries.
set -euo pipefail
export LC_ALL=C

if (($# != 1)); then
  echo "usage: $0 BUILD" >&2
  exit 2
fi
host=$(realpath "$1")
readonly host
readonly zotconf=$host/tools/zotconf bench=$host/bench
readonly index=001122334455 files=1000 size=256 changed=10
readonly pieces=("k_parse 1000" "k_parse 10000" "path_parse 1000" "diff 10000" "list_free 10000"
  "filter 10000" "log_disabled 1000")

export OPENSSL_ia32cap=0x0:0x0
export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-AVX,-ERMS,-FSRM,-BMI2,-MOVBE,-RTM
export BENCH_FILES=$files BENCH_SIZE=$size BENCH_MEDIUM=tmpfs BENCH_ROUND=1
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY ZOT_DEV_PATH

work=$(mktemp -d)
readonly work
services=()
declare -A port=()

clean_up() {
  local service
  for service in "${services[@]}"; do
    kill "$service" 2>/dev/null || true
    wait "$service" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  printf 'counts: %s\n' "$*" >&2
  exit 1
}

# count [OPTION]... COMMAND...: prints the number of collected instructions.
count() {
  local log=$work/callgrind.log collected
  valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no "$@" \
    >"$log" 2>&1 || fail "$(cat "$log")"
  collected=$(sed -n 's/^==[0-9]*== Collected : \([0-9]*\)$/\1/p' "$log")
  ((collected > 0)) || fail "no instructions were collected: $*"
  echo "$collected"
}

count_pieces() {
  local piece name entries
  for piece in "${pieces[@]}"; do
    read -r name entries <<<"$piece"
    printf '%s.%s %s\n' "$name" "$entries" "$(count "$bench/counts/bench_counts" "$name" "$entries")"
  done
}

publish() {
  local letter=$1 number
  printf -v number '%012d' "$2"
  "$bench/source/bench_source" "$work/source" "$files" "$size" "$2"
  "$zotconf" publish "$work/source" --out "$work/published" --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 --firmware 7.1.0 \
    --config-id "00000000-0000-4000-8000-$number" >"$work/publish.log" ||
    fail "publishing failed"
  cp -r "$work/published" "$work/$letter"
}

# Serves a publication and sets port[LETTER].
serve() {
  local letter=$1 log=$work/$1.log
  : >"$log"
  "$zotconf" serve "$work/$letter" --port 0 >"$log" 2>&1 &
  services+=($!)
  for _ in {1..200}; do
    port[$letter]=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$log")
    [[ -z ${port[$letter]} ]] || return 0
    sleep 0.05
  done
  fail "the service does not listen"
}

# count_calls CALL STEP...: the instructions of a call of the interface in a client with these steps.
count_calls() {
  local call=$1
  shift
  count --toggle-collect="$call" "$bench/cycles/bench_client" "$index" "$@"
}

count_cycle() {
  local -r polls=20
  local cache=$work/cache alone together
  export ZOT_REMOTE_PORT=${port[a]}
  export ZOT_PREFIX_CONF_ROOT=$cache ZOT_PREFIX_TMP_ROOT=$work/scratch
  printf 'first.get %s\n' "$(count_calls zot_conf_get "first:$files")"
  rm -rf "$cache" "$work/scratch"
  printf 'first.commit %s\n' "$(count_calls zot_conf_commit "first:$files")"
  alone=$(count_calls zot_conf_get "restart:$files" settle)
  together=$(count_calls zot_conf_get "restart:$files" settle "polls:$polls")
  printf 'poll %s\n' "$(((together - alone) / polls))"
  alone=$(count_calls zot_conf_get "restart:$files")
  printf 'restart.get %s\n' "$alone"
  together=$(count_calls zot_conf_get "restart:$files" "port:${port[b]}" "update:$changed")
  printf 'update.get %s\n' "$((together - alone))"
}

count_pieces
publish a 0
publish b "$changed"
serve a
serve b
count_cycle
