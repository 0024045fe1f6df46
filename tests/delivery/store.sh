#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: store.sh ZOTCONF UPLOAD MODULES
# Uploads a publication folder to an object store. Each upload is interrupted after every object, to
# check that the store never announces an object that it does not have. MODULES is the node_modules
# folder with the store.
set -euo pipefail

zotconf=$(realpath "$1") upload=$(realpath "$2") modules=$(realpath "$3")
tests=$(dirname "$(readlink -f "$0")")
# shellcheck source=tests/delivery/common.sh
source "$tests/common.sh"

# The element with a signed K, and the one with an unsigned K.
readonly signed=AA0000000001 unsigned=BB0000000002
readonly publication=$work/pub control=$work/control remote=store:bucket/site

# rclone must not use settings of the user or of the machine.
unset "${!AWS_@}" "${!RCLONE_@}"
# A killed upload leaves its copies behind.
mkdir "$work/tmp"
export TMPDIR=$work/tmp
export RCLONE_CONFIG='' RCLONE_RETRIES=1 RCLONE_LOW_LEVEL_RETRIES=1
export RCLONE_CONFIG_STORE_TYPE=s3 RCLONE_CONFIG_STORE_PROVIDER=Other
export RCLONE_CONFIG_STORE_ACCESS_KEY_ID=S3RVER RCLONE_CONFIG_STORE_SECRET_ACCESS_KEY=S3RVER

start_store() {
  mkdir -p "$control/objects"
  NODE_PATH=$modules node "$tests/store.js" "$control" >"$work/port" 2>"$work/store.log" &
  started+=($!)
  await "port of the store" test -s "$work/port"
  export RCLONE_CONFIG_STORE_ENDPOINT
  RCLONE_CONFIG_STORE_ENDPOINT=http://127.0.0.1:$(<"$work/port")
}

# publish INDEX [OPTION]…: publishes the folder INDEX as the configuration of that element.
publish() {
  expect 0 "$zotconf" publish "$work/$1" --out "$publication" --index "$1" --cluster delivery "${@:2}"
}

publish_both() {
  publish "$signed" --sign-cert "$work/publisher.crt" --sign-key "$work/publisher.key"
  publish "$unsigned"
}

writes_done() {
  [[ ! -e $control/writes ]] || cat "$control/writes"
}

count_writes() {
  writes_done | wc -l
}

fetch_store() {
  rm -rf "$work/store"
  rclone copy --fast-list "$remote" "$work/store" >"$work/fetch.log" 2>&1 || fail "cannot read the store"
}

# Checks that the store has everything that it announces. During an upload, a K may be newer than its
# checksum: `before` has the digests that were announced when the upload began.
declare -A before=()
check_store() {
  local k checksum digest
  fetch_store
  (($(find "$work/store" -type f | wc -l) == $(writes_done | sort -u | wc -l))) ||
    fail "$1: not as many files as were written"
  for k in "$work"/store/file/knowledge/*/*/latest/*.k; do
    [[ -e $k ]] || continue
    is_whole "$k" "$work/store/config" || fail "$1: ${k##*/} names a file that is not there"
    digest=$(digest_of "$k")
    [[ $k != *"/$signed.k" || $digest == "${before[$signed]:-}" ]] || is_signed "$k" ||
      fail "$1: ${k##*/} is there without its signature"
  done
  for checksum in "$work"/store/file/knowledge/*/*/latest/*.checksum; do
    [[ -e $checksum ]] || continue
    k=${checksum%.checksum}.k
    [[ -e $k ]] || fail "$1: ${checksum##*/} announces a K that is not there"
    digest=$(<"$checksum")
    [[ $digest == $(digest_of "$k") || $digest == "${before[$(basename "$k" .k)]:-}" ]] ||
      fail "$1: ${checksum##*/} announces another K than the one that is there"
  done
}

# Checks that the store has all files of the folder; it may also have older files of config.
check_complete() {
  local file index
  fetch_store
  diff -r "$publication/file" "$work/store/file" >"$work/diff.log" 2>&1 || fail "$1: the store differs"
  while IFS= read -r file; do
    cmp -s "$publication/config/$file" "$work/store/config/$file" || fail "$1: $file differs"
  done < <(cd "$publication/config" && find . -type f)
  [[ -z $(find "$work/store" -name '.?*') ]] || fail "$1: a name with a dot was uploaded"
  for index in "$signed" "$unsigned"; do
    before[$index]=$(<"$publication/file/knowledge/AP/$index/latest/$index.checksum")
  done
}

# Checks the order of the writes: an object is written before the object that announces it.
check_order() {
  writes_done | tail -n +"$(($2 + 1))" | awk '
    function rank(key) {
      return key ~ /\/config\// ? 1 : key ~ /\.p7s$/ ? 2 : key ~ /\.k$/ ? 3 : 4
    }
    { now = rank($2); if (now < last) exit 1; last = now }
  ' || fail "$1: the order of the writes is wrong"
}

begin_upload() {
  rm -f "$control/held"
  setsid "$upload" "$publication" "$remote" >"$work/upload.log" 2>&1 &
  uploading=$!
}

is_held_or_over() {
  [[ -e $control/held ]] || ! kill -0 "$uploading"
}

# upload_piece MODE: runs an upload that may do one more write. At the next write, the upload is killed
# (hold) or gets errors (refuse). Succeeds if there is no next write.
upload_piece() {
  local status=0 done_before
  done_before=$(count_writes)
  echo "$1" >"$control/at-limit"
  echo $((done_before + 1)) >"$control/allowed"
  begin_upload
  if [[ $1 == hold ]]; then
    await "write that waits" is_held_or_over
    [[ ! -e $control/held ]] || kill -KILL -- "-$uploading"
  fi
  wait "$uploading" 2>/dev/null || status=$?
  ((status == 0)) || (($(count_writes) == done_before + 1)) || fail "not one write, but $(count_writes)"
  return $((status != 0))
}

# upload_in_pieces WHAT: interrupts an upload after each object, alternately with a kill and an error,
# and repeats it.
upload_in_pieces() {
  local pieces=0 modes=(hold refuse) first
  first=$(count_writes)
  until upload_piece "${modes[pieces % 2]}"; do
    pieces=$((pieces + 1))
    ((pieces < 50)) || fail "$1: the upload never ends"
    check_store "$1, after $pieces writes"
  done
  rm "$control/allowed"
  check_complete "$1"
  check_order "$1" "$first"
  ((pieces >= 4)) || fail "$1: ended at $pieces objects only"
  passed "$1: ended at each of $pieces objects, never announces what is not there, ends complete"
}

upload_at_once() {
  expect 0 "$upload" "$@" "$publication" "$remote"
}

check_header() {
  curl -sSI "$RCLONE_CONFIG_STORE_ENDPOINT/bucket/site/$1" >"$work/headers.log"
  grep -qix "cache-control: $2"$'\r' "$work/headers.log" || fail "$1 has no header Cache-Control: $2"
}

make_sources() {
  local index
  for index in "$signed" "$unsigned"; do
    mkdir -p "$work/$index"/{Wlan,Radio}
    echo ssid=Guest >"$work/$index/Wlan/guest network"
    echo "channel=$index" >"$work/$index/Radio/indoor"
  done
  mkdir "$work/$signed/Vlan"
  echo id=7 >"$work/$signed/Vlan/office"
}

# change TEXT: replaces the file that both elements have by another of the same size.
change() {
  echo "ssid=$1" | tee "$work/$signed/Wlan/guest network" >"$work/$unsigned/Wlan/guest network"
}

make_authority signers
make_certificate publisher signers
make_sources
start_store

publish_both
upload_in_pieces "a first publication"

change Lobby
rm "$work/$signed/Vlan/office"
publish_both
upload_in_pieces "a second publication"
[[ -e $work/store/config/Vlan/office/1 && -e "$work/store/config/Wlan/guest network/1" ]] ||
  fail "a file that an element may still ask for is gone"
passed "files that no K names any more stay"

check_header "config/Radio/indoor/1" "public, max-age=31536000, immutable"
check_header "file/knowledge/AP/$signed/latest/$signed.k" no-cache
check_header "file/knowledge/AP/$signed/latest/$signed.k.p7s" no-cache
check_header "file/knowledge/AP/$signed/latest/$signed.checksum" no-cache
passed "config is immutable for caches, latest is checked each time"

writes=$(count_writes)
upload_at_once
(($(count_writes) == writes)) || fail "an upload without news wrote something"
passed "an upload without news writes nothing"

change Attic
publish "$unsigned"
upload_at_once
latest=site/file/knowledge/AP/$unsigned/latest/$unsigned
diff <(writes_done | tail -n +$((writes + 1))) - >"$work/diff.log" <<END || fail "other writes"
PUT site/config/Wlan/guest network/3
PUT $latest.k
PUT $latest.checksum
END
check_complete "a change of one element"
passed "only what changed is uploaded"

change Hotel
publish_both
count_writes >"$control/allowed"
echo hold >"$control/at-limit"
begin_upload
await "write that waits" is_held_or_over
expect 1 timeout 20 "$upload" "$publication" "$remote"
grep -q 'another upload is running' "$work/output.log" || fail "a second upload gives another reason"
passed "a second upload at the same time is refused"

cp -Rp "$publication/file" "$work/announced"
change Beach
publish_both
rm "$control/allowed"
wait "$uploading" || fail "the upload fails beside a publisher"
check_store "an upload beside a publisher"
diff -r "$work/announced" "$work/store/file" >"$work/diff.log" || fail "a K came without its files"
upload_at_once
check_complete "the upload after it"
passed "an upload beside a publisher announces what was published when it began"

exec {lock}<"$publication/.lock"
flock "$lock"
expect 124 timeout 2 "$upload" "$publication" "$remote"
exec {lock}<&-
passed "an upload waits for a publisher"

publish "$signed" --config-id 1b671a64-40d5-491e-99b0-da01ff1f3341
upload_at_once
check_complete "a K that is not signed any more"
[[ ! -e $work/store/file/knowledge/AP/$signed/latest/$signed.k.p7s ]] || fail "the signature stays"
passed "a signature of the K before is removed"

expect 0 "$zotconf" prune "$publication" --grace 0
upload_at_once
fetch_store
[[ -e $work/store/config/Vlan/office/1 ]] || fail "an upload removed a file"
upload_at_once --remove
check_complete "a removal"
diff -r "$publication/config" "$work/store/config" >"$work/diff.log" || fail "the store has other files"
passed "only --remove removes what prune has removed, and nothing else"

change Other
publish_both
rclone copyto "$publication/.lock" "$remote/config/Radio/indoor/1"
expect 1 "$upload" "$publication" "$remote"
fetch_store
[[ ! -s $work/store/config/Radio/indoor/1 ]] || fail "an object of config was replaced"
[[ $(<"$work/store/file/knowledge/AP/$unsigned/latest/$unsigned.checksum") == "${before[$unsigned]}" ]] ||
  fail "a publication was announced after an error"
passed "an object of config with other bytes is an error, and nothing is announced"

expect 1 "$upload" "$work/$signed" "$remote"
expect 2 "$upload" "$publication"
passed "a folder without a publication, and wrong usage, are refused"
