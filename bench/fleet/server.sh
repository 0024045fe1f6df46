# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034,SC2154
# nginx with two workers, as in the example of a configuration, with TLS and without.

plain_port=
secure_port=
server=

is_taken() {
  ss -Hltn "sport = $1" | grep -q .
}

free_port() {
  local port
  while port=$((20000 + RANDOM % 10000)) && is_taken "$port"; do :; done
  echo "$port"
}

make_server_certificates() {
  local authority
  for authority in servers elements; do
    make_authority "$authority"
  done
  make_certificate server servers subjectAltName=IP:127.0.0.1
  make_certificate element elements extendedKeyUsage=clientAuth
}

# The example, with its paths and port replaced.
site() {
  sed -e "s,listen 8443 ,listen $secure_port ," -e "s,/srv/zotconf/publication,$1," \
    -e "s,/etc/zotconf/tls,$work," "$here/../../examples/nginx.conf"
}

# nginx_configuration PUBLICATION LOG: the connections live as long as the measurement.
nginx_configuration() {
  cat <<END
daemon off;
worker_processes 2;
worker_rlimit_nofile $(ulimit -n);
pid $work/nginx/pid;
events { worker_connections $((elements + 500)); }
http {
  log_format load '\$msec \$request_uri';
  access_log $2;
  keepalive_requests 1000000000;
  keepalive_timeout 1h;
  sendfile on;
  tcp_nopush on;
  client_body_temp_path $work/nginx/body;
  fastcgi_temp_path $work/nginx/fastcgi;
  proxy_temp_path $work/nginx/proxy;
  scgi_temp_path $work/nginx/scgi;
  uwsgi_temp_path $work/nginx/uwsgi;
  $(site "$1")
  $(site "$1" | sed -e "s,listen $secure_port .*,listen $plain_port;," -e '/^ *ssl_/d')
}
END
}

# serve PUBLICATION LOG
serve() {
  plain_port=$(free_port)
  secure_port=$(free_port)
  mkdir -p "$work/nginx"
  nginx_configuration "$1" "$2" >"$work/nginx/conf"
  nginx -p "$work/nginx" -e "$work/nginx.log" -c conf &
  server=$!
  started+=("$server")
  await "nginx" is_taken "$plain_port"
}
