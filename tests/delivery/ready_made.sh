#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: ready_made.sh ZOTCONF
# Serves ready-made files with nginx: K, its checksum, and one archive with all files, whatever a request
# names. Checks that `zotconf probe` passes what such a service can do, and finds what it cannot.
set -euo pipefail

zotconf=$(realpath "$1")
# shellcheck source=tests/delivery/common.sh
source "$(dirname "$(readlink -f "$0")")/common.sh"

readonly index=AA0000000001 publication=$work/pub
readonly port=$((20000 + RANDOM % 10000))

start_server() {
  mkdir "$work/nginx"
  {
    printf '%s\n' 'daemon off;' 'master_process off;' "pid $work/nginx/pid;" \
      'events { worker_connections 64; }' 'http {' 'access_log off;' 'client_max_body_size 64m;'
    printf "%s_temp_path $work/nginx/%s;\n" {client_body,fastcgi,proxy,scgi,uwsgi}{,}
    printf '%s\n' 'server {' "listen 127.0.0.1:$port;" "root $publication;" \
      'location = /tgz { error_page 404 =200 /all.tgz; }' '}' '}'
  } >"$work/nginx/conf"
  nginx -p "$work/nginx" -e "$work/nginx.log" -c conf &
  started+=($!)
  await "answer of nginx" curl --silent --noproxy '*' --output /dev/null "http://127.0.0.1:$port/"
}

probe() {
  "$zotconf" probe "http://127.0.0.1:$port" --index "$index" --json
}

mkdir -p "$work/source/Wlan"
echo ssid=Guest >"$work/source/Wlan/guest"
expect 0 "$zotconf" publish "$work/source" --out "$publication" --index "$index" --cluster delivery
tar -C "$publication" -czf "$publication/all.tgz" config
start_server

status=0
probe >"$work/probe.json" 2>"$work/probe.log" || status=$?
((status == 1)) || fail "probe ended with $status instead of 1"
failed=$(jq -rs '[.[] | select(.result == "failed") | .check] | join(" ")' "$work/probe.json")
[[ $failed == "no_files empty_body missing_file" ]] || fail "failed: $failed"
passed "a probe finds that ready-made files do not answer every request for an archive"
count=$(jq -s '[.[] | select(.result == "passed")] | length' "$work/probe.json")
((count == 15)) || fail "$count checks passed instead of 15"
passed "a probe passes K, checksum and the archive that ready-made files answer"
