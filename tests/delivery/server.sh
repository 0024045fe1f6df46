#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# usage: server.sh ZOTCONF CONFIGURATION
# Serves a publication folder with nginx and the configuration examples/nginx.conf; only the paths and
# the port are replaced. Checks what is served, to which clients and with which headers; at the end, an
# element gets the result.
set -euo pipefail

zotconf=$(realpath "$1") configuration=$(realpath "$2")
# shellcheck source=tests/delivery/common.sh
source "$(dirname "$(readlink -f "$0")")/common.sh"

readonly index=AA0000000001 publication=$work/pub
readonly latest=/file/knowledge/AP/$index/latest/$index
readonly config="/config/Wlan/guest%20network/1"

is_taken() {
  (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

free_port() {
  local port
  while port=$((20000 + RANDOM % 10000)) && is_taken "$port"; do :; done
  echo "$port"
}

# replaced FROM TO: prints the configuration with FROM, which must be present, replaced by TO.
replaced() {
  local text
  text=$(cat)
  [[ $text == *"$1"* ]] || fail "$configuration: has no '$1'"
  printf '%s\n' "${text//"$1"/"$2"}"
}

start_server() {
  port=$(free_port)
  mkdir "$work/nginx"
  replaced "listen 8443" "listen 127.0.0.1:$port" <"$configuration" |
    replaced /srv/zotconf/publication "$publication" |
    replaced /etc/zotconf/tls "$work" >"$work/nginx/site.conf"
  {
    printf '%s\n' 'daemon off;' 'master_process off;' "pid $work/nginx/pid;" \
      'events { worker_connections 64; }' 'http {' 'access_log off;'
    printf "%s_temp_path $work/nginx/%s;\n" {client_body,fastcgi,proxy,scgi,uwsgi}{,}
    printf '%s\n' "include $work/nginx/site.conf;" '}'
  } >"$work/nginx/conf"
  nginx -p "$work/nginx" -e "$work/nginx.log" -c conf &
  started+=($!)
  await "answer of nginx" is_taken "$port"
}

client() {
  curl --silent --noproxy '*' --max-time 30 --cacert "$work/servers.crt" "$@"
}
element=(--cert "$work/element.crt" --key "$work/element.key")

# request STATUS PATH [OPTION]…: requests PATH and checks the status; headers and body go to files.
request() {
  local status
  : >"$work/body"
  status=$(client --path-as-is --dump-header "$work/headers.log" --output "$work/body" \
    --write-out '%{http_code}' "${@:3}" "https://127.0.0.1:$port$2") || fail "curl ended with $?: $2"
  [[ $status == "$1" ]] || fail "status $status instead of $1: ${*:2}"
}

header() {
  tr -d '\r' <"$work/headers.log" | sed -n "s/^$1: //Ip"
}

has_header() {
  [[ $(header "$1") == "$2" ]] || fail "the header $1 is '$(header "$1")' instead of '$2'"
}

has_body() {
  cmp "$work/body" "$1" >"$work/output.log" 2>&1 || fail "the body is not $1"
}

publish() {
  expect 0 "$zotconf" publish "$work/source" --out "$publication" --index "$index" \
    --cluster delivery --sign-cert "$work/publisher.crt" --sign-key "$work/publisher.key"
}

# tls VERSION: tries a handshake at the lowest security level, so that only the server can refuse it.
tls() {
  openssl s_client -connect "127.0.0.1:$port" "-$1" -cipher DEFAULT@SECLEVEL=0 \
    -CAfile "$work/servers.crt" -cert "$work/element.crt" -key "$work/element.key" \
    </dev/null >"$work/output.log" 2>&1
}

# fetch: downloads like an element, in the order of docs/delivery.md, into another publication folder.
fetch() {
  local to=$1 suffix path
  mkdir -p "$to${latest%/*}"
  for suffix in checksum k k.p7s; do
    request 200 "$latest.$suffix" "${element[@]}"
    mv "$work/body" "$to$latest.$suffix"
  done
  [[ $(<"$to$latest.checksum") == $(digest_of "$to$latest.k") ]] || fail "K is not what is announced"
  is_signed "$to$latest.k" || fail "the signature is not one of K"
  while IFS= read -r path; do
    mkdir -p "$to/config${path%/*}"
    request 200 "/config${path// /%20}" "${element[@]}"
    mv "$work/body" "$to/config$path"
  done < <(jq -r '.gpbs[].path' "$to$latest.k")
  is_whole "$to$latest.k" "$to/config" || fail "the files are not those of K"
}

check_files() {
  request 200 "$config" "${element[@]}"
  has_body "$publication/config/Wlan/guest network/1"
  has_header Cache-Control "public, max-age=31536000, immutable"
  request 200 "/config/${config#/config}" "${element[@]}"
  request 200 "$config" "${element[@]}" --head
  has_header Content-Length "$(stat -c %s "$publication/config/Wlan/guest network/1")"
  passed "a file of config is served for ever"

  request 404 /config/Wlan/guest/9 "${element[@]}"
  has_header Cache-Control ""
  passed "an absent file of config is not absent for ever"
}

check_latest() {
  local suffix tag
  for suffix in k k.p7s checksum; do
    request 200 "$latest.$suffix" "${element[@]}"
    has_body "$publication$latest.$suffix"
    has_header Cache-Control no-cache
    tag=$(header ETag)
    [[ -n $tag ]] || fail "$suffix has no ETag"
    request 304 "$latest.$suffix" "${element[@]}" --header "If-None-Match: $tag"
    [[ ! -s $work/body ]] || fail "304 has a body"
  done
  passed "K, its signature and its checksum are served with an ETag, and with 304 while they stay"

  request 200 "$latest.k" "${element[@]}" --compressed
  [[ $(header Content-Encoding) == gzip ]] || fail "K travels without compression"
  has_body "$publication$latest.k"
  request 200 "$latest.checksum" "${element[@]}" --compressed
  [[ $(header ETag) == \"* ]] || fail "the checksum has a weak ETag"
  passed "K is compressed for clients that accept it, the checksum is not"

  sleep 1.1 # nginx makes an ETag from the size and the time in seconds
  echo ssid=Lobby >"$work/source/Wlan/guest network"
  publish
  request 200 "$latest.checksum" "${element[@]}" --header "If-None-Match: $tag"
  has_body "$publication$latest.checksum"
  passed "a checksum that was replaced is served again"
}

check_clients() {
  local path
  for path in "$config" "$latest.checksum" /; do
    request 400 "$path"
    grep -q 'No required SSL certificate' "$work/body" || fail "refused for another reason"
    request 400 "$path" --cert "$work/stranger.crt" --key "$work/stranger.key"
    grep -q 'SSL certificate error' "$work/body" || fail "refused for another reason"
  done
  passed "a client without a certificate, or with one of another authority, is refused"

  [[ $(client -o "$work/body" -w '%{http_code}' "http://127.0.0.1:$port$config") == 400 ]] ||
    fail "an answer over plain HTTP"
  ! grep -q ssid "$work/body" || fail "a file over plain HTTP"
  passed "plain HTTP is refused"

  tls tls1_2 || fail "TLS 1.2 is refused"
  tls tls1_3 || fail "TLS 1.3 is refused"
  ! tls tls1_1 || fail "TLS 1.1 is accepted"
  grep -q 'alert protocol version' "$work/output.log" || fail "the server did not refuse TLS 1.1"
  ! tls tls1 || fail "TLS 1.0 is accepted"
  passed "TLS begins with 1.2"
}

check_requests() {
  local path method
  for path in "$config" "$latest.checksum"; do
    for method in POST PUT DELETE OPTIONS; do
      request 403 "$path" "${element[@]}" --request "$method" --data x
    done
  done
  request 404 /tgz "${element[@]}" --data '{"files":[]}'
  [[ $(<"$publication/config/Wlan/guest network/1") == ssid=Guest ]] || fail "a file was changed"
  passed "only GET and HEAD are answered"

  # All these files exist.
  echo 7 >"$publication/.spent"
  touch "$publication/other" "$publication/config/Wlan/.1.tmp" "$publication/config/Wlan/guest network/.1"
  mkdir "$publication/config/.hidden" "$publication/config/.hidden/key"
  touch "$publication/config/.hidden/key/1" "$publication${latest%/*}/.$index.k.tmp" "$work/outside"
  for path in /.lock /.spent /config/../.lock /config/%2e%2e/.spent //.lock /other /../outside \
    /config/Wlan/.1.tmp "/config/Wlan/guest%20network/.1" /config/.hidden/key/1 \
    "${latest%/*}/.$index.k.tmp"; do
    request "$(outside_is_400 "$path")" "$path" "${element[@]}"
  done
  passed "lock, spent versions, dot files and files of other names are not served"

  for path in / /config /config/ /config/Wlan/ "${config%/*}" "${config%/*}/" /file/ "${latest%/*}/"; do
    request 404 "$path" "${element[@]}"
    ! grep -q guest "$work/body" || fail "$path shows what it holds"
  done
  passed "folders are not listed"
}

# nginx responds with 400 if a path leads out of its root.
outside_is_400() {
  if [[ $1 == /../* ]]; then echo 400; else echo 404; fi
}

check_delivery() {
  fetch "$work/fetched"
  "$zotconf" serve "$work/fetched" --port 0 >"$work/serve.log" 2>&1 &
  started+=($!)
  await "port of the service" grep -q '^listening on ' "$work/serve.log"
  export ZOT_PREFIX_CONF_ROOT=$work/element ZOT_PREFIX_TMP_ROOT=$work/element ZOT_REMOTE_PORT
  ZOT_REMOTE_PORT=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.log")
  mkdir "$work/element"
  expect 0 "$zotconf" cycle --index "$index" --commit
  cmp "$work/source/Wlan/guest network" "$work/element/writable/zot/config/Wlan/guest network/2" ||
    fail "the element has another file"
  passed "an element fetches it all, serves it to itself and commits it"
}

unset ZOT_DEV_PATH
make_authority servers
make_authority elements
make_authority strangers
make_authority signers
make_certificate server servers subjectAltName=IP:127.0.0.1
make_certificate element elements extendedKeyUsage=clientAuth
make_certificate stranger strangers extendedKeyUsage=clientAuth
make_certificate publisher signers
mkdir -p "$work"/source/{Wlan,Radio}
echo ssid=Guest >"$work/source/Wlan/guest network"
echo channel=36 >"$work/source/Radio/indoor"
publish
start_server
check_files
check_latest
check_clients
check_requests
check_delivery
