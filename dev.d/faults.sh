# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Sweeps that let one thing after another fail, and long random sequences. Each prints its counts.

readonly faults_build=build/faults

# faults_make TARGET...
faults_make() {
  setup
  cmake --preset release -B "$faults_build" -DZOTCONF_BUILD_FAULTS=ON --log-level=WARNING >/dev/null
  local quiet=()
  [[ -t 1 ]] || quiet=(-- --quiet)
  cmake --build "$faults_build" -j "$jobs" --target "$@" "${quiet[@]}"
}

faults_model() {
  faults_make zotconf_model
  say "faults: the cycle against its model"
  local -r model=$faults_build/tests/faults/model/zotconf_model
  "$model" --count 2000 --seed 3 --lies --adapter client
  "$model" --count "$1" --jobs "$jobs"
  "$model" --count "$1" --jobs "$jobs" --adapter client
}

# Every call of an operation and its commands fails once, disks of every size run full, and power is
# lost after every write.
faults_calls() {
  faults_make faults_calls
  say "faults: system calls, disks and power"
  "$faults_build/tests/faults/calls/faults_calls" calls disks power jobs="$jobs"
}

faults() {
  faults_calls
  faults_model "${1:-100000}"
}
