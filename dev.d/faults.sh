# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Runs the sweeps. They inject one fault after another, and compare random sequences with a model. Each
# prints what it did and ends with its counts, which go into docs/reliability.md.

readonly faults_programs=build/release/tests/faults
readonly faults_results=build/faults
readonly faults_document=docs/reliability.md
readonly faults_promises=tests/faults/promises.txt
readonly faults_sweeps=(memory calls share service archive host threads model relay)
readonly faults_sequences=100000

# The thread sanitizer needs a separate build of the library.
readonly threads_build=build/threads

faults_make() {
  setup
  say "faults: build"
  configure release -DZOTCONF_BUILD_FAULTS=ON
  build_quietly release
}

faults_make_threads() {
  cmake --preset debug -B "$threads_build" -DZOTCONF_BUILD_FAULTS=ON -DZOTCONF_BUILD_TOOLS=OFF \
    -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DZOTCONF_SANITIZE_THREADS=ON --log-level=WARNING >/dev/null
  cmake --build "$threads_build" -j "$jobs" --target faults_threads
}

# The first words of the lines with counts: the name of the counted item.
readonly faults_counted='memory|calls|disks|power|share|service|archive|host|threads|lies|model|relay[a-z]*'

# faults_keep NAME COMMAND...: runs a sweep and stores its output and its lines with counts.
faults_keep() {
  local name=$1
  shift
  local -r log=$faults_results/$name.log
  local begin=$SECONDS
  mkdir -p "$faults_results"
  rm -f "$faults_results/$name.counts"
  say "faults: $name"
  "$@" | tee "$log"
  grep -E "^($faults_counted): .*[0-9]" "$log" >"$log.counts" ||
    fail "the sweep '$name' printed no counts"
  mv "$log.counts" "$faults_results/$name.counts"
  bench/commit.sh >"$faults_results/$name.commit"
  say "faults: $name: $((SECONDS - begin)) s"
}

faults_sweep() {
  local -r programs=$faults_programs
  case $1 in
    memory) faults_keep memory "$programs/memory/memory_sweep" --jobs "$jobs" ;;
    calls) faults_keep calls "$programs/calls/faults_calls" calls disks power jobs="$jobs" ;;
    share) faults_keep share "$programs/share/faults_share" cycles=500 ;;
    service) faults_keep service "$programs/service/faults_service" ;;
    archive) faults_keep archive "$programs/archive/faults_archive" percent=10 ;;
    host) faults_keep host "$programs/host/faults_host" ;;
    threads) faults_keep threads "$threads_build/tests/faults/host/faults_threads" ;;
    model) faults_keep model faults_model ;;
    relay) faults_keep relay "$programs/relay/faults_relay" misdeeds kills errors disks day ;;
  esac
}

faults_model() {
  local -r model=$faults_programs/model/zotconf_model
  "$model" --count 2000 --seed 3 --lies --adapter client
  "$model" --count "$faults_sequences" --jobs "$jobs" --adapter client
  "$model" --count $((faults_sequences / 5)) --jobs "$jobs"
}

# Runs the bounded form of each sweep, which every change must pass.
faults_quick() {
  faults_make
  say "faults: bounded"
  ctest --test-dir build/release -j "$jobs" -L faults --output-on-failure --no-tests=error
}

# Writes the table of promises, with what checks each and its counts, once every sweep has run.
faults_write_document() {
  local sweep
  for sweep in "${faults_sweeps[@]}"; do
    [[ -s $faults_results/$sweep.counts && -s $faults_results/$sweep.commit ]] || {
      say "faults: $faults_document is written when each of ${faults_sweeps[*]} has run"
      return 0
    }
  done
  say "faults: the tables of $faults_document"
  tests/faults/write_document.sh "$faults_promises" "$faults_results" \
    build/release/tests/zotconf_tests "$faults_document" >build/reliability.md
  write_commit build/reliability.md "$(sort -u "$faults_results"/*.commit | paste -sd ',' | sed 's/,/, /g')"
  cp build/reliability.md "$faults_document"
}

# faults [SWEEP]...: without a name, runs all sweeps.
faults() {
  local sweep wanted=("$@")
  ((${#wanted[@]} > 0)) || wanted=("${faults_sweeps[@]}")
  for sweep in "${wanted[@]}"; do
    [[ " ${faults_sweeps[*]} " == *" $sweep "* ]] ||
      fail "there is no sweep '$sweep': ${faults_sweeps[*]}"
  done
  faults_make
  for sweep in "${wanted[@]}"; do
    [[ $sweep != threads ]] || faults_make_threads
    faults_sweep "$sweep"
  done
  faults_write_document
}
