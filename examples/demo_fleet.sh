#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows how a change reaches a fleet of 200 elements in two waves. nginx serves the publication and
# receives the reports of the elements; each element runs a relay and `zotconf watch`. In the first wave
# one element refuses the change, so the second wave is not published until the fault is mended. Each step
# checks its result.
set -euo pipefail

if (($# != 1)) || [[ ! -x $1 ]]; then
  echo "usage: $0 PATH_TO_ZOTCONF_BINARY" >&2
  exit 2
fi
zotconf=$(realpath "$1")
sample=$(realpath "$(dirname "$0")/sample")

# shellcheck source=examples/demo_steps.sh
source "$(dirname "$0")/demo_steps.sh"

readonly elements=200 wave=10%
readonly every=5s # how often a relay asks nginx, and a watch its relay
source=$work/fleet       # the files that the controller edits
published=$work/pub      # what nginx serves
reports=$work/reports    # what nginx receives
processes=$work/elements # stores, caches and logs of the elements

chmod 711 "$work" # the relays and nginx run as other users
unset ZOT_DEV_PATH
as_user=()
((EUID != 0)) || as_user=(--user nobody)

index_of() { printf '02000000%04X' "$1"; }

make_source() {
  local i
  mkdir -p "$source/elements"
  cp -r "$sample" "$source/common"
  for ((i = 1; i <= elements; ++i)); do
    mkdir "$source/elements/$(index_of "$i")"
  done
}

# publish CONFIG_ID [OPTION]...
publish() {
  expect 0 "$zotconf" publish --fleet "$source" --out "$published" --cluster demo-fleet \
    --config-id "$1" "${@:2}"
}

new_id() { cat /proc/sys/kernel/random/uuid; }

# Serves the publication, and receives the reports below /reports.
serve() {
  mkdir -p "$reports"
  ((EUID != 0)) || chown nobody "$reports"
  write_nginx_configuration "$1" "$published" <<DIRECTIVES
    location /reports/ {
      root $work;
      dav_methods PUT;
      create_full_put_path on;
      client_max_body_size 64k;
      limit_except PUT { deny all; }
    }
DIRECTIVES
  start_nginx
}

# Prints the port that a relay has chosen, once it listens.
port_of() {
  local found
  for _ in {1..300}; do
    found=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$1")
    [[ -z $found ]] || break
    sleep 0.1
  done
  [[ -n $found ]] || fail "no port in $1"
  echo "$found"
}

# The command that applies a configuration on every element. The element in $work/limited has a radio
# that does not support the rate limit "burst".
write_apply_command() {
  cat >"$work/apply" <<APPLY
#!/bin/sh
if grep -qsr rate-limit=burst "\$ZOTCONF_DIR" && grep -qsx "\$1" $work/limited; then
  echo "rate-limit=burst: the radio does not support it" >&2
  exit 1
fi
APPLY
  chmod 755 "$work/apply"
}

start_relay() {
  local index=$1 folder=$processes/$1
  mkdir -p "$folder"
  "$zotconf" relay --upstream "http://127.0.0.1:$port" --index "$index" --store "$folder/store" \
    --port 0 --every "$every" --unsigned "${as_user[@]}" --element "$folder/state.json" \
    --report "http://127.0.0.1:$port/reports" >"$folder/relay.log" 2>&1 &
  started+=("$!")
}

start_watch() {
  local index=$1 folder=$processes/$1
  ZOT_REMOTE_PORT=$(port_of "$folder/relay.log") ZOT_PREFIX_CONF_ROOT=$folder \
    ZOT_PREFIX_TMP_ROOT=$folder "$zotconf" watch --index "$index" --every "$every" \
    --apply "$work/apply $index" --state "$folder/state.json" >"$folder/watch.log" 2>&1 &
  started+=("$!")
}

start_elements() {
  local i
  chmod 711 "$processes"
  for ((i = 1; i <= elements; ++i)); do
    start_relay "$(index_of "$i")"
  done
  for ((i = 1; i <= elements; ++i)); do
    start_watch "$(index_of "$i")"
  done
}

# Waits until `zotconf fleet` ends with this status, and keeps its output as that of the step.
fleet_ends() {
  local want=$1 status
  shift
  for _ in {1..240}; do
    status=0
    "$zotconf" fleet "$published" "$reports" "$@" >"$log" 2>&1 || status=$?
    ((status != want)) || return 0
    sleep 0.5
  done
  fail "exit status $status instead of $want: zotconf fleet $*"
}

make_source
write_apply_command
mkdir "$processes"

tell "Publish a configuration for $elements elements."
first=$(new_id)
publish "$first"
shows "$elements elements, $elements published"

tell "Serve it with nginx, which also receives the reports of the elements."
port=$(free_port)
serve "$port"

tell "Start a relay and a watch for each element, $((2 * elements)) processes."
start_elements

tell "zotconf fleet: all $elements elements report that they have it in force."
fleet_ends 0 --config-id "$first" --min-in-force 100%

tell "Change a common file, and publish it to the first wave: $wave of the fleet."
change=$(new_id)
echo rate-limit=burst >>"$source/common/Wlan/guest"
expect 0 "$zotconf" publish --fleet "$source" --out "$published" --cluster demo-fleet \
  --config-id "$change" --wave "$wave" --dry-run --json
# The element of the wave that is going to refuse.
sed -n 's/.*"index":[[:space:]]*"\([0-9A-F]*\)".*/\1/p' "$log" | head -n 1 >"$work/limited"
publish "$change" --wave "$wave"
shows "of $elements elements"

tell "zotconf fleet: one element refuses, more than --max-refused 2%. The second wave is stopped."
fleet_ends 9 --config-id "$change" --max-refused 2%
shows "apply: "
expect 0 "$zotconf" fleet "$published" "$reports" --config-id "$first" --min-in-force 100%

tell "Mend the fault, and publish to the first wave again."
mended=$(new_id)
sed -i s/rate-limit=burst/rate-limit=update/ "$source/common/Wlan/guest"
publish "$mended" --wave "$wave"
fleet_ends 0 --config-id "$mended" --max-refused 2% --min-in-force 100%

tell "The first wave has it in force: publish the same to all."
publish "$mended"
fleet_ends 0 --config-id "$mended" --max-refused 2% --min-in-force 100%
expect 0 "$zotconf" fleet "$published" "$reports" --html "$work/fleet.html"
shows "$mended"

echo "All $step steps passed: $elements elements have the mended configuration in force."
