#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: summary.sh RESULTS KEY SURVIVORS LEAST
# Counts the mutations of one run, lists those that no test noticed, and fails if fewer than LEAST
# per cent were killed, or if one is not judged in SURVIVORS. A survivor that SURVIVORS judges as
# equivalent does not count.
set -euo pipefail

results=$1 key=$2 survivors=$3 least=$4
here=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

grep -F "{\"key\":\"$key\"," "$results" >"$work/results" || true
count() {
  grep -cF "\"result\":\"$1\"" "$work/results" || true
}

# text_of NAME: a text member of the JSON lines, which are written by worker.sh.
text_of() {
  sed -E "s/.*\"$1\":\"(([^\"\\\\]|\\\\.)*)\".*/\1/; s/\\\\([\"\\\\])/\1/g; s/^ +//"
}

equivalent=0 not_judged=0
while IFS= read -r one; do
  file=$(text_of file <<<"$one") old=$(text_of old <<<"$one") new=$(text_of new <<<"$one")
  judgement=$("$here/judgement.sh" "$survivors" "$file" "$old" "$new")
  [[ $judgement != equivalent* ]] || equivalent=$((equivalent + 1))
  [[ -n $judgement ]] || not_judged=$((not_judged + 1))
  printf '%s (%s)\n  - %s\n  + %s\n' "$file" "${judgement:-not judged yet}" "$old" "$new"
done < <(grep -F '"result":"survived"' "$work/results" || true)

killed=$(count killed) survived=$(count survived)
judged=$((killed + survived - equivalent))
((judged > 0)) || { echo "no mutation was judged" >&2; exit 1; }
printf '%d killed (%d by a time-out), %d survived of which %d are equivalent, %d did not compile' \
  "$killed" "$(grep -cF '"killer":"time-out"' "$work/results" || true)" "$survived" "$equivalent" \
  "$(count "not compiled")"
printf '; %d.%d %% killed\n' $((killed * 100 / judged)) $((killed * 1000 / judged % 10))
((killed * 100 >= least * judged)) || { echo "fewer than $least % were killed" >&2; exit 1; }
((not_judged == 0)) || { echo "$not_judged survived and are not judged in $survivors" >&2; exit 1; }
