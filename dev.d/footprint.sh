# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Measures what the library costs on the target, checks it against limits, and documents it.

readonly footprint_folder=bench/footprint
readonly footprint_limits=$footprint_folder/limits.txt
readonly footprint_document=docs/footprint.md
readonly footprint_values=build/footprint.values

footprint_build_targets() {
  local preset=$1 quiet=()
  shift
  [[ -t 1 ]] || quiet=(-- --quiet)
  configure "$preset"
  cmake --build --preset "$preset" -j "$jobs" --target "$@" "${quiet[@]}"
}

footprint_build() {
  [[ $(uname -m) == x86_64 ]] || fail "this needs an x86-64 host: some figures are of x86-64"
  arm_setup
  need binutils-arm-linux-gnueabihf strace
  say "footprint: build"
  footprint_build_targets release \
    zotconf_cli footprint_process footprint_command bench_source
  footprint_build_targets arm footprint_heap footprint_process
}

footprint_measure() {
  say "footprint: measuring, which takes two minutes"
  "$footprint_folder/measure.sh" build/release build/arm "$arm_sysroot" >"$footprint_values.new"
  mv "$footprint_values.new" "$footprint_values"
}

footprint_compare() {
  say "footprint: measured values and their limits"
  awk -f "$footprint_folder/compare.awk" "$footprint_limits" "$footprint_values" ||
    fail "the footprint fails the check against $footprint_limits"
}

footprint_make_document() {
  awk -f "$footprint_folder/tables.awk" "$footprint_values" "$footprint_document" \
    >build/footprint.md
}

footprint_write_document() {
  say "footprint: writing the tables of $footprint_document"
  footprint_make_document
  cp build/footprint.md "$footprint_document"
}

# Most figures vary between two measurements. The figures of these tables do not.
footprint_compare_document() {
  local table
  footprint_make_document
  for table in library records; do
    diff <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" "$footprint_document") \
      <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" build/footprint.md) ||
      fail "the sizes in $footprint_document are out of date; ./dev footprint writes them"
  done
}

footprint_check() {
  footprint_build
  footprint_measure
  footprint_compare
  footprint_compare_document
}

# Writes the document even when a limit is exceeded.
footprint() {
  footprint_build
  footprint_measure
  footprint_write_document
  footprint_compare
}
