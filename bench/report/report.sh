#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: report.sh RESULTS [DOCUMENT]
# Prints the tables of what was measured, which RESULTS/pieces.json and RESULTS/cycles.jsonl hold,
# and RESULTS/memory.json where that is. With a DOCUMENT the tables are written into it instead, and
# plots into the folder of its name.
set -euo pipefail
export LC_ALL=C

if (($# < 1 || $# > 2)); then
  echo "usage: $0 RESULTS [DOCUMENT]" >&2
  exit 2
fi
results=$(realpath "$1")
document=${2:-}
here=$(dirname "$(readlink -f "$0")")
readonly results document here
readonly summary=$results/summary.json

readonly tables=(
  machine aims first poll update restart disk polls growth pieces bytes calls phases-first
  phases-update)
# What each is drawn with, and the names of its axes.
declare -rA plots=(
  [first]="lines|files|first get and commit, s|pairs"
  [poll]="lines|files|wall, ms|single"
  [pieces]="lines|entries|processor time, µs|single"
  [pieces-per-entry]="lines|entries|processor time for each entry, ns|single"
  [phases-first]="bars|files, and the size of each|share of the cycle, %"
  [phases-update]="bars|files, and the size of each|share of the cycle, %")

fail() {
  printf 'report: %s\n' "$*" >&2
  exit 1
}

# The memory is measured apart, and may not have been.
summarise() {
  local measured memory=/dev/null
  for measured in pieces.json cycles.jsonl; do
    [[ -s $results/$measured ]] || fail "$results has no $measured: nothing was measured"
  done
  [[ ! -e $results/memory.json ]] || memory=$results/memory.json
  jq -n -L "$here" --slurpfile pieces "$results/pieces.json" \
    --slurpfile cycles "$results/cycles.jsonl" --slurpfile memory "$memory" \
    -f "$here/summary.jq" >"$summary"
}

table() {
  jq -r -L "$here" --arg name "$1" -f "$here/tables.jq" "$summary"
}

print_tables() {
  local name
  for name in "${tables[@]}"; do
    printf '\n%s\n\n' "$name"
    table "$name" | awk -f "$here/align.awk"
  done
}

# A document with less would pass for the whole.
expect_all() {
  jq -e '.steps | [has("ostree first whole tmpfs 10000 4096",
    "zotconf first whole tmpfs 100000 4096")] | all' "$summary" >"$results/is_whole" ||
    fail "$results has a part of the figures only; ./dev bench --peers measures all"
}

draw() {
  local name=$1 plot script
  IFS='|' read -ra plot <<<"${plots[$name]}"
  script=$here/plots/${plot[0]}.gp
  jq -r -L "$here" --arg name "$name" -f "$here/plots.jq" "$summary" >"$results/plots/$name.tsv"
  LC_ALL=C.UTF-8 gnuplot -c "$script" "$here/plots/style.gp" "$results/plots/$name.tsv" \
    "$results/plots/$name.svg" "${plot[@]:1}"
}

write_document() {
  local name
  local -r folder=${document%.md}
  mkdir -p "$results/tables" "$results/plots" "$folder"
  for name in "${tables[@]}"; do
    table "$name" >"$results/tables/$name.md"
  done
  for name in "${!plots[@]}"; do
    draw "$name"
  done
  awk -v tables="$results/tables" -f "$here/fill.awk" "$document" >"$results/document.md"
  cp "$results/plots/"*.svg "$folder"
  cp "$results/document.md" "$document"
}

summarise
if [[ -z $document ]]; then
  print_tables
else
  expect_all
  write_document
fi
