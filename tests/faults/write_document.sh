#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: write_document.sh PROMISES RESULTS TEST_PROGRAM DOCUMENT
# Prints the document with its table filled in: each promise, what checks it, and the counts. The tests
# of a promise are run so that they can be counted.
set -euo pipefail

promises=$1 results=$2 tests=$3 document=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# counted_by SWEEP: the counts that the sweep printed, separated by <br>.
counted_by() {
  local lines
  lines=$(sed -n "s/^$1: //p" "$results"/*.counts)
  [[ -n $lines ]] || { echo "no sweep counted '$1'" >&2 && return 1; }
  paste -sd '#' <<<"$lines" | sed 's/#/<br>/g'
}

# counted_cases FILTER
counted_cases() {
  local printed
  printed=$("$tests" --gtest_brief=1 --gtest_filter="$1" 2>&1) || {
    echo "$printed" >&2
    return 1
  }
  sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\{0,1\}\.$/\1/p' <<<"$printed"
}

promises_table() {
  local promise kind held_by count
  echo "| promise | checked by | count |"
  echo "|---|---|---|"
  while IFS='|' read -r promise kind held_by; do
    case $kind in
      sweep)
        count=$(counted_by "$held_by")
        printf '| %s | sweep %s | %s |\n' "$promise" "$held_by" "$count"
        ;;
      tests)
        count=$(counted_cases "$held_by")
        ((count > 0)) || { echo "no test matches $held_by" >&2 && return 1; }
        printf '| %s | `%s` | %s cases |\n' "$promise" "$held_by" "$count"
        ;;
      *) echo "neither tests nor sweep: $promise" >&2 && return 1 ;;
    esac
  done < <(sed -E '/^(#|$)/d; s/ *\| */|/g' "$promises")
}

promises_table >"$work/promises"
awk -v work="$work" '
  /^<!-- end -->$/ { inside = 0 }
  !inside { print }
  /^<!-- counted: [a-z]+ -->$/ {
    inside = 1
    print ""
    while ((getline line < (work "/" $3)) > 0) print line
    print ""
  }' "$document"
