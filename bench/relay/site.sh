# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# What the server offers: the same files in the form that each contender fetches, below $site, and the
# servers themselves. The caller sets $host, $here, $work, $index and $zotconf.

readonly site=$work/site tree=$work/tree
readonly publication=$site/publication repository=$site/ostree delta_repository=$site/delta
readonly latest=file/knowledge/AP/$index/latest/$index
readonly secure_port=8443 archive_port=8444 plain_port=8080
readonly secure_url=https://$server_address:$secure_port
readonly archive_url=https://$server_address:$archive_port
readonly plain_url=http://$server_address:$plain_port

make_certificates() {
  local authority
  for authority in servers elements signers; do
    make_authority "$authority"
  done
  make_certificate server servers "subjectAltName=IP:$server_address"
  make_certificate element elements extendedKeyUsage=clientAuth
  make_certificate publisher signers
}

publish() {
  expect 0 "$zotconf" publish "$tree" --out "$publication" --index "$index" \
    --cluster 7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11 --firmware 7.1.0 \
    --sign-cert "$work/publisher.crt" --sign-key "$work/publisher.key"
}

commit() {
  expect 0 ostree --repo="$repository" commit --branch=config --tree=dir="$tree" \
    --no-xattrs --owner-uid=0 --owner-gid=0 --canonical-permissions
  expect 0 ostree --repo="$repository" summary --update
}

# The first state, which each contender has a copy of.
publish_first() {
  local files=$1 size=$2
  rm -rf "$site" "$tree"
  mkdir -p "$site"
  "$host/bench/source/bench_source" "$tree" "$files" "$size" 0
  publish
  expect 0 ostree --repo="$repository" init --mode=archive
  commit
}

# The same order in each run.
shuffled() {
  shuf --random-source=<(openssl enc -aes-128-ctr -nosalt -pass pass:relay -pbkdf2 </dev/zero \
    2>/dev/null)
}

# Changes 1 % of the files, anywhere in the tree.
change_files() {
  local files=$1 size=$2 changed=$work/changed path
  "$host/bench/source/bench_source" "$changed" "$files" "$size" "$files"
  while IFS= read -r path; do
    cp "$changed/$path" "$tree/$path"
  done < <(cd "$tree" && find . -type f | sort | shuffled | head -n $((files / 100)))
  rm -rf "$changed"
}

# nginx and rsync compare times in seconds.
publish_second() {
  sleep 1.1
  change_files "$@"
  publish
  commit
  cp -r "$repository" "$delta_repository"
  expect 0 ostree --repo="$delta_repository" static-delta generate --inline config
  expect 0 ostree --repo="$delta_repository" summary --update
  expect 0 casync make --without=privileged "$site/config.caidx" "$tree"
  tar -C "$tree" -czf "$site/config.tar.gz" .
}

# replaced FROM TO: prints the text with FROM, which must be present, replaced by TO.
replaced() {
  local text
  text=$(cat)
  [[ $text == *"$1"* ]] || fail "the example of nginx has no '$1'"
  printf '%s\n' "${text//"$1"/"$2"}"
}

# The server for the relay is the example, with the paths replaced. The others have the same TLS
# settings, or none.
nginx_configuration() {
  replaced "listen 8443 " "listen $secure_port " <"$here/../../examples/nginx.conf" |
    replaced /srv/zotconf/publication "$publication" |
    replaced /etc/zotconf/tls "$work" >"$work/nginx/site.conf"
  sed -e "s,listen $secure_port,listen $archive_port," -e '/^  # Only names/,$c}' \
    -e "s,$publication,$site," "$work/nginx/site.conf" >"$work/nginx/archive.conf"
  cat <<END
daemon off;
master_process off;
pid $work/nginx/pid;
events { worker_connections 256; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  client_body_temp_path $work/nginx/body;
  fastcgi_temp_path $work/nginx/fastcgi;
  proxy_temp_path $work/nginx/proxy;
  scgi_temp_path $work/nginx/scgi;
  uwsgi_temp_path $work/nginx/uwsgi;
  include $work/nginx/site.conf;
  include $work/nginx/archive.conf;
  server {
    listen $plain_port;
    root $site;
  }
}
END
}

rsync_configuration() {
  cat <<END
use chroot = no
reverse lookup = no
socket options = TCP_NODELAY
log file = $work/rsync.log
[tree]
path = $tree
END
}

is_listening() {
  on_server ss -Hltn "sport = $1" | grep -q .
}

serve() {
  local port
  mkdir -p "$work/nginx"
  nginx_configuration >"$work/nginx/conf"
  ip netns exec "$server_side" nginx -p "$work/nginx" -e "$work/nginx.log" -c conf &
  started+=($!)
  rsync_configuration >"$work/rsync.conf"
  ip netns exec "$server_side" rsync --daemon --no-detach --config="$work/rsync.conf" &
  started+=($!)
  for port in "$secure_port" "$archive_port" "$plain_port" 873; do
    await "server at port $port" is_listening "$port"
  done
}
