#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: run_cycle.sh ZOTCONF SAMPLE PROGRAMS root|path|emulated
# Runs whole cycles with the PROGRAMS (cycle, client, c_client) against a service on this machine. The
# element has only busybox's sh, tar, cp and rm. With `path` they are its PATH on this machine. With
# `root` the element runs in a root of its own that contains no other commands and no C library, so the
# programs have to be static. With `emulated` they, and the busybox among the PROGRAMS, are for 32-bit ARM:
# such a root also contains the emulator.
set -euo pipefail

zotconf=$1 sample=$2 programs=$3 where=$4
# shellcheck source=tests/api/service.sh
source "$(dirname "$0")/../api/service.sh"

# shellcheck disable=SC2154  # service.sh sets them
readonly root=$work/root source=$work/source
# shellcheck disable=SC2154
latest=$published/file/knowledge/AP/$index/latest/$index

readonly applets=(sh tar cp rm) clients=(cycle client c_client)

# put_programs FOLDER BUSYBOX
put_programs() {
  mkdir -p "$1"
  cp "$2" "$1/busybox"
  local applet
  for applet in "${applets[@]}"; do
    ln -s busybox "$1/$applet"
  done
  cp "${clients[@]/#/$programs/}" "$1"
}

# The kernel runs what is in /bin, which hands everything to the emulator.
put_emulator() {
  local emulator name libraries
  emulator=$(command -v qemu-arm)
  mkdir -p "$root/bin" "$root/emulator"
  cp "$emulator" "$root/emulator/qemu-arm"
  mapfile -t libraries < <(ldd "$emulator" | grep -oE '/[^ ]+')
  ((${#libraries[@]} == 0)) || cp -L --parents "${libraries[@]}" "$root"
  for name in busybox "${applets[@]}" "${clients[@]}"; do
    cp "$programs/emulated" "$root/bin/$name"
  done
}

# What the element calls the root.
root_seen=
[[ $where != path ]] || root_seen=$root
programs_of_element=$root/bin
[[ $where != emulated ]] || programs_of_element=$root/emulated
killed=

make_root() {
  mkdir -p "$root"/{data,dev,tmp}
  if [[ $where == emulated ]]; then
    put_programs "$programs_of_element" "$programs/busybox"
    put_emulator
  else
    put_programs "$programs_of_element" "$(command -v busybox)"
  fi
  : >"$root/dev/null" # a plain file, because not every user may create a device
}

# Runs a program of the element. An element in a root sees "/" where this machine sees $root. Its
# standard error, for example that the cache is empty, goes to a separate file.
on_element() {
  local program=$1 seen=$root_seen enter=()
  shift
  if [[ $where != path ]]; then
    enter=("$(PATH=$PATH:/usr/sbin command -v chroot)" "$root")
    ((EUID == 0)) || enter=("$(command -v unshare)" --map-root-user "${enter[@]}")
  fi
  env -i PATH="$seen/bin" ZOT_REMOTE_PORT="$ZOT_REMOTE_PORT" ZOT_PREFIX_CONF_ROOT="$seen/data" \
    ZOT_PREFIX_TMP_ROOT="$seen" "${enter[@]}" "$seen/bin/$program" "$@" 2>"$work/errors"
}

# printed LINES…: the output of the last command is these lines, in any order.
printed() {
  diff -u --label expected --label printed <(printf '%s\n' "$@" | sort) <(sort "$work/output") ||
    fail "the output differs; standard error: $(<"$work/errors")"
}

# The lines that the programs print for the files of a publication.
published_lines() {
  find "$source" -type f -printf '%P %s\n'
}

# same PUBLISHED CACHED: a file of this machine is identical with that in the cache.
same() {
  cmp "$1" "$root/data/writable/zot/$2" || fail "the cache has a different $2"
}

missing() {
  [[ ! -e $root/data/writable/zot/$1 ]] || fail "the cache should not hold $1"
}

# keep_k NAME: saves the K that is published now as NAME.
keep_k() {
  cp "$latest.k" "$work/$1.k"
  cp "$latest.checksum" "$work/$1.checksum"
}

# has_k NAME CACHED: the K in the cache named CACHED is the one that was saved as NAME.
has_k() {
  same "$work/$1.k" "knowledge/$2.k"
}

get_first() {
  publish "$zotconf" "$source"
  keep_k first
  start_service "$zotconf"
  expect 0 on_element cycle
  local lines file
  mapfile -t lines < <(published_lines)
  printed "${lines[@]}" Success
  has_k first subsys
  while read -r file; do
    same "$source/$file" "config/$file/1"
  done < <(find "$source" -type f -printf '%P\n')
  expect 0 on_element cycle
  printed "No update data."
}

# A client that watches transfers is called for each, and may end it; the cache does not change.
watch_transfers() {
  expect 1 on_element client ended
  shows '^the watcher was called$'
  shows '^curl error get K\.checksum from "http://127\.0\.0\.1:[0-9]+/file/.*": .+$'
  has_k first subsys
  expect 0 on_element client watched
  shows '^the watcher was called$'
}

get_second() {
  echo "rate-limit=update" >>"$source/Wlan/guest"
  printf 'ssid=Lab\nsecurity=wpa3-personal\nvlan=110\n' >"$source/Wlan/lab"
  rm "$source/Schedule/always"
  publish "$zotconf" "$source"
  keep_k second
  expect 0 on_element cycle
  printed "Wlan/guest $(stat -c %s "$source/Wlan/guest")" \
    "Wlan/lab $(stat -c %s "$source/Wlan/lab")" "Schedule/always 0" Success
  has_k second subsys
  has_k first prev_subsys
  same "$source/Wlan/guest" config/Wlan/guest/2
  same "$source/Wlan/lab" config/Wlan/lab/1
  cp -r "$source" "$work/good"
}

refuse_third() {
  echo "security=broken" >>"$source/Wlan/guest"
  publish "$zotconf" "$source"
  keep_k third
  expect 0 on_element client roll-back
  printed "Wlan/guest $(stat -c %s "$source/Wlan/guest")" Success
  has_k second subsys
  has_k third corrupted
  missing config/Wlan/guest/3
  expect 1 on_element cycle
  shows '^New configuration is still corrupted\.$'
}

# The shell kills the process as it commits. The next one, which has no service, finds what was in force
# before. On this machine's own root the shell cannot be replaced.
undo_after_kill() {
  [[ $where != path ]] || return 0
  echo "security=wpa3" >>"$source/Wlan/guest"
  publish "$zotconf" "$source"
  cp --remove-destination "$programs/killing_shell" "$programs_of_element/sh"
  expect 137 on_element cycle
  ln -sf busybox "$programs_of_element/sh"
  [[ -d $root/data/writable/zot/undo ]] || fail "the kill did not interrupt the commit"
  killed=", undo after a kill"
}

start_without_service() {
  stop_service
  rm -rf "$source"
  cp -r "$work/good" "$source"
  expect 0 on_element client cached
  local lines
  mapfile -t lines < <(published_lines)
  printed "${lines[@]}"
}

# The program that the library's own tests run, on an empty element.
run_c_client() {
  rm -rf "$root/data" "$root/tmp" "$published"
  mkdir "$root/data" "$root/tmp"
  publish "$zotconf" "$sample"
  start_service "$zotconf"
  expect 0 on_element c_client "$(count_files "$sample")"
  shows "^c_client: $(count_files "$sample") files, 0 failures$"
  stop_service
}

cp -r "$sample" "$source"
make_root
get_first
watch_transfers
get_second
refuse_third
undo_after_kill
start_without_service
run_c_client
echo "busybox, $where: $(count_files "$sample") files: get, commit, rotation and" \
  "rollback$killed passed"
