# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by the demos. `work` is a temporary folder and `log` the output of the step; at the end, the
# folder is removed and the processes in `started` are stopped.

work=$(mktemp -d)
log=$work/step.log
started=()
step=0

clean_up() {
  local process
  for process in "${started[@]}"; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT

tell() {
  step=$((step + 1))
  printf '%d. %s\n' "$step" "$1"
}

fail() {
  printf 'step %d failed: %s\n' "$step" "$1" >&2
  local file
  for file in "$work"/*.log; do
    if [[ -s $file ]]; then
      printf -- '--- last output: %s\n' "$(basename "$file" .log)" >&2
      tail -n 20 "$file" >&2
    fi
  done
  exit 1
}

# Runs a command and checks its exit status.
expect() {
  local want=$1 status=0
  shift
  "$@" >"$log" 2>&1 || status=$?
  ((status == want)) || fail "exit status $status instead of $want: $*"
}

# Checks that the output of the step contains a text.
shows() {
  grep -qF -- "$1" "$log" || fail "the output does not hold \"$1\""
}
