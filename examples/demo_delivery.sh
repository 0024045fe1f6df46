#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows the way of a configuration from a controller to an element: published and signed, served as
# static files by nginx, fetched by a relay, applied by `zotconf watch`. Then the web server fails, and
# two attackers take its place. Each step checks its result.
set -euo pipefail

if (($# != 1)) || [[ ! -x $1 ]]; then
  echo "usage: $0 PATH_TO_ZOTCONF_BINARY" >&2
  exit 2
fi
zotconf=$(realpath "$1")
sample=$(realpath "$(dirname "$0")/sample")

# shellcheck source=examples/demo_steps.sh
source "$(dirname "$0")/demo_steps.sh"

chmod 711 "$work"   # the relay and nginx run as other users
source=$work/source # the files that the controller edits
published=$work/pub # what the web server serves
store=$work/store   # what the relay keeps
device=$work/device # the cache of the element

unset ZOT_DEV_PATH
export ZOT_PREFIX_CONF_ROOT=$device
export ZOT_PREFIX_TMP_ROOT=$device

# Waits until a file has a line with a text after its first LINES lines.
waits_for() {
  local file=$1 text=$2 lines=${3:-0}
  for _ in {1..300}; do
    tail -n "+$((lines + 1))" "$file" | grep -qF -- "$text" && return
    sleep 0.1
  done
  fail "no \"$text\" in $(basename "$file")"
}

lines_of() { wc -l <"$1"; }

# The certificate of a publisher, NAME.crt with NAME.key, signed by itself.
issue() {
  expect 0 openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
    -subj "/CN=$1" -addext keyUsage=critical,digitalSignature -keyout "$work/$1.key" -out "$work/$1.crt"
}

publish() {
  expect 0 "$zotconf" publish "$source" --out "$1" --index 001122334455 --cluster demo-cluster \
    --sign-cert "$work/$2.crt" --sign-key "$work/$2.key"
}

# Serves a publication folder as static files.
serve() {
  ln -sfn "$1" "$work/served"
  start_nginx
}

stop_serving() {
  kill "$nginx"
  wait "$nginx" || true
}

in_force() { cat "$device/writable/zot/knowledge/subsys.checksum"; }

cp -r "$sample" "$source"
files=$(find "$source" -type f | wc -l)

tell "Publish $files files, signed with the key of the publisher."
issue publisher
publish "$published" publisher
shows "signed"

tell "Serve the publication as static files with nginx."
port=$(free_port)
write_nginx_configuration "$port" "$work/served" </dev/null
serve "$published"

tell "Start a relay on the element: it verifies the signature and fetches all $files files."
: >"$work/relay.log"
as_user=()
((EUID != 0)) || as_user=(--user nobody)
"$zotconf" relay --upstream "http://127.0.0.1:$port" --index 001122334455 --store "$store" --port 0 \
  --every 500ms --keyring "$work/publisher.crt" "${as_user[@]}" >>"$work/relay.log" 2>&1 &
started+=("$!")
waits_for "$work/relay.log" "$files files, $files fetched"
waits_for "$work/relay.log" "signed by CN=publisher"
ZOT_REMOTE_PORT=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/relay.log")
export ZOT_REMOTE_PORT

tell "Watch on the element: the first configuration is applied and committed."
: >"$work/watch.log"
"$zotconf" watch --index 001122334455 --every 500ms --apply true >>"$work/watch.log" 2>&1 &
started+=("$!")
waits_for "$work/watch.log" "committed: $files entries"

tell "Change one file and publish: the relay fetches one file, the element commits one entry."
cp -r "$published" "$work/first" # for the attack below
before=$(lines_of "$work/watch.log")
echo "rate-limit=update" >>"$source/Wlan/guest"
sleep 1.1 # nginx tells publications of one element apart by their second
publish "$published" publisher
waits_for "$work/relay.log" "$files files, 1 fetched"
waits_for "$work/watch.log" "committed: 1 entry" "$before"
good=$(in_force)

tell "Stop nginx: the relay goes on serving, and a new client gets all $files files from it."
stop_serving
waits_for "$work/relay.log" "cannot connect"
expect 0 env ZOT_PREFIX_CONF_ROOT="$work/other" ZOT_PREFIX_TMP_ROOT="$work/other" \
  "$zotconf" cycle --index 001122334455 --commit
shows "$files added"

tell "An attacker serves a changed configuration, signed with another key: it is refused."
cp -r "$published" "$work/forged"
issue attacker
cp -r "$source" "$work/honest"
echo "security=open" >>"$source/Wlan/guest"
publish "$work/forged" attacker
serve "$work/forged"
waits_for "$work/relay.log" "publication refused: signed by an unknown certificate"
stop_serving

tell "An attacker serves the first publication again, whose signature is good: it is refused."
rm -rf "$source" "$work/forged"
mv "$work/honest" "$source"
cp -r "$work/first" "$work/replayed"
serve "$work/replayed"
waits_for "$work/relay.log" "publication refused: K is older"
stop_serving
[[ $(in_force) == "$good" ]] || fail "the configuration in force has changed"

tell "The real server is back with a new publication: the relay recovers, the element commits it."
before=$(lines_of "$work/watch.log")
printf 'ssid=Lab\nsecurity=wpa3-personal\nvlan=110\n' >"$source/Wlan/lab"
publish "$published" publisher
serve "$published"
waits_for "$work/relay.log" "recovered"
waits_for "$work/watch.log" "committed: 1 entry" "$before"
expect 0 "$zotconf" status --relay "http://127.0.0.1:$ZOT_REMOTE_PORT"

echo "All $step steps passed."
