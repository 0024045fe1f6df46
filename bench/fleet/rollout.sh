# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Measures a rollout to real elements: for each one a `zotconf relay` and a `zotconf watch`, with
# folders of their own. All elements start together; then a file that all of them have changes.

readonly common_entries=50 own_entries=5 watch_every=2
readonly rollout_site=$work/site rollout_fleet=$work/fleet

indexes() {
  local folder
  for folder in "$rollout_fleet"/elements/*; do
    echo "${folder##*/}"
  done
}

start_relay() {
  local index=$1 jitter=$2 user=()
  ((EUID != 0)) || user=(--user nobody)
  "$zotconf" relay --upstream "http://127.0.0.1:$plain_port" --index "$index" --unsigned --port 0 \
    --store "$work/relays/$index" --every "${every}s" --jitter "$jitter%" "${user[@]}" \
    >"$work/relays/$index.out" 2>"$work/relays/$index.log" &
  started+=($!)
}

listens() {
  grep -q '^listening on ' "$work/relays/$1.out"
}

start_watch() {
  local index=$1 element=$work/watches/$1 port
  port=$(sed -n 's/^listening on .*://p' "$work/relays/$index.out")
  mkdir -p "$element/conf" "$element/tmp"
  ZOT_PREFIX_CONF_ROOT=$element/conf ZOT_PREFIX_TMP_ROOT=$element/tmp ZOT_REMOTE_PORT=$port \
    "$zotconf" watch --index "$index" --every "${watch_every}s" --backoff-max "${watch_every}s" \
    --apply true --json \
    >"$element/out" 2>"$element/log" &
  started+=($!)
}

# have_committed TIMES: whether each element has committed as often.
have_committed() {
  local index
  for index in $(indexes); do
    (($(grep -c '"event":"committed"' "$work/watches/$index/out") == $1)) || return 1
  done
}

# When the newest file of each cache was put in place, in seconds since a time.
commit_times() {
  local index
  for index in $(indexes); do
    find "$work/watches/$index/conf/writable/zot/config" -printf '%C@\n' | sort -n | tail -n 1
  done | awk -v begin="$1" '{ printf "%.3f\n", $1 - begin }' | sort -n
}

# The requests in each second before and after a time.
requests() {
  awk -v begin="$1" '{ at = $1 - begin; ++count[int(at + 1000) - 1000] }
    END { for (at in count) print at, count[at] }' "$work/access" | sort -n
}

expect_published() {
  local index
  for index in $(indexes); do
    cmp -s "$work/watches/$index/conf/writable/zot/knowledge/subsys.checksum" \
      "$rollout_site/file/knowledge/AP/$index/latest/$index.checksum" ||
      fail "element $index has another configuration than the published one"
  done
}

start_elements() {
  local jitter=$1 index
  mkdir -p "$work/relays" "$work/watches"
  for index in $(indexes); do
    start_relay "$index" "$jitter"
  done
  for index in $(indexes); do
    await "relay $index" listens "$index"
    start_watch "$index"
  done
  await_commits 1
}

# await_commits TIMES
await_commits() {
  local limit=$((SECONDS + 2 * every + 60))
  until have_committed "$1"; do
    ((SECONDS < limit)) || fail "the elements have not committed within $((2 * every + 60)) seconds"
    sleep 0.5
  done
}

# measure_rollout JITTER
measure_rollout() {
  local jitter=$1 begin end
  progress "a rollout to $relays elements with a jitter of $jitter %"
  make_fleet "$rollout_fleet" "$relays" "$common_entries" "$own_entries"
  publish_fleet "$rollout_fleet" "$rollout_site" >"$work/command.log"
  : >"$work/access"
  serve "$rollout_site" "$work/access load"
  start_elements "$jitter"
  sleep "$every"
  change_common_file "$rollout_fleet"
  begin=$EPOCHREALTIME
  publish_fleet "$rollout_fleet" "$rollout_site" >"$work/command.log"
  end=$EPOCHREALTIME
  await_commits 2
  # Until each relay has asked once more.
  sleep $((every * 6 / 5))
  expect_published
  record '{rollout: {$jitter, $every, $watch_every, elements: ($committed | length),
      $publishing, $committed, $requests}}' -n \
    --argjson jitter "$jitter" --argjson every "$every" --argjson watch_every "$watch_every" \
    --argjson publishing "$(awk -v begin="$begin" -v end="$end" 'BEGIN { print end - begin }')" \
    --argjson committed "$(commit_times "$begin" | jq -cs .)" \
    --argjson requests "$(requests "$begin" | jq -cRs '[splits("\n") | select(. != "")
      | split(" ") | map(tonumber)]')"
  stop_all
  rm -rf "$rollout_fleet" "$rollout_site" "$work/relays" "$work/watches"
}

measure_rollouts() {
  measure_rollout 10
  measure_rollout 0
}
