# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Measures the footprint of the library on the target, checks it against limits and writes a document.

readonly footprint_folder=bench/footprint
readonly footprint_limits=$footprint_folder/limits.txt
readonly footprint_document=docs/footprint.md
readonly footprint_values=build/footprint.values

footprint_build() {
  [[ $(uname -m) == x86_64 ]] ||
    fail "the document compares ARM with x86-64: run footprint on an x86-64 machine"
  arm_setup
  need binutils-arm-linux-gnueabihf strace
  say "footprint: build"
  configure release
  build_quietly release zotconf_cli footprint_process footprint_command bench_source
  configure arm
  build_quietly arm footprint_heap footprint_process
}

footprint_measure() {
  say "footprint: measuring, which takes two minutes"
  "$footprint_folder/measure.sh" build/release build/arm "$arm_sysroot" >"$footprint_values.new"
  mv "$footprint_values.new" "$footprint_values"
}

footprint_compare() {
  say "footprint: measured values and their limits"
  awk -f "$footprint_folder/compare.awk" "$footprint_limits" "$footprint_values" ||
    fail "the footprint does not meet the limits of $footprint_limits"
}

footprint_make_document() {
  awk -f "$footprint_folder/tables.awk" "$footprint_values" "$footprint_document" \
    >build/footprint.md
}

footprint_write_document() {
  say "footprint: the tables of $footprint_document"
  footprint_make_document
  write_commit build/footprint.md "$(bench/commit.sh)"
  cp build/footprint.md "$footprint_document"
}

# Compares the tables that do not vary between two measurements.
footprint_compare_document() {
  local table
  footprint_make_document
  for table in library records; do
    diff <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" "$footprint_document") \
      <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" build/footprint.md) ||
      fail "$footprint_document has other sizes; run ./dev footprint to update it"
  done
}

footprint_check() {
  footprint_build
  footprint_measure
  footprint_compare
  footprint_compare_document
}

# Writes the document before the check, so that it shows the measured values even beyond a limit.
footprint() {
  footprint_build
  footprint_measure
  footprint_write_document
  footprint_compare
}
