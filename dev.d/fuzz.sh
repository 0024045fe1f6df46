# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs the fuzz targets. New inputs stay in build/fuzz/corpus; fuzz/corpus is the stored corpus.

readonly fuzz_build=build/fuzz
readonly fuzz_targets=(k_content gpb_path checksum json parameters cycle archive signature report)

fuzz_make() {
  setup
  need clang libclang-rt-14-dev
  configure fuzz
  build_quietly fuzz zotconf_fuzz
}

# If the bytes of an input are steps or members, starting with short inputs does not help. If a service
# runs in the process, leaks are checked at the end of the process, not after each input.
fuzz_options() {
  case $1 in
    parameters) echo -max_len=512 -len_control=0 ;;
    cycle) echo -max_len=96 -len_control=0 -detect_leaks=0 ;;
    archive) echo -max_len=1024 -len_control=0 -detect_leaks=0 ;;
    k_content | signature) echo -max_len=8192 ;;
    *) echo -max_len=4096 ;;
  esac
}

# fuzz_run TARGET TEMPORARY OPTION...: writes the output and the exit status of the fuzzer to files.
fuzz_run() {
  local -r target=$1 temporary=$2 log=$fuzz_build/logs/$1
  shift 2
  local options
  read -ra options < <(fuzz_options "$target")
  options+=(-timeout=25 -close_fd_mask=3 -print_final_stats=1
    "-artifact_prefix=$fuzz_build/finds/$target-")
  if [[ -e fuzz/dictionaries/$target.dict ]]; then
    options+=("-dict=fuzz/dictionaries/$target.dict")
  fi
  local status=0
  TMPDIR=$temporary ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
    LSAN_OPTIONS=suppressions=tests/lsan.supp:print_suppressions=0 \
    UBSAN_OPTIONS=print_stacktrace=1 \
    "$fuzz_build/fuzz/fuzz_$target" "${options[@]}" "$@" >"$log.log" 2>&1 || status=$?
  echo "$status" >"$log.status"
}

# fuzz_tell TARGET: prints one line of counts; fails if the fuzzer has found a failure.
fuzz_tell() {
  local -r log=$fuzz_build/logs/$1.log
  local runs corpus status
  status=$(cat "$fuzz_build/logs/$1.status" 2>/dev/null || echo 255)
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  corpus=$(sed -nE 's/.* corp: ([0-9]+).*/\1/p' "$log" | tail -n 1)
  echo "fuzz: $1: ${runs:-0} runs, $((status != 0)) crashes, corpus ${corpus:-0}"
  if ((status == 0)); then
    return
  fi
  local find
  find=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  echo "fuzz: $1: ended with status $status; the input is ${find:-unknown}, the log $log:"
  grep -aE -A 60 'does not hold|ERROR: |runtime error: ' "$log" | head -n 80 || true
  return 1
}

# Runs the targets in parallel. Each has its own files, in memory if /dev/shm is writable.
fuzz_all() {
  local target temporary status=0
  temporary=$(TMPDIR=${TMPDIR:-$([[ -w /dev/shm ]] && echo /dev/shm || echo /tmp)} mktemp -d)
  # shellcheck disable=SC2064  # the name is known now
  trap "rm -rf '$temporary'" EXIT
  mkdir -p "$fuzz_build/logs" "$fuzz_build/finds"
  rm -f "$fuzz_build"/logs/*
  for target in "${fuzz_targets[@]}"; do
    while (($(jobs -rp | wc -l) >= jobs)); do
      wait -n || true
    done
    "$1" "$target" "$temporary" "${@:2}" &
  done
  wait
  for target in "${fuzz_targets[@]}"; do
    fuzz_tell "$target" || status=1
  done
  return "$status"
}

fuzz_for() {
  local -r target=$1 temporary=$2 time=$3
  mkdir -p "$fuzz_build/corpus/$target"
  fuzz_run "$target" "$temporary" "-max_total_time=$time" \
    "$fuzz_build/corpus/$target" "fuzz/corpus/$target"
}

fuzz_once() {
  fuzz_run "$1" "$2" -runs=0 "fuzz/corpus/$1"
}

fuzz() {
  local -r time=${1:-60}
  [[ $time =~ ^[1-9][0-9]*$ ]] || fail "fuzz takes a number of seconds, not '$time'"
  fuzz_make
  say "fuzz: each target for $time seconds"
  fuzz_all fuzz_for "$time"
}

fuzz_replay() {
  fuzz_make
  say "fuzz: the stored corpus"
  fuzz_all fuzz_once
}
