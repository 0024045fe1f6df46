# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# Prepares what the contenders fetch: two publications below $site, the second with some files
# changed, and the service that serves them. The caller sets $work, $host, $index and $peers.

readonly site=$work/site
declare -A port=()
nginx=

knowledge() {
  printf '%s' "$site/$1/file/knowledge/AP/$index/latest/$index"
}

# pack LETTER: creates the archive as the service of an element sends it, with regular files only, and
# the digests of its files. gzip uses its default level, 6.
pack() {
  local letter=$1
  jq -r '.gpbs[] | .checksum + "  config" + .path' "$(knowledge "$letter").k" >"$site/$letter.sums"
  cut -c 67- "$site/$letter.sums" |
    tar -C "$work/published" --format=ustar --owner=0 --group=0 -cf - -T - |
    gzip -6n >"$site/$letter/tgz"
}

# Creates the store that a casync client downloads from, and an ostree repository as a server has it.
# Both contain the same files, under the same names.
pack_for_peers() {
  local letter=$1 tree=$work/tree
  mkdir "$tree"
  tar -C "$tree" -xzf "$site/$letter/tgz"
  casync make --without=privileged "$site/$letter/config.caidx" "$tree/config" >/dev/null
  ostree --repo="$site/$letter.ostree" commit --branch=config --tree=dir="$tree/config" \
    --no-xattrs --owner-uid=0 --owner-gid=0 --canonical-permissions >/dev/null
  rm -rf "$tree"
}

publish() {
  local letter=$1 files=$2 size=$3 changed=$4 number
  printf -v number '%012d' "$changed"
  "$host/bench/source/bench_source" "$work/source" "$files" "$size" "$changed"
  "$host/tools/zotconf" publish "$work/source" --out "$work/published" --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 --firmware 7.1.0 \
    --config-id "00000000-0000-4000-8000-$number" >"$work/publish.log" ||
    fail "publishing $files files of $size bytes failed"
  mkdir -p "$site/$letter"
  cp -r "$work/published/file" "$site/$letter/file"
}

# prepare FILES SIZE CHANGED [peers]: publication b is publication a with the first CHANGED files
# changed.
prepare() {
  local files=$1 size=$2 changed=$3 with=${4:-}
  rm -rf "$site"
  publish a "$files" "$size" 0
  publish b "$files" "$size" "$changed"
  rm -rf "$work/source"
  pack a &
  local packing=$!
  pack b
  wait "$packing"
  comm -13 <(sort "$site/a.sums") <(sort "$site/b.sums") >"$site/changed.sums"
  rm -rf "$work/published"
  if [[ $with == peers ]]; then
    ostree --repo="$site/a.ostree" init --mode=archive
    pack_for_peers a
    cp -r "$site/a.ostree" "$site/b.ostree"
    cp -r "$site/a/default.castr" "$site/b/default.castr"
    pack_for_peers b
  fi
}

is_taken() {
  awk -v port="$(printf ':%04X$' "$1")" '
    $2 ~ port { taken = 1 }
    END { exit !taken }' /proc/net/tcp
}

free_port() {
  local port
  while port=$((20000 + RANDOM % 10000)) && is_taken "$port"; do :; done
  printf '%s' "$port"
}

# A POST returns the file of the same name, as a GET would.
nginx_server() {
  cat <<END
  server {
    listen 127.0.0.1:${port[$1]};
    root $site/$1;
    location = /tgz { error_page 405 =200 \$uri; }
  }
END
}

nginx_configuration() {
  cat <<END
daemon off;
master_process off;
pid $work/nginx/pid;
events { worker_connections 64; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  keepalive_requests 1000000;
  client_max_body_size 0;
  default_type application/octet-stream;
  client_body_temp_path $work/nginx/body;
  fastcgi_temp_path $work/nginx/fastcgi;
  proxy_temp_path $work/nginx/proxy;
  scgi_temp_path $work/nginx/scgi;
  uwsgi_temp_path $work/nginx/uwsgi;
$(nginx_server a)
$(nginx_server b)
}
END
}

serve() {
  port[a]=$(free_port)
  port[b]=$(free_port)
  mkdir -p "$work/nginx"
  nginx_configuration >"$work/nginx/conf"
  nginx -p "$work/nginx" -e "$work/nginx/log" -c conf &
  nginx=$!
  local attempt
  for attempt in {1..100}; do
    if curl -s -o "$work/nginx/answer" "http://127.0.0.1:${port[a]}/"; then
      return
    fi
    sleep 0.05
  done
  cat "$work/nginx/log" >&2
  fail "nginx does not answer after $attempt attempts"
}

stop_serving() {
  if [[ -n $nginx ]]; then
    kill "$nginx" 2>/dev/null || true
    wait "$nginx" 2>/dev/null || true
  fi
}
