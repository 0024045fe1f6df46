# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Measures how fast the library is: single operations, and complete cycles compared with the baseline
# (minimum work) and with other tools, and what a change costs on the network. Times are only reported:
# no check fails on them.

readonly bench_programs=build/release/bench
readonly bench_results=build/bench
readonly bench_document=docs/performance.md
readonly bench_fleet_document=docs/scale.md
# shellcheck source=bench/cycles/packages.sh
source bench/cycles/packages.sh
# shellcheck source=bench/relay/packages.sh
source bench/relay/packages.sh
# shellcheck source=bench/fleet/packages.sh
source bench/fleet/packages.sh

# bench_build TARGET...
bench_build() {
  configure release -DZOTCONF_BUILD_BENCH=ON
  build_quietly release "$@"
}

# bench_make [PACKAGE]...
bench_make() {
  setup
  need libbenchmark-dev "${cycles_packages[@]}" "$@"
  say "bench: build"
  bench_build zotconf_cli bench_pieces bench_cycles footprint_heap
}

# bench_measure_pieces RESULTS [OPTION]...: the files to copy are in memory.
bench_measure_pieces() (
  say "bench: single operations"
  TMPDIR=$(mktemp -d -p /dev/shm)
  export TMPDIR
  trap 'rm -rf "$TMPDIR"' EXIT
  trap 'exit 130' INT TERM
  "$bench_programs/pieces/bench_pieces" --benchmark_out="$1/pieces.json.new" \
    --benchmark_out_format=json --benchmark_repetitions=3 \
    --benchmark_enable_random_interleaving=true "${@:2}" >"$1/pieces.log"
  jq -r '.benchmarks[] | select(.error_occurred) | "\(.name): \(.error_message)"' \
    "$1/pieces.json.new" >"$1/pieces.errors"
  [[ ! -s $1/pieces.errors ]] || fail "an operation has a wrong result: $(<"$1/pieces.errors")"
  mv "$1/pieces.json.new" "$1/pieces.json"
)

# bench_measure_cycles RESULTS [OPTION]...
bench_measure_cycles() {
  say "bench: whole cycles"
  touch "$1/cycles.jsonl.new"
  bench/cycles/run.sh build/release "$1/cycles.jsonl.new" "${@:2}"
  mv "$1/cycles.jsonl.new" "$1/cycles.jsonl"
}

# bench_measure_memory RESULTS
bench_measure_memory() {
  say "bench: memory of a get"
  touch "$1/memory.json.new"
  bench/cycles/memory.sh build/release "$1/memory.json.new"
  mv "$1/memory.json.new" "$1/memory.json"
}

# bench_run [PEERS_OPTION]
bench_run() {
  mkdir -p "$bench_results"
  bench_measure_pieces "$bench_results" --benchmark_min_time=0.5
  bench_measure_cycles "$bench_results" "$@"
  bench_measure_memory "$bench_results"
  bench/report/report.sh "$bench_results"
}

bench() {
  bench_make
  bench_run
}

# Checks with small sizes that everything works.
bench_quick() {
  bench_make "${cycles_peers[@]}"
  mkdir -p "$bench_results/quick"
  bench_measure_pieces "$bench_results/quick" --benchmark_min_time=0.01 \
    --benchmark_filter='/(100|1000|1024|4096)$|^log_'
  bench_measure_cycles "$bench_results/quick" --peers --quick
  bench/report/report.sh "$bench_results/quick"
}

bench_report() {
  setup
  need gnuplot-nox jq
  say "bench: writing the tables and plots of $bench_document"
  bench/report/report.sh "$bench_results" "$bench_document"
  [[ ! -s $bench_results/relay.jsonl ]] || bench/report/relay.sh "$bench_results" "$bench_document"
  [[ ! -s $bench_results/fleet.jsonl ]] ||
    bench/report/fleet.sh "$bench_results" "$bench_document" "$bench_fleet_document"
}

bench_peers() {
  bench_make "${cycles_peers[@]}" gnuplot-nox
  bench_run --peers
  bench_report
}

# What a change costs on the network. Needs root, for network namespaces.
bench_relay() {
  local -r results=$bench_results/relay.jsonl
  ((EUID == 0)) || fail "bench --relay creates network namespaces and needs root"
  setup
  need "${relay_packages[@]}"
  say "bench: build"
  bench_build zotconf_cli bench_source bench_measure bench_delay_line
  mkdir -p "$bench_results"
  say "bench: what a change costs"
  touch "$results.new"
  bench/relay/run.sh build/release "$results.new"
  mv "$results.new" "$results"
  bench/report/relay.sh "$bench_results"
  bench/report/relay.sh "$bench_results" "$bench_document"
}

# What a fleet costs its controller and its web server. Takes about ten minutes.
bench_fleet() {
  local -r results=$bench_results/fleet.jsonl
  setup
  need "${fleet_packages[@]}"
  say "bench: build"
  bench_build zotconf_cli bench_poll
  mkdir -p "$bench_results"
  say "bench: what a fleet costs"
  touch "$results.new"
  bench/fleet/run.sh build/release "$results.new"
  mv "$results.new" "$results"
  bench/report/fleet.sh "$bench_results" "$bench_document"
  bench/report/fleet.sh "$bench_results" "$bench_document" "$bench_fleet_document"
}

# Instruction counts do not depend on the load of the machine, so they can be checked against limits.
bench_counts() {
  local -r folder=bench/counts values=$bench_results/counts.values
  setup
  need libbenchmark-dev valgrind
  say "bench: build"
  bench_build zotconf_cli bench_source bench_counts bench_client
  mkdir -p "$bench_results"
  say "bench: instruction counts and their limits"
  "$folder/count.sh" build/release >"$values"
  awk -f bench/footprint/compare.awk "$folder/limits.txt" "$values" ||
    fail "the instruction counts do not meet the limits of $folder/limits.txt"
}
