# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Sourced by the delivery tests. `work` is a temporary folder; at the end it is removed and the processes
# in `started` are stopped.

work=$(mktemp -d)
started=()

clean_up() {
  local pid
  for pid in "${started[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

fail() {
  echo "${0##*/}: $*" >&2
  local log
  for log in "$work"/*.log; do
    [[ ! -s $log ]] || tail -n 20 "$log" | sed "s|^|${log##*/}: |" >&2
  done
  exit 1
}

passed() {
  echo "ok: $*"
}

# await WHAT COMMAND…: repeats the command until it succeeds.
await() {
  local what=$1 tries
  shift
  for ((tries = 0; tries < 600; ++tries)); do
    ! "$@" 2>/dev/null || return 0
    sleep 0.05
  done
  fail "no $what within 30 seconds"
}

# expect STATUS COMMAND…: runs the command and checks its status; its output goes to output.log.
expect() {
  local want=$1 status=0
  shift
  "$@" >"$work/output.log" 2>&1 || status=$?
  ((status == want)) || fail "status $status instead of $want: $*"
}

# make_authority NAME: makes a certificate that may only sign certificates.
make_authority() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj "/CN=$1" \
    -addext 'keyUsage=critical,keyCertSign' -keyout "$work/$1.key" -out "$work/$1.crt" \
    >"$work/openssl.log" 2>&1 || fail "cannot make the authority $1"
}

# make_certificate NAME AUTHORITY EXTENSION…
make_certificate() {
  local name=$1 authority=$2
  shift 2
  {
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$name" \
      -keyout "$work/$name.key" -out "$work/$name.request" &&
      openssl x509 -req -in "$work/$name.request" -CA "$work/$authority.crt" \
        -CAkey "$work/$authority.key" -CAcreateserial -days 2 -out "$work/$name.crt" \
        -extfile <(printf '%s\n' keyUsage=critical,digitalSignature "$@")
  } >"$work/openssl.log" 2>&1 || fail "cannot make the certificate $name"
}

# is_signed K: checks that the signature next to K is valid for its bytes.
is_signed() {
  openssl cms -verify -binary -inform DER -in "$1.p7s" -content "$1" -CAfile "$work/signers.crt" \
    -purpose any -out /dev/null 2>/dev/null
}

digest_of() {
  sha256sum "$1" | cut -c 1-64
}

# is_whole K CONFIG: checks that each file that K lists is in the folder CONFIG, with its size and bytes.
is_whole() {
  local path size checksum
  while IFS=$'\t' read -r path size checksum; do
    [[ $(stat -c %s "$2$path" 2>/dev/null) == "$size" && $(digest_of "$2$path") == "$checksum" ]] ||
      return 1
  done < <(jq -r '.gpbs[] | [.path, .size, .checksum] | @tsv' "$1")
}
