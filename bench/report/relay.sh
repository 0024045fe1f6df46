#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: relay.sh RESULTS [DOCUMENT]
# Prints the tables of RESULTS/relay.jsonl. With a DOCUMENT, writes them into the document instead.
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
readonly tables=(change-machine change-sizes change-aims change)

table() {
  jq -rs -L "$here" --arg name "$1" -f "$here/relay.jq" "$results/relay.jsonl"
}

print_tables() {
  local name
  for name in "${tables[@]}"; do
    printf '\n%s\n\n' "$name"
    table "$name" | awk -f "$here/align.awk"
  done
}

write_document() {
  local name
  mkdir -p "$results/tables"
  for name in "${tables[@]}"; do
    table "$name" >"$results/tables/$name.md"
  done
  awk -v tables="$results/tables" -v names="${tables[*]}" -f "$here/fill.awk" "$document" \
    >"$results/document.md"
  cp "$results/document.md" "$document"
}

if [[ -z $document ]]; then
  print_tables
else
  write_document
fi
