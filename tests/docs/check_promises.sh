#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_promises.sh PROMISES DOCUMENT TEST_PROGRAM...
# Checks that the document contains each promise, and that the tests named for it exist.
set -euo pipefail

promises=$1 document=$2
shift 2
status=0 count=0

complain() {
  echo "$*" >&2
  status=1
}

# has_cases FILTER
has_cases() {
  local listed
  listed=$("${tests[@]}" --gtest_list_tests --gtest_filter="$1")
  grep -q '^  ' <<<"$listed"
}

tests=("$@")
while IFS='|' read -r promise kind held_by; do
  count=$((count + 1))
  case $kind in
    tests)
      IFS=: read -ra filters <<<"$held_by"
      for filter in "${filters[@]}"; do
        has_cases "$filter" || complain "no test matches $filter: $promise"
      done
      ;;
    sweep) ;;
    *) complain "neither tests nor sweep: $promise" ;;
  esac
  grep -qF "| $promise |" "$document" || complain "$document does not contain: $promise"
done < <(sed -E '/^(#|$)/d; s/ *\| */|/g' "$promises")
((count > 0)) || complain "$promises contains no promise"
exit "$status"
