#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run.sh BUILD OUT.jsonl [--peers] [--quick]
# Measures whole cycles of the library, compared with the baseline ("floor" in the figures: the
# minimum work that any program must do for the same result) and, with --peers, with other tools. The
# first line of OUT.jsonl describes the machine; each other line has the figures of a step. The
# contenders take turns, each with its own folders.
# shellcheck disable=SC2154  # packages.sh and publication.sh set them
set -euo pipefail
export LC_ALL=C

# Number of files, bytes per file, rounds, polls in a row, and whether the other tools run it too.
readonly full=(
  "100 1024 7 200 -" "1000 1024 7 200 -" "10000 1024 3 50 -" "100000 1024 2 10 -"
  "100 4096 7 200 peers" "1000 4096 7 200 peers" "10000 4096 5 50 peers" "100000 4096 2 10 -"
  "100 65536 7 200 -" "1000 65536 3 200 peers" "10000 65536 2 50 -"
  "4 16777216 5 200 -")
readonly quick=("100 4096 2 50 peers" "1000 4096 2 50 peers")
# The same on a disk. This says little, because the time depends on what the disk did before.
readonly on_disk=("1000 4096 3 - -")

usage() {
  echo "usage: $0 BUILD OUT.jsonl [--peers] [--quick]" >&2
  exit 2
}

(($# >= 2)) || usage
host=$(realpath "$1")
out=$(realpath "$2")
here=$(dirname "$(readlink -f "$0")")
peers=
cases=("${full[@]}")
disk_cases=("${on_disk[@]}")
for option in "${@:3}"; do
  case $option in
    --peers) peers=yes ;;
    --quick) cases=("${quick[@]}") disk_cases=() ;;
    *) usage ;;
  esac
done
readonly host out here peers cases disk_cases
readonly tools=$host/bench/cycles index=001122334455

work=$(mktemp -d -p /dev/shm)
readonly work
disk=

fail() {
  printf 'cycles: %s\n' "$*" >&2
  exit 1
}

# shellcheck source=bench/cycles/machine.sh
source "$here/machine.sh"
# shellcheck source=bench/cycles/packages.sh
source "$here/packages.sh"
# shellcheck source=bench/cycles/publication.sh
source "$here/publication.sh"

clean_up() {
  stop_serving
  wait
  rm -rf "$work"
  [[ -z $disk ]] || rm -rf "$disk"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# All transfers use the loopback interface.
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY ZOT_DEV_PATH

# Appends what a command prints to the figures.
keep() {
  "$@" >>"$work/figures"
}

# Creates an element with empty folders, in $element.
new_element() {
  element=$base/element
  rm -rf "$element"
  mkdir -p "$element/cache" "$element/scratch"
  # Earlier writes must not count for the next contender.
  [[ $BENCH_MEDIUM != disk ]] || sync -f "$element"
}

# Checks that the cache has the last publication.
expect_b() {
  (cd "$1" && "$tools/bench_digest" "$site/b.sums" 1) || fail "the cache differs from the publication"
}

run_zotconf() {
  local polls=$1 steps
  steps=("first:$BENCH_FILES" settle poll)
  [[ $polls == - ]] || steps+=("polls:$polls")
  steps+=("port:${port[b]}" "update:$changed")
  new_element
  export ZOT_PREFIX_CONF_ROOT=$element/cache ZOT_PREFIX_TMP_ROOT=$element/scratch
  export ZOT_REMOTE_PORT=${port[a]}
  BENCH_BEGIN=$EPOCHREALTIME keep "$tools/bench_client" "$index" "${steps[@]}"
  BENCH_BEGIN=$EPOCHREALTIME keep "$tools/bench_client" "$index" "restart:$BENCH_FILES"
  expect_b "$element/cache/writable/zot"
}

# The baseline. As in the library, the digests of a first configuration are computed twice: after the
# download and when the files are returned. For an update, the second pass covers only the changed
# files. On tmpfs, nothing has to be synchronised. The commands have full paths as arguments, as in
# the library: cp looks up each file by its full path.
readonly floor_get='curl -fsS -o gpb.tgz "$1" && tar xzf gpb.tgz -C "$6" &&
  "$2" "$3" 1 && "$2" "$4" 1'
readonly floor_commit='rm -rf "$5" && cp -r "$6/config" "$5"'

run_floor() {
  local command="$floor_get && $floor_commit" cache
  new_element
  cache=$element/cache/config
  [[ $BENCH_MEDIUM != disk ]] || command+=' && sync -f "$5"'
  cd "$element/scratch"
  keep "$tools/bench_measure" floor first -- sh -c "$command" floor "http://127.0.0.1:${port[a]}/tgz" \
    "$tools/bench_digest" "$site/a.sums" "$site/a.sums" "$cache" "$element/scratch"
  keep "$tools/bench_measure" floor update -- sh -c "$command" floor "http://127.0.0.1:${port[b]}/tgz" \
    "$tools/bench_digest" "$site/b.sums" "$site/changed.sums" "$cache" "$element/scratch"
  cd "$element/cache"
  keep "$tools/bench_measure" floor restart -- "$tools/bench_digest" "$site/b.sums" 2
  expect_b "$element/cache"
  cd "$work"
}

# run_peer NAME SOURCE_A SOURCE_B [ARGUMENT]
run_peer() {
  local name=$1 source_a=$2 source_b=$3
  local script=$here/peers/$name.sh
  keep "$tools/bench_measure" "$name" first -- "$script" first "$element" "$source_a" "${@:4}"
  keep "$tools/bench_measure" "$name" poll -- "$script" poll "$element" "$source_a" "${@:4}"
  keep "$tools/bench_measure" "$name" update -- "$script" update "$element" "$source_b" "${@:4}"
  expect_b "$element/cache"
}

run_script() {
  new_element
  run_peer script "http://127.0.0.1:${port[a]}" "http://127.0.0.1:${port[b]}" "$index"
  (($(wc -l <"$element/scratch/changes") == changed)) || fail "the script reports other changes"
}

# ostree and casync check out the folder `config` itself.
run_ostree() {
  new_element
  ostree --repo="$element/repository" init --mode=bare-user-only
  run_peer ostree "$site/a.ostree" "$site/b.ostree"
}

run_casync() {
  new_element
  run_peer casync "http://127.0.0.1:${port[a]}" "http://127.0.0.1:${port[b]}"
}

# run_case FILES SIZE ROUNDS POLLS PEERS
run_case() {
  local rounds=$3 polls=$4 with=-
  local changed=$((($1 + 99) / 100))
  [[ -z $peers ]] || with=$5
  export BENCH_FILES=$1 BENCH_SIZE=$2 BENCH_ROUND
  prepare "$1" "$2" "$changed" "$with"
  for ((BENCH_ROUND = 1; BENCH_ROUND <= rounds; ++BENCH_ROUND)); do
    printf 'cycles: %s files of %s bytes on %s, round %s of %s, after %s s\n' "$1" "$2" \
      "$BENCH_MEDIUM" "$BENCH_ROUND" "$rounds" "$SECONDS" >&2
    run_zotconf "$polls"
    run_floor
    if [[ $with == peers ]]; then
      run_script
      run_ostree
      run_casync
    fi
  done
  rm -rf "$base/element"
}

run_cases() {
  local case
  for case in "$@"; do
    # shellcheck disable=SC2086  # the numbers of a case
    run_case $case
  done
}

describe_machine "${cycles_versions[@]}" >"$work/figures"
serve
base=$work
export BENCH_MEDIUM=tmpfs
run_cases "${cases[@]}"
if ((${#disk_cases[@]} > 0)); then
  mkdir -p "$host/bench"
  disk=$(mktemp -d -p "$host/bench")
  base=$disk
  export BENCH_MEDIUM=disk
  run_cases "${disk_cases[@]}"
fi
cp "$work/figures" "$out"
printf 'cycles: %s has %s lines, after %s s\n' "$out" "$(wc -l <"$out")" "$SECONDS" >&2
