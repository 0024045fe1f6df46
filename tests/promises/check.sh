#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: check.sh RECORD TABLE SOURCES HEADER…
# Checks that a test provokes each status of each call of the interface. The record has what the calls
# returned to which test: "CALL STATUS SUITE.TEST", only of tests that passed. The table names the test
# of each pair. SOURCES is the folder of the tests.
#
#   - the table has a line for each pair that the headers promise, and for no other
#   - the call returned the status to that test, and the source of the test names the status
#   - no call returned to any test a status that its comment does not promise
set -euo pipefail

record=$1 table=$2 sources=$3
shift 3
headers=("$@")
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
status=0

# complain TITLE FILE: prints the file's lines, if it has any.
complain() {
  if [[ -s $2 ]]; then
    printf '%s:\n%s\n' "$1" "$(<"$2")" >&2
    status=1
  fi
}

awk -f "$here/pairs.awk" "${headers[@]}" | sort -u >"$work/promised"
# "CALL passes-on": the call also returns the statuses of an operation that somebody else supplies.
sed -nE 's/^([^# ]+) passes-on$/\1/p' "$table" | sort >"$work/passing"
grep -vE '^(#|$)| passes-on$' "$table" | sort >"$work/table"
cut -d' ' -f1,2 "$work/table" | sort >"$work/listed"
sort -u "$record" >"$work/record"
[[ -s $work/promised && -s $work/record ]] || {
  echo "the headers promise nothing, or no test has recorded anything" >&2
  exit 1
}

comm -23 "$work/promised" "$work/listed" >"$work/found"
complain "promised, but without a line in the table" "$work/found"
comm -13 "$work/promised" "$work/listed" >"$work/found"
complain "twice in the table, or not promised by a header" "$work/found"
comm -13 "$work/record" "$work/table" >"$work/found"
complain "not returned to this test" "$work/found"
cut -d' ' -f1,2 "$work/record" | sort -u | comm -13 "$work/promised" - |
  join -v 1 - "$work/passing" >"$work/found"
complain "returned, but not promised by the header" "$work/found"
mapfile -t files < <(find "$sources" -name '*_test.cpp')
awk -f "$here/named.awk" "${headers[0]}" "$work/table" "${files[@]}" >"$work/found"
complain "the source of the test does not name the status" "$work/found"
((status != 0)) || echo "$(wc -l <"$work/promised") statuses of calls, each provoked by a test"
exit "$status"
