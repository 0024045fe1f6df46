#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_event_loop.sh ZOTCONF SAMPLE PROGRAM
# The client with an event loop runs the requested cycles, survives the loss of the service, and
# stops cleanly on SIGTERM.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/service.sh"

publish "$zotconf" "$sample"
start_service "$zotconf"
expect 0 "$program" "$index" 10 3
shows "^cycle 1: $(count_files "$sample") changes, no error$"
shows '^cycle 2: 0 changes, no error$'
shows '^cycle 3: 0 changes, no error$'
shows_not '^cycle 4'

: >"$work/loop.log"
"$program" "$index" 20 >"$work/loop.log" 2>/dev/null &
client=$!
# Waits until the client has printed something new.
await() {
  local tries
  for ((tries = 0; tries < 300; ++tries)); do
    if grep -q -- "$1" "$work/loop.log"; then
      return
    fi
    sleep 0.1
  done
  kill -KILL "$client"
  fail "the client never tells \"$1\": $(<"$work/loop.log")"
}
await '^cycle 2: 0 changes, no error'
stop_service
await 'curl error get K.checksum'
kill -TERM "$client"
wait "$client" || fail "the client did not stop cleanly: status $?"
grep -q '^stopped by a signal$' "$work/loop.log" || fail "the client does not tell why it stops"
