#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows complete configuration cycles: a controller publishes, a service answers, an access point gets,
# applies, commits and rolls back. Each step checks its result.
set -euo pipefail

if (($# != 1)) || [[ ! -x $1 ]]; then
  echo "usage: $0 PATH_TO_ZOTCONF_BINARY" >&2
  exit 2
fi
zotconf=$(realpath "$1")
sample=$(realpath "$(dirname "$0")/sample")

# shellcheck source=examples/demo_steps.sh
source "$(dirname "$0")/demo_steps.sh"

source=$work/source       # the files that the controller edits
published=$work/published # the files that the service serves
device=$work/device       # the access point's storage
applied=$work/applied     # the entries that the access point received last

unset ZOT_DEV_PATH
export ZOT_PREFIX_CONF_ROOT=$device
export ZOT_PREFIX_TMP_ROOT=$device

# Checks that the output has a table line "category key status".
lists() {
  grep -qE "^$1 +$2 +$3 +[0-9]+$" "$log" || fail "no table line \"$1 $2 $3\""
}

publish() {
  expect 0 "$zotconf" publish "$source" --out "$published" --subsys AP --index 001122334455 \
    --cluster demo-cluster --firmware 7.1.0
}

cycle() {
  local want=$1
  shift
  rm -rf "$applied"
  expect "$want" "$zotconf" cycle --subsys AP --index 001122334455 --out "$applied" "$@"
}

cp -r "$sample" "$source"
files=$(find "$source" -type f | wc -l)
categories=$(find "$source" -mindepth 1 -maxdepth 1 -type d | wc -l)
((files >= 40 && categories >= 12)) || fail "the sample is too small: $files in $categories"

tell "Publish the sample: all $files files in $categories categories are new."
publish
shows "published: $files files, $files new, 0 changed, 0 same, 0 removed"

tell "Serve the publication on a free port of the loopback interface."
: >"$work/serve.log"
"$zotconf" serve "$published" --port 0 >"$work/serve.log" 2>&1 &
service=$!
started+=("$service")
port=
for _ in {1..100}; do
  port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.log")
  [[ -z $port ]] || break
  kill -0 "$service" 2>/dev/null || fail "the service ended"
  sleep 0.05
done
[[ -n $port ]] || fail "the service does not listen"
export ZOT_REMOTE_PORT=$port

tell "Get for the first time and commit: all $files entries are added, byte for byte."
cycle 0 --commit
shows "new configuration: $files entries, $files added"
shows "committed"
diff -r "$source" "$applied" >>"$log" 2>&1 || fail "the entries are not the published files"

tell "Get again with nothing published: no update, exit status 3."
cycle 3
shows "no update: 0 entries"

tell "Change, add and delete a file, publish: 1 new, 1 changed, 1 removed, the rest the same."
echo "rate-limit=update" >>"$source/Wlan/guest"
printf 'ssid=Lab\nsecurity=wpa3-personal\nvlan=110\n' >"$source/Wlan/lab"
rm "$source/Schedule/always"
publish
shows "published: $files files, 1 new, 1 changed, $((files - 2)) same, 1 removed"

tell "Get and commit: only the difference comes, one entry modified, one added, one deleted."
cycle 0 --commit
shows "new configuration: 3 entries, 1 added, 1 modified, 1 deleted"
lists Wlan guest modified
lists Wlan lab added
lists Schedule always deleted
shows "committed"
cmp -s "$source/Wlan/guest" "$device/writable/zot/config/Wlan/guest/2" ||
  fail "the changed file is not in the cache"

tell "Publish a bad configuration: one file changed."
cp "$source/Wlan/guest" "$work/good"
echo "security=broken" >>"$source/Wlan/guest"
publish
shows "1 changed, $((files - 1)) same"

tell "Get and apply: the access point refuses it, it is rolled back, exit status 5."
# shellcheck disable=SC2016 # the command expands its own variable
cycle 5 --apply 'if grep -rq security=broken "$ZOTCONF_DIR"; then exit 1; fi'
lists Wlan guest modified
shows "apply: exit status 1"
shows "rolled back"
cmp -s "$work/good" "$device/writable/zot/config/Wlan/guest/2" ||
  fail "the configuration in force has changed"

tell "Get again: the same bad configuration is not offered as new, exit status 4."
cycle 4 --commit
shows "New configuration is still corrupted."

tell "Restart the client without a service, get from the cache: $files entries, the good ones."
kill "$service"
status=0
wait "$service" || status=$?
((status == 0)) || fail "the service ended with $status"
cycle 0 --want cached
shows "cached configuration: $files entries"
cp "$work/good" "$source/Wlan/guest"
diff -r "$source" "$applied" >>"$log" 2>&1 || fail "the cached entries are not those in force"

echo "All $step steps passed."
