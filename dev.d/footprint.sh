# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# What the library costs on the target: measured, held below limits, and told in a document.

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
  [[ $(uname -m) == x86_64 ]] || fail "the document tells figures of x86-64 beside those of ARM"
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
  say "footprint: what was measured, and its limit"
  awk -f "$footprint_folder/compare.awk" "$footprint_limits" "$footprint_values" ||
    fail "the footprint is not within $footprint_limits"
}

footprint_make_document() {
  awk -f "$footprint_folder/tables.awk" "$footprint_values" "$footprint_document" \
    >build/footprint.md
}

footprint_write_document() {
  say "footprint: the tables of $footprint_document"
  footprint_make_document
  cp build/footprint.md "$footprint_document"
}

# Two measurements never agree on everything; these tables do not vary.
footprint_compare_document() {
  local table
  footprint_make_document
  for table in library records; do
    diff <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" "$footprint_document") \
      <(sed -n "/^<!-- measured: $table -->/,/^<!-- end -->/p" build/footprint.md) ||
      fail "$footprint_document tells other sizes; ./dev footprint writes them"
  done
}

footprint_check() {
  footprint_build
  footprint_measure
  footprint_compare
  footprint_compare_document
}

# The document tells what is, also when that is too much.
footprint() {
  footprint_build
  footprint_measure
  footprint_write_document
  footprint_compare
}
