#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check_promises.sh PROMISES DOCUMENT TEST_PROGRAM...
# Each promise stands in the document, and the tests that hold it are there.
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
        has_cases "$filter" || complain "no test is named $filter: $promise"
      done
      ;;
    sweep) ;;
    *) complain "neither tests nor a sweep: $promise" ;;
  esac
  grep -qF "| $promise |" "$document" || complain "not in $document: $promise"
done < <(sed -E '/^(#|$)/d; s/ *\| */|/g' "$promises")
((count > 0)) || complain "there is no promise in $promises"
exit "$status"
