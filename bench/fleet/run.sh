#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run.sh BUILD OUT.jsonl [FOLDER]
# Measures what a fleet costs: `zotconf publish --fleet`, many elements that poll nginx, and a rollout
# to real elements. The first line of OUT.jsonl describes the machine; each other line has the figures
# of one measurement. The publication is below FOLDER, which is on the medium to measure (default:
# /var/tmp); everything else is in memory. The environment may give smaller sizes:
# ELEMENTS (10000), ENTRIES (500) and OWN (5): the published elements, their files, and how many of
#   these are their own
# PERIOD (10), ROUNDS (2): seconds between two polls of an element, and polls of each element
# SPREAD (30): seconds over which the elements come back after a power cut
# RELAYS (100), EVERY (20): the real elements, and seconds between two polls of them
set -euo pipefail
export LC_ALL=C

(($# == 2 || $# == 3)) || {
  echo "usage: $0 BUILD OUT.jsonl [FOLDER]" >&2
  exit 2
}
host=$(realpath "$1")
out=$(realpath "$2")
medium=$(realpath "${3:-/var/tmp}")
here=$(dirname "$(readlink -f "$0")")
readonly host out medium here
readonly zotconf=$host/tools/zotconf
readonly elements=${ELEMENTS:-10000} entries=${ENTRIES:-500} own=${OWN:-5}
readonly period=${PERIOD:-10} rounds=${ROUNDS:-2} spread=${SPREAD:-30}
readonly relays=${RELAYS:-100} every=${EVERY:-20}

umask 022
export TMPDIR=/dev/shm
# shellcheck source=tests/delivery/common.sh
source "$here/../../tests/delivery/common.sh"
# shellcheck source=bench/cycles/machine.sh
source "$here/../cycles/machine.sh"
# shellcheck source=bench/fleet/packages.sh
source "$here/packages.sh"
# shellcheck source=bench/fleet/publish.sh
source "$here/publish.sh"
# shellcheck source=bench/fleet/server.sh
source "$here/server.sh"
# shellcheck source=bench/fleet/polls.sh
source "$here/polls.sh"
# shellcheck source=bench/fleet/rollout.sh
source "$here/rollout.sh"

unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY ZOT_DEV_PATH
on_medium=$(mktemp -d -p "$medium" zotconf-fleet-XXXXXX)
trap 'stop_all; rm -rf "$on_medium"; clean_up' EXIT
# nginx and the relays read them as another user.
chmod 711 "$work" "$on_medium"

progress() {
  printf 'fleet: %s, after %s s\n' "$*" "$SECONDS" >&2
}

# record FILTER [OPTION]...: appends a line of figures, which the filter of jq makes of the input, and
# the load of the machine.
record() {
  jq -c --argjson load "$(cut -d ' ' -f 1 /proc/loadavg)" "${@:2}" "$1 | .[] += {\$load}" \
    >>"$work/figures"
}

stop_all() {
  ((${#started[@]} > 0)) || return 0
  kill "${started[@]}" 2>/dev/null || true
  wait "${started[@]}" 2>/dev/null || true
  started=()
}

# Each connection is a file for nginx and for the client.
ulimit -n "$(ulimit -Hn)"
(($(ulimit -n) > elements + 1000)) ||
  fail "$elements connections need a higher limit of open files than $(ulimit -n)"

describe_machine "${fleet_versions[@]}" >"$work/figures"
measure_publishing "$on_medium/pub"
measure_polls "$on_medium/pub"
# A disk may take minutes for this.
rm -rf "$on_medium" &
removing=$!
measure_rollouts
wait "$removing"
cp "$work/figures" "$out"
progress "$out has $(wc -l <"$out") lines"
