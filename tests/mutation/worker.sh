#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: worker.sh WORK_DIR NUMBER WORKERS COUNT
# Judges every WORKERS-th mutation of WORK_DIR/mutations, in a copy of the tree of its own,
# WORK_DIR/worker.NUMBER/tree, until COUNT of them count. One that does not compile and one that is known
# to change nothing do not count. Appends a line of JSON for each to WORK_DIR/results.jsonl and skips those
# that are there already.
set -euo pipefail

work=$1 worker=$2 workers=$3 wanted=$4
own=$work/worker.$worker
tree=$own/tree build=$own/build program=$own/build/tests/zotconf_tests log=$own/log
here=$(dirname "$(readlink -f "$0")")
key=$(<"$work/key")
readonly leaks=suppressions=$tree/tests/lsan.supp:print_suppressions=0
longest_of_rest=$(<"$work/longest")
readonly longest_of_file=60 longest_of_rest

# A mutated program may remove or write anything, and kill anyone: it sees its own processes and
# network, and may write to its own /tmp alone.
confined() {
  local spaces=(--mount --net --pid --fork --kill-child)
  ((EUID == 0)) || spaces+=(--map-root-user)
  unshare "${spaces[@]}" "$here/confine.sh" "$@"
}

# run_tests LIMIT FILTER: the first failing test is in `killer`, or "time-out".
run_tests() {
  local limit=$1 filter=$2 status=0
  killer=
  confined timeout --kill-after=5 "$limit" "$program" --gtest_fail_fast --gtest_brief=1 \
    --gtest_filter="$filter" >"$log" 2>&1 || status=$?
  ((status != 0)) || return 0
  killer=$(sed -nE 's/^\[  FAILED  \] ([^ ,]+).*/\1/p' "$log" | head -n 1)
  if ((status == 124 || status == 137)); then
    killer=time-out
  fi
  if [[ -z $killer ]] && grep -q 'LeakSanitizer: .* leaked' "$log"; then
    killer=leak
  fi
  killer=${killer:-crash}
  return 1
}

# A test may fail by chance on a busy machine: what kills has to do so twice.
kills() {
  local limit=$1 filter=$2
  if run_tests "$limit" "$filter"; then
    return 1
  fi
  if [[ $killer == *.* ]]; then
    filter=$killer
  fi
  ! run_tests "$limit" "$filter"
}

# The suites in the test file of a source file, as a filter; empty if it has none.
suites_of() {
  local name files
  name=$(basename "${1%.*}")
  mapfile -t files < <(find "$tree/tests" -name "${name}*_test.cpp" ! -path '*/tools/*')
  ((${#files[@]} == 0)) || sed -nE 's/^TEST(_F|_P)?\(([A-Za-z0-9_]+),.*/\2.*:*\/\2.*/p' "${files[@]}" |
    sort -u | paste -sd:
}

escape() {
  sed 's/\\/\\\\/g; s/"/\\"/g' <<<"$1"
}

# record NUMBER RESULT KILLER FILE LINE KIND OLD NEW SECONDS
record() {
  printf '{"key":"%s","number":%d,"result":"%s","killer":"%s","file":"%s","line":%d,"kind":"%s",' \
    "$key" "$1" "$2" "$3" "$4" "$5" "$6" >"$own/line"
  printf '"old":"%s","new":"%s","seconds":%d}\n' "$(escape "$7")" "$(escape "$8")" "$9" \
    >>"$own/line"
  cat "$own/line" >>"$work/results.jsonl"
}

make_program() {
  cmake --build "$build" --target zotconf_tests -- -j 1 >"$log" 2>&1
}

# killer_before FILE OLD NEW: the test that noticed the same mutation in an earlier run.
killer_before() {
  grep -F "\"old\":\"$(escape "$2")\",\"new\":\"$(escape "$3")\"" "$work/results.jsonl" |
    grep -F "\"result\":\"killed\"" | grep -F "\"file\":\"$1\"" |
    sed -nE 's/.*"killer":"([^"]+\.[^"]+)".*/\1/p' | tail -n 1
}

# judge FILE TEST: TEST is likely to notice the mutation, so it runs first. It may be empty.
judge() {
  local file=$1 likely=$2 suites
  if ! make_program; then
    result="not compiled"
    return
  fi
  suites=$(suites_of "$file")
  result=killed
  if [[ -n $likely ]] && LSAN_OPTIONS=detect_leaks=0 kills "$longest_of_file" "$likely"; then
    return
  fi
  if [[ -n $suites ]] && LSAN_OPTIONS=$leaks kills "$longest_of_file" "$suites"; then
    return
  fi
  # The leak checker itself fails in a test of the others, so it looks only at those of the file.
  LSAN_OPTIONS=detect_leaks=0 kills "$longest_of_rest" "-${suites:-none}" || result=survived
}

# counts RESULT FILE OLD NEW
counts() {
  case $1 in
    killed) true ;;
    survived) [[ $("$here/judgement.sh" "$here/../../docs/release/mutations.md" "$2" "$3" "$4") != equivalent* ]] ;;
    *) false ;;
  esac
}

# plant NUMBER FILE LINE KIND OLD NEW: judges the mutation, and leaves its verdict in `result`.
plant() {
  local number=$1 file=$2 line=$3 kind=$4 old=$5 new=$6 begin=$SECONDS
  cp "$tree/$file" "$own/kept"
  awk -v line="$line" -v text="${new//\\/\\\\}" \
    'NR == line { print text; next } { print }' "$own/kept" >"$tree/$file"
  killer=
  judge "$file" "$(killer_before "$file" "$old" "$new" || true)"
  cp "$own/kept" "$tree/$file"
  record "$number" "$result" "${killer:-}" "$file" "$line" "$kind" "$old" "$new" $((SECONDS - begin))
  printf '%4d %-12s %s:%s %s%s, %d s\n' "$number" "$result" "$file" "$line" "$kind" \
    "${killer:+, $killer}" $((SECONDS - begin))
}

judged=0
while ((judged < wanted)) && IFS=$'\t' read -r -u 3 number file line kind new; do
  ((number % workers == worker)) || continue
  old=$(sed -n "${line}p" "$tree/$file")
  if earlier=$(grep -F "{\"key\":\"$key\",\"number\":$number," "$work/results.jsonl"); then
    result=$(sed -nE 's/.*"result":"([^"]*)".*/\1/p' <<<"$earlier")
  else
    plant "$number" "$file" "$line" "$kind" "$old" "$new"
  fi
  ! counts "$result" "$file" "$old" "$new" || judged=$((judged + 1))
done 3<"$work/mutations"
