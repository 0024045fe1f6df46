#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_c_client.sh ZOTCONF SAMPLE PROGRAM
# Publishes SAMPLE, serves it on a free port, and runs PROGRAM against it with directories of its
# own and the number of published files as its argument.
set -euo pipefail

zotconf=$1 sample=$2 program=$3
work=$(mktemp -d)
server=

clean_up() {
  if [[ -n $server ]]; then
    kill "$server" 2>/dev/null || true
    wait "$server" || true
  fi
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  echo "run_c_client: $*" >&2
  cat "$work/serve.log" >&2
  exit 1
}

"$zotconf" publish "$sample" --out "$work/pub" --subsys AP --index 001122334455 \
  --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11

: >"$work/serve.log"
"$zotconf" serve "$work/pub" --port 0 >"$work/serve.log" 2>&1 &
server=$!
port=
for ((tries = 0; tries < 100; ++tries)); do
  port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.log")
  [[ -z $port ]] || break
  kill -0 "$server" 2>/dev/null || fail "the service ended"
  sleep 0.1
done
[[ -n $port ]] || fail "the service does not tell its port"

published=$(find "$sample" -type f | wc -l)
mkdir "$work/conf" "$work/tmp"
export ZOT_REMOTE_PORT=$port ZOT_PREFIX_CONF_ROOT=$work/conf ZOT_PREFIX_TMP_ROOT=$work/tmp
unset ZOT_DEV_PATH
"$program" "$published" || fail "$program failed with status $?"

kill -TERM "$server"
wait "$server" || fail "the service did not stop cleanly: status $?"
server=
