#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: fleet.sh RESULTS CHANGES [DOCUMENT]
# Prints the tables of RESULTS/fleet.jsonl. CHANGES is the document that lists what a change costs: the
# plan computes with its figures. With a DOCUMENT, writes the tables into the document instead, and the
# plots into the folder with its name.
set -euo pipefail
export LC_ALL=C

if (($# < 2 || $# > 3)); then
  echo "usage: $0 RESULTS CHANGES [DOCUMENT]" >&2
  exit 2
fi
results=$(realpath "$1")
changes=$(realpath "$2")
document=${3:-}
here=$(dirname "$(readlink -f "$0")")
readonly results changes document here
readonly tables=(
  fleet-machine fleet-publication fleet-publishing fleet-polls fleet-herds fleet-rollouts
  fleet-plan-polls fleet-plan)
# The titles of the axes of each plot.
declare -rA plots=(
  [herd]="time, s|elements answered per second"
  [rollout]="time after the publication, s|requests per second")

# cell TABLE COLUMN CELL...: the number in a column of the row that begins with these cells.
cell() {
  awk -v table="<!-- measured: $1 -->" -v column="$2" -v start="| $3 | $4 |" '
    $0 == table { inside = 1 }
    /^<!-- end -->$/ { inside = 0 }
    inside && index($0, start) == 1 {
      split($0, part, " *[|] *")
      gsub(",", "", part[column + 1])
      print part[column + 1]
      exit
    }' "$changes"
}

# The bytes of an update of 1 % of 10,000 files, and the bytes of K with gzip among them.
change() {
  local bytes k_bytes
  bytes=$(cell change 4 '10,000 × 4 KiB' '0 ms | `zotconf relay`')
  k_bytes=$(cell change-sizes 4 '10,000 × 4 KiB' '409,600')
  jq -cn --argjson bytes "$bytes" --argjson k_bytes "$k_bytes" '{$bytes, $k_bytes}'
}

table() {
  jq -rs -L "$here" --arg name "$1" --argjson change "$change" -f "$here/fleet.jq" \
    "$results/fleet.jsonl"
}

print_tables() {
  local name
  for name in "${tables[@]}"; do
    printf '\n%s\n\n' "$name"
    table "$name" | awk -f "$here/align.awk"
  done
}

draw() {
  local name=$1 titles
  IFS='|' read -ra titles <<<"${plots[$name]}"
  table "$name" >"$results/plots/$name.tsv"
  LC_ALL=C.UTF-8 gnuplot -c "$here/plots/load.gp" "$here/plots/style.gp" \
    "$results/plots/$name.tsv" "$results/plots/$name.svg" "${titles[@]}"
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
    cp "$results/plots/$name.svg" "$folder"
  done
  awk -v tables="$results/tables" -v names="${tables[*]}" -f "$here/fill.awk" "$document" \
    >"$results/document.md"
  cp "$results/document.md" "$document"
}

change=$(change)
readonly change
if [[ -z $document ]]; then
  print_tables
else
  write_document
fi
