# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Sourced by the scripts that run a client against a real service. `work` is a temporary folder,
# removed at the end. It holds a publication in `published` and the element's directories.

readonly index=001122334455
work=$(mktemp -d)
published=$work/published
service=
mkdir "$work/conf" "$work/tmp"
export ZOT_PREFIX_CONF_ROOT=$work/conf ZOT_PREFIX_TMP_ROOT=$work/tmp
unset ZOT_DEV_PATH

clean_up() {
  if [[ -n $service ]]; then
    kill "$service" 2>/dev/null || true
    wait "$service" || true
  fi
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  echo "${0##*/}: $*" >&2
  if [[ -e $work/serve.log ]]; then
    cat "$work/serve.log" >&2
  fi
  exit 1
}

# publish ZOTCONF SOURCE
publish() {
  "$1" publish "$2" --out "$published" --subsys AP --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 >/dev/null
}

# Serves the publication on a free port and sets that port in the element's environment.
start_service() {
  local zotconf=$1 port='' tries
  : >"$work/serve.log"
  "$zotconf" serve "$published" --port 0 >"$work/serve.log" 2>&1 &
  service=$!
  for ((tries = 0; tries < 300; ++tries)); do
    port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.log")
    [[ -z $port ]] || break
    kill -0 "$service" 2>/dev/null || fail "the service ended"
    sleep 0.1
  done
  [[ -n $port ]] || fail "the service does not tell its port"
  export ZOT_REMOTE_PORT=$port
}

stop_service() {
  local status=0
  kill -TERM "$service"
  wait "$service" || status=$?
  service=
  ((status == 0)) || fail "the service did not stop cleanly: status $status"
}

# expect STATUS COMMAND…: runs the command, writes its output to $work/output, and checks its exit
# status.
expect() {
  local want=$1 status=0
  shift
  "$@" >"$work/output" 2>&1 || status=$?
  ((status == want)) || fail "status $status instead of $want: $*: $(<"$work/output")"
}

# Checks that the output of the last command has a matching line.
shows() {
  grep -qE -- "$1" "$work/output" || fail "no line \"$1\" in: $(<"$work/output")"
}

shows_not() {
  ! grep -E -- "$1" "$work/output" >&2 || fail "there should be no line \"$1\""
}

count_files() {
  find "$1" -type f | wc -l
}
