#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: report.sh RESULTS [DOCUMENT]
# Prints tables of the results in RESULTS/pieces.json, RESULTS/cycles.jsonl and, if it exists,
# RESULTS/memory.json. With a DOCUMENT, writes the tables into the document instead, and the plots
# into the folder with its name.
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
  takeaway machine aims first poll update restart disk polls growth pieces bytes calls phases-first
  phases-update)
# The script that draws each plot, the titles of its axes, and the script's option.
declare -rA plots=(
  [takeaway]="groups|10,000 files of 4 KiB|wall time, s"
  [first]="lines|number of files|first get and commit, s|pairs"
  [poll]="lines|number of files|wall time, ms|single"
  [pieces]="lines|number of entries|CPU time, µs|single"
  [pieces-per-entry]="lines|number of entries|CPU time per entry, ns|single"
  [phases-first]="bars|number of files and file size|share of the cycle, %"
  [phases-update]="bars|number of files and file size|share of the cycle, %")

fail() {
  printf 'report: %s\n' "$*" >&2
  exit 1
}

# Memory is measured separately, so its results may be absent.
summarise() {
  local measured memory=/dev/null
  for measured in pieces.json cycles.jsonl; do
    [[ -s $results/$measured ]] || fail "$results has no $measured: run ./dev bench first"
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

# A document with only some of the figures would look complete.
expect_all() {
  jq -e '.steps | [has("ostree first whole tmpfs 10000 4096",
    "zotconf first whole tmpfs 100000 4096")] | all' "$summary" >"$results/is_whole" ||
    fail "$results is incomplete; ./dev bench --peers measures everything"
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
  awk -v tables="$results/tables" -v names="${tables[*]}" -f "$here/fill.awk" "$document" \
    >"$results/document.md"
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
