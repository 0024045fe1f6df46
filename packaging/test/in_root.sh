#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Runs in an empty Debian root with the packages in /stage: installs, uses and removes them like a user.
set -euo pipefail
cd /stage
export DEBIAN_FRONTEND=noninteractive LC_ALL=C
index=001122334455
service=

tell() { echo "in root: $*"; }

fail() {
  echo "$*" >&2
  exit 1
}

stop_service() {
  [[ -n $service ]] || return 0
  kill "$service" 2>/dev/null || true
  wait "$service" || fail "zotconf serve ended with an error"
  service=
}
trap stop_service EXIT

install_packages() {
  apt-get install -y -qq --no-install-recommends "$@" >/dev/null
}

publish() {
  zotconf publish source --out published --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 >publish.log
}

serve() {
  : >serve.log
  zotconf serve published --port 0 >serve.log 2>&1 &
  service=$!
  local tries port=
  for ((tries = 0; tries < 300; tries++)); do
    port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' serve.log)
    [[ -z $port ]] || break
    kill -0 "$service" 2>/dev/null || fail "zotconf serve ended: $(cat serve.log)"
    sleep 0.1
  done
  [[ -n $port ]] || fail "zotconf serve does not listen: $(cat serve.log)"
  export ZOT_REMOTE_PORT=$port
}

# Runs a program as a separate element, with an empty device.
on_new_device() {
  local device=$1
  shift
  mkdir -p "$device"
  ZOT_PREFIX_CONF_ROOT=/stage/$device ZOT_PREFIX_TMP_ROOT=/stage/$device "$@"
}

# A program gets and commits all entries; the device must then have the published files.
runs_a_cycle() {
  local program=$1 files
  shift
  files=$(find source -type f | wc -l)
  on_new_device "$program.device" "./$program" "$@" >"$program.log" ||
    fail "$program failed: $(cat "$program.log")"
  local listed
  listed=$(grep -cE '^([a-z]+ )?[A-Z][A-Za-z]+/[^ ]+ ' "$program.log" || true)
  ((listed == files)) || fail "$program listed $listed of $files entries: $(cat "$program.log")"
  local kept=$program.device/writable/zot/config
  (cd source && find . -type f) | while read -r file; do
    cmp -s "source/$file" "$kept/$file"/* || fail "$program did not commit $file"
  done
  tell "$program: got $listed entries and committed"
}

mkdir -p /stage/source
cp -r examples/sample/. source

install_packages ./libzotconf1.deb ./zotconf-tools.deb
version=$(dpkg-query -W -f='${Version}' zotconf-tools)
[[ "$(zotconf --version)" == "zotconf ${version%-*}" ]] ||
  fail "zotconf --version: $(zotconf --version), package: $version"
for file in /usr/share/bash-completion/completions/zotconf \
  /usr/share/doc/zotconf-tools/copyright; do
  [[ -s $file ]] || fail "$file is missing"
done
for command in relay watch; do
  unit=/usr/lib/systemd/system/zotconf-$command.service
  grep -q "^ExecStart=/usr/bin/zotconf $command " "$unit" ||
    fail "$unit does not start the program of the package"
done
# The shell accepts the completion script, and the script completes this command.
bash -c 'source /usr/share/bash-completion/completions/zotconf && complete -p zotconf' >/dev/null
publish
serve
on_new_device tool.device zotconf cycle --index "$index" --commit >tool.log ||
  fail "zotconf cycle failed: $(cat tool.log)"
tell "zotconf-tools: $(zotconf --version) published, served and committed"

install_packages ./libzotconf-dev.deb cmake g++ make man-db pkg-config
for page in $(dpkg -L zotconf-tools libzotconf-dev | sed -n 's|.*/man[13]/\(.*\)\.gz$|\1|p'); do
  man -w "${page##*.}" "${page%.*}" >/dev/null || fail "man does not find $page"
  man --warnings=w "${page##*.}" "${page%.*}" 2>&1 >/dev/null | grep . && fail "man warns of $page"
  tell "man page $page"
done
man -w 1 zotconf >/dev/null
man -w 3 zot_conf >/dev/null

read -ra flags <<<"$(pkg-config --cflags --libs zotconf)"
cc -std=c11 -Wall -Wextra -Werror examples/cycle.c "${flags[@]}" -o with_pkg_config
[[ $(ldd with_pkg_config) == *"libzotconf.so.1 => /"* ]] || fail "the shared library is not in use"
runs_a_cycle with_pkg_config

cmake -S . -B built -DCMAKE_BUILD_TYPE=Release >cmake.log || fail "$(cat cmake.log)"
cmake --build built >cmake.log || fail "$(cat cmake.log)"
cp built/with_* .
runs_a_cycle with_shared
[[ $(ldd with_static) != *libzotconf* ]] || fail "with_static loads the shared library"
runs_a_cycle with_static
runs_a_cycle with_cxx "$index"
stop_service

apt-get purge -y -qq libzotconf1 libzotconf-dev zotconf-tools >/dev/null
left=$(find / -xdev \( -path /stage -o -path /proc -o -path /sys -o -path /dev -o -path /var/log \
  -o -path /tmp -o -path /var/cache/man \) -prune -o -iname '*zot*conf*' -print)
[[ -z $left ]] || fail "left after the packages were removed: $left"
tell "removed, nothing left"
