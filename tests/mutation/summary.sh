#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: summary.sh RESULTS KEY SURVIVORS LEAST
# Counts the mutations of one run, lists those that no test noticed, and fails if fewer than LEAST
# per cent were killed. A survivor that SURVIVORS judges as equivalent counts as neither.
set -euo pipefail

results=$1 key=$2 survivors=$3 least=$4
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

equivalent=0
while IFS= read -r one; do
  file=$(text_of file <<<"$one") old=$(text_of old <<<"$one") new=$(text_of new <<<"$one")
  judgement=$(grep -F -A 3 "file: \`$file\`" "$survivors" | grep -F -A 2 -x -- "- old: \`$old\`" |
    grep -F -A 1 -x -- "- new: \`$new\`" | sed -n 's/^- judgement: //p') || true
  [[ $judgement != equivalent* ]] || equivalent=$((equivalent + 1))
  printf '%s (%s)\n  - %s\n  + %s\n' "$file" "${judgement:-not judged yet}" "$old" "$new"
done < <(grep -F '"result":"survived"' "$work/results" || true)

killed=$(count killed) survived=$(count survived)
judged=$((killed + survived - equivalent))
((judged > 0)) || { echo "no mutation was judged" >&2; exit 1; }
printf '%d killed, %d survived of which %d are equivalent, %d did not compile; %d.%d %% killed\n' \
  "$killed" "$survived" "$equivalent" "$(count "not compiled")" \
  $((killed * 100 / judged)) $((killed * 1000 / judged % 10))
((killed * 100 >= least * judged)) || { echo "fewer than $least % were killed" >&2; exit 1; }
